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
    shellOutput("rm -rf /var/lock/files; touch /var/lock/files");
    lock_ptr lock;
    const std::string err = stderrOf([&] { lock = mk_lock("blocked", true); });
    shellOutput("rm /var/lock/files");
    EXPECT_EQ(err, "Unable to open file \"" + mk_flock_path("blocked") + "\": Not a directory."
                   "\nSystem error 20: Not a directory\n");
    ASSERT_NE(lock, nullptr);
    EXPECT_FALSE(is_locked(lock));
}

}  // namespace
