// The error stream (which stream gets which text, and the system error appended, are the
// attachment scenario's).
#include <cerrno>

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

}  // namespace
