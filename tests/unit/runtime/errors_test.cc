// Exception types: which class a code throws, and the texts the panel ends up reading.
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "runtime/traceable.h"
#include "support/capture.h"
#include "support/trail.h"

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

TEST(SystemError, SelectedCodesHaveTheirOwnType)
{
    EXPECT_THROW(quelt::throwSystemError("x", EPERM), quelt::ExSystemError<EPERM>);
    EXPECT_THROW(quelt::throwSystemError("x", ENOENT), quelt::ExSystemError<ENOENT>);
    EXPECT_THROW(quelt::throwSystemError("x", EINTR), quelt::ExSystemError<EINTR>);
    EXPECT_THROW(quelt::throwSystemError("x", ECHILD), quelt::ExSystemError<ECHILD>);
    EXPECT_EQ(thrownWhat<quelt::SystemError>([] { quelt::throwSystemError("lock() failed", EAGAIN); }),
              std::string("lock() failed: ") + std::strerror(EAGAIN));
    EXPECT_STREQ(quelt::SystemError("", EACCES).what(), std::strerror(EACCES)) << "empty message";
}

quelt::ExTag kTestTag;

TEST(Traceable, FormatsVisitsAndCopiesTheIncludedException)
{
    quelt::Exc<&kTestTag> inner("Inner", "inner %1%", 1, "f()", "a.cc", 7);
    inner % 5;
    quelt::Exc<&kTestTag> outer("Outer", "failed with %1%.\n%2%", 3, "g()", "b.cc", 63);
    outer % 2 % "Stdout is\nx\n";
    outer.include(inner);
    EXPECT_STREQ(outer.what(), "failed with 2.\nStdout is\nx\n");

    std::unique_ptr<Cloneable> copy(outer.clone());
    RecordingVisitor visitor;
    dynamic_cast<const quelt::ExVisitable&>(*copy).accept(visitor);
    EXPECT_EQ(visitor.trail,
              "fn:g();file:b.cc;line:63;tag:Outer;id:36;code:3;text:failed with 2.\nStdout is\nx\n;"
              "in;fn:f();file:a.cc;line:7;tag:Inner;id:36;code:1;text:inner 5;");
    EXPECT_NE(outer.id(), inner.id());
}

}  // namespace
