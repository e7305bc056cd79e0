// A system error without a code of its own: errno names it, but it stays the plain type.
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "runtime/errors.h"

namespace {

TEST(SystemError, CodeZeroTakesErrnoButStaysPlain)
{
    errno = ENOENT;
    try {
        quelt::throwSystemError("open", 0);
    } catch (const quelt::ExSystemError<ENOENT>&) {
        FAIL() << "code 0 must not pick the ENOENT type";
    } catch (const quelt::SystemError& e) {
        EXPECT_EQ(e.code(), ENOENT);
        EXPECT_EQ(std::string(e.what()), std::string("open: ") + std::strerror(ENOENT));
    }
}

}  // namespace
