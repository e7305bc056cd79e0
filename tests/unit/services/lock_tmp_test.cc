// MKLock over real lock files, and temporary files that clean up after themselves.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "services/process/mk_lock.h"
#include "services/process/tmp_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

TEST(MKLock, HoldsTheHashedLockUntilDestroyed)
{
    const std::string path = "/var/lock/files/7963c3b4b0754641744c1ae241e19575";
    // What another process trying the lock file at once finds.
    const auto free = [&] { return shellOutput("flock -n " + path + " echo free") == "free\n"; };
    {
        quelt::MKLock lock("/etc/postfix/main.cf");
        EXPECT_EQ(lock.path(), path);
        EXPECT_TRUE(exists(path));
        EXPECT_FALSE(free());
    }
    EXPECT_TRUE(free());
}

TEST(TmpFile, WritesAFreshFileAndRemovesItWhenAsked)
{
    std::string kept, removed;
    {
        quelt::TmpFile tmp("/tmp/mailrig-test.", false);
        tmp << "line " << 1 << "\n";
        EXPECT_TRUE(tmp.close());
        kept = tmp.path();
        EXPECT_EQ(kept.rfind("/tmp/mailrig-test.", 0), 0u);
        EXPECT_EQ(kept.size(), std::string("/tmp/mailrig-test.").size() + 6);
        quelt::TmpFile gone("/tmp/mailrig-test.");
        gone << "scratch";
        removed = gone.path();
        EXPECT_NE(removed, kept);
    }
    EXPECT_EQ(readFile(kept), "line 1\n");
    EXPECT_FALSE(exists(removed));
    ::unlink(kept.c_str());
    const std::string nowhere = thrownWhat<quelt::SystemError>([] { quelt::TmpFile("/no/such/dir/x"); });
    EXPECT_NE(nowhere.find(std::strerror(ENOENT)), std::string::npos) << nowhere;
}

}  // namespace
