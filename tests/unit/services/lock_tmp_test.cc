// MKLock over real lock files, and temporary files that clean up after themselves.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "runtime/lock_file.h"
#include "services/mk_lock.h"
#include "services/tmp_file.h"

namespace {

bool exists(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(MKLock, HoldsTheHashedLockUntilDestroyed)
{
    {
        quelt::MKLock lock("/etc/postfix/main.cf");
        EXPECT_EQ(lock.path(), "/var/lock/files/7963c3b4b0754641744c1ae241e19575");
        EXPECT_TRUE(exists(lock.path()));
        try {
            quelt::MKLock again("/etc/postfix/main.cf", quelt::MKLock::ByKey, quelt::MKLock::NoWait);
            ADD_FAILURE() << "a held lock was granted twice";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "lock(/etc/postfix/main.cf) failed: file is already locked");
        }
    }
    EXPECT_NO_THROW(quelt::MKLock("/etc/postfix/main.cf", quelt::MKLock::ByKey, quelt::MKLock::NoWait));
}

TEST(MKLock, ByFilenameUsesThePathAndReportsWhyItCannot)
{
    {
        quelt::MKLock lock("/var/lock/files/plain-name", quelt::MKLock::ByFilename);
        EXPECT_EQ(lock.path(), "/var/lock/files/plain-name");
        lock_ptr probe = mk_nonblock_lock("/var/lock/files/plain-name", false);
        EXPECT_TRUE(is_already_locked(probe));
    }
    try {
        quelt::MKLock lock("/no/such/dir/lock", quelt::MKLock::ByFilename);
        ADD_FAILURE() << "locked a file in a missing folder";
    } catch (const quelt::SystemError& e) {
        EXPECT_EQ(e.message(), "lock() failed");
        EXPECT_EQ(e.code(), ENOENT);
    }
}

TEST(TmpFile, WritesAFreshFileAndRemovesItWhenAsked)
{
    std::string kept;
    std::string removed;
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
    EXPECT_EQ(slurp(kept), "line 1\n");
    EXPECT_FALSE(exists(removed));
    ::unlink(kept.c_str());
    try {
        quelt::TmpFile nowhere("/no/such/dir/x");
        ADD_FAILURE() << "mkstemp in a missing folder";
    } catch (const quelt::SystemError& e) {
        EXPECT_EQ(e.code(), ENOENT);
    }
}

TEST(AutocleanOFStream, RemovesItsFile)
{
    {
        quelt::AutocleanOFStream out("/tmp/mailrig-autoclean");
        out << "data" << std::flush;
        EXPECT_EQ(slurp("/tmp/mailrig-autoclean"), "data");
    }
    EXPECT_FALSE(exists("/tmp/mailrig-autoclean"));
}

}  // namespace
