// Lock files under /var/lock/files: the folder made again after a boot emptied /var/lock, and
// a lock file that cannot be opened (a held lock's answers are MKLock's tests).
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/lock_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

TEST(LockFile, TheFolderOfKeyedLocksIsMadeAgainWhenGone)
{
    shellOutput("rm -rf /var/lock/files");
    lock_ptr lock = mk_lock("after-a-boot", true);
    EXPECT_TRUE(is_locked(lock));
    EXPECT_EQ(lstatOf("/var/lock/files").st_mode & 07777, 0755u);
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
