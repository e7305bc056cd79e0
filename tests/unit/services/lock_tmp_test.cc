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
    const auto noWait = [] { quelt::MKLock("/etc/postfix/main.cf", quelt::MKLock::ByKey, quelt::MKLock::NoWait); };
    {
        quelt::MKLock lock("/etc/postfix/main.cf");
        EXPECT_EQ(lock.path(), "/var/lock/files/7963c3b4b0754641744c1ae241e19575");
        EXPECT_TRUE(exists(lock.path()));
        EXPECT_EQ(thrownWhat<std::runtime_error>(noWait), "lock(/etc/postfix/main.cf) failed: file is already locked");
    }
    EXPECT_NO_THROW(noWait());
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
