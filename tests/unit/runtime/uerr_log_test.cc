// The error stream and the two loggers: which text reaches which stream, and when (the system
// error appended, on both streams, is the attachment scenario's).
#include <syslog.h>

#include <cerrno>
#include <cstdio>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "runtime/log.h"
#include "runtime/uerr.h"

namespace {

// A message longer than any first guess at its size arrives whole.
TEST(Messlog2, CutsNothing)
{
    CaptureFd out(1);
    errno = 0;
    const std::string big(10000, 'q');
    messlog2(0, 0, "%s", big.c_str());
    EXPECT_EQ(out.text(), big + "\n");
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
