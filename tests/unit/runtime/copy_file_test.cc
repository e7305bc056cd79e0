// Copying files, finding a process by its executable, and the feature line printer.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include <gtest/gtest.h>

#include "runtime/copy_file.h"
#include "runtime/proc_info.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

TEST(CopyFile, CopiesContentAndModeAndFailsOnAMissingSource)
{
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content += "row " + std::to_string(i) + "\n";
    writeFile("/tmp/copy-src", content);
    ASSERT_EQ(::chmod("/tmp/copy-src", 0640), 0);
    ::unlink("/tmp/copy-dst");
    EXPECT_EQ(copy_file("/tmp/copy-src", "/tmp/copy-dst"), 0);
    EXPECT_TRUE(readFile("/tmp/copy-dst") == content);
    struct stat info {};
    ASSERT_EQ(::stat("/tmp/copy-dst", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);

    const std::string err = stderrOf([] { EXPECT_EQ(copy_file("/tmp/no-such-source", "/tmp/copy-dst"), 1); });
    EXPECT_EQ(err.rfind("Unable to open file /tmp/no-such-source: No such file or directory\n", 0), 0u) << err;
    EXPECT_TRUE(readFile("/tmp/copy-dst") == content);
}

TEST(CopyFile, AtomicCopyTakesOwnerGroupAndModeOrEndsTheProcess)
{
    writeFile("/tmp/atomic-src", "payload\n");
    writeFile("/tmp/atomic-dst", "old\n");
    copy_file_atomic("/tmp/atomic-src", "/tmp/atomic-dst", 65534, 65534, 0600);
    EXPECT_EQ(readFile("/tmp/atomic-dst"), "payload\n");
    struct stat info {};
    ASSERT_EQ(::stat("/tmp/atomic-dst", &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_EXIT(copy_file_atomic("/tmp/no-such-source", "/tmp/atomic-dst", 0, 0, 0600), ::testing::ExitedWithCode(1),
                "copy_file_atomic\\(/tmp/no-such-source -> /tmp/atomic-dst\\): open failed");
}

}  // namespace
