// Lock files under /var/lock/files: their names, exclusion between processes, the
// non-blocking answer on a held lock, and failures.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "runtime/lock_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

TEST(LockFile, NamedByTheMd5OfTheKeyAndKeptAfterRelease)
{
    EXPECT_EQ(mk_flock_path("/etc/postfix/main.cf"), "/var/lock/files/7963c3b4b0754641744c1ae241e19575");
    EXPECT_EQ(mk_flock_path(""), "/var/lock/files/d41d8cd98f00b204e9800998ecf8427e");
    const std::string path = mk_flock_path("lands-here");
    lock_ptr lock = mk_lock("lands-here", true);
    ASSERT_TRUE(is_locked(lock));
    EXPECT_EQ(lock->path, path);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
    EXPECT_EQ(rm_lock(lock), 0);
    EXPECT_TRUE(exists(path)) << "the lock file is never deleted";
}

TEST(LockFile, TheFolderOfKeyedLocksIsMadeAgainWhenGone)
{
    shellOutput("rm -rf /var/lock/files");
    lock_ptr lock = mk_lock("after-a-boot", true);
    EXPECT_TRUE(is_locked(lock));
    struct stat info {};
    ASSERT_EQ(::stat("/var/lock/files", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755u);
}

TEST(LockFile, NonBlockingAttemptOnAHeldLockSaysAlreadyLocked)
{
    lock_ptr held = mk_lock("held-name", true);
    ASSERT_TRUE(is_locked(held));
    lock_ptr second = mk_nonblock_lock("held-name", true);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(is_already_locked(second));
    EXPECT_FALSE(is_locked(second));
    EXPECT_EQ(rm_lock(second), 0);

    EXPECT_EQ(rm_lock(held), 0);
    lock_ptr third = mk_nonblock_lock("held-name", true);
    EXPECT_TRUE(is_locked(third));
    EXPECT_FALSE(is_already_locked(third));
}

TEST(LockFile, TwoProcessesSerialise)
{
    const std::string log = "/tmp/lock-serialise.log";
    ::unlink(log.c_str());
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        lock_ptr lock = mk_lock("contended", true);
        if (!is_locked(lock) || ::write(ready[1], "L", 1) != 1)
            ::_exit(3);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::ofstream(log) << "child done\n";
        ::_exit(rm_lock(lock) == 0 ? 0 : 5);
    }
    ::close(ready[1]);
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    lock_ptr lock = mk_lock("contended", true);
    ASSERT_TRUE(is_locked(lock));
    EXPECT_EQ(readFile(log), "child done\n") << "the lock was granted while the child held it";
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(LockFile, UnopenableFileIsReportedAndNotLocked)
{
    lock_ptr lock;
    EXPECT_EQ(stderrOf([&] { lock = mk_lock("/no/such/folder/lock", false); }),
              "Unable to open file \"/no/such/folder/lock\": No such file or directory."
              "\nSystem error 2: No such file or directory\n");
    ASSERT_NE(lock, nullptr);
    EXPECT_FALSE(is_locked(lock));
    EXPECT_FALSE(is_already_locked(lock));
    lock_ptr none;
    EXPECT_EQ(rm_lock(none), -1);
    EXPECT_TRUE(is_already_locked(none));
}

}  // namespace
