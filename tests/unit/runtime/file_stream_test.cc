// Descriptors the program opens (files and lock files), or inherited and then marked, are closed
// on exec: a child that closes nothing itself (system(3)) sees none of them.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "runtime/fd_owner.h"
#include "runtime/file_stream.h"
#include "runtime/lock_file.h"
#include "support/io.h"

namespace {

TEST(FileStream, NoChildInheritsAFileWeOpened)
{
    quelt::InputFile in("/etc/hostname");
    ASSERT_TRUE(in.is_open());
    quelt::OutputFile out("/tmp/file-stream-out");
    ASSERT_TRUE(out.is_open());
    const lock_ptr lock = mk_lock("/etc/postfix/main.cf", true);
    const int inherited = ::open("/etc/passwd", O_RDONLY);
    ASSERT_GE(inherited, 3);

    const std::string seen = shellOutput("ls -l /proc/$$/fd");
    EXPECT_NE(seen.find("/etc/passwd"), std::string::npos) << "a plain open reaches the child";
    const std::string lockName = mk_flock_path("/etc/postfix/main.cf");  // (/var/lock may be a link)
    for (const std::string& path : {std::string("/etc/hostname"), std::string("/tmp/file-stream-out"),
                                    lockName.substr(lockName.rfind('/'))})
        EXPECT_EQ(seen.find(path), std::string::npos) << path << " reached the child:\n" << seen;
    quelt::markCloseOnExecFrom(3);
    EXPECT_EQ(shellOutput("ls -l /proc/$$/fd").find("/etc/passwd"), std::string::npos);
    ::close(inherited);
    ::unlink("/tmp/file-stream-out");
}

TEST(FileStream, FailsLikeAFileStream)
{
    quelt::InputFile missing("/nonexistent/file");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(missing.fail());
    EXPECT_TRUE(quelt::OutputFile("/nonexistent/file").fail());
}

}  // namespace
