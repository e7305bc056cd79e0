// MKLock over a real lock file: held under its hashed name until the lock object goes.
#include <gtest/gtest.h>

#include "services/process/mk_lock.h"
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

}  // namespace
