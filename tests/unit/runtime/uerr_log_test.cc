// The error stream and the two loggers: which text reaches which stream, and when.
#include <syslog.h>

#include <cerrno>
#include <cstdio>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "runtime/log.h"
#include "runtime/uerr.h"

namespace {

TEST(Messlog2, AppendsTheSystemErrorWritesBothStreamsAndCutsNothing)
{
    CaptureFd out(1), err(2);
    errno = EACCES;
    EXPECT_EQ(messlog2(0, 0, "Unable to open %s", "/etc/zvt/x"), 0);
    const std::string want = "Unable to open /etc/zvt/x\nSystem error 13: Permission denied\n";
    EXPECT_EQ(err.text(), want);
    EXPECT_EQ(out.text(), want);
    errno = 0;
    const std::string big(10000, 'q');
    messlog2(0, 0, "%s", big.c_str());
    EXPECT_EQ(out.text(), want + big + "\n");
}

TEST(Messlog2DeathTest, NonZeroStatusEndsTheProcess)
{
    EXPECT_EXIT(
        {
            errno = 0;
            messlog2(1, 0, "fatal %d", 7);
        },
        testing::ExitedWithCode(1), "fatal 7");
}

TEST(ConsoleLogger, PrintsOnlyUpToTheLevelOnBothStreams)
{
    quelt_log_init("console", 6, LOG_MAIL, 0, "test");
    CaptureFd out(1), err(2);
    quelt_log(12, "quiet %s", "one");
    quelt_log(3, "loud %s", "two");
    EXPECT_EQ(err.text(), "loud two\n");
    EXPECT_EQ(out.text(), "loud two\n");
}

}  // namespace
