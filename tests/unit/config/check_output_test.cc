// Classification of Postfix diagnostics into errors and harmless notes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/maincf/check_output.h"

namespace {

// Whether Postfix's output is clean (the callers never count warnings as errors).
TEST(CheckOutput, SeverityWordAfterProgramName)
{
    struct Case {
        std::string text;
        bool clean;
    };
    const std::vector<Case> cases = {
        {"", true},
        {"postconf: fatal: bad value", false},
        {"postmap: fatal: open x: No such file", false},
        {"postmap: panic: y", false},
        {"postmap: error: z", false},
        {"postmap:   fatal: spaces before the word", false},
        {"postconf: warning: nosuchparam: unknown parameter\n", true},
        {"postconf: notice: x", true},
        {"fatal: x", true},
        {"postmap: fatal", true},
        {"postmap:", true},
        {"postmap: fatalx: y", true},
        {"postmap: \tfatal: tab is not skipped", true},
        {"postmap: Fatal: case matters", true},
        {"first line\npostmap: warning: w\npostmap: fatal: f\n", false},
        {"postmap: warning: a\n\npostmap: notice: b", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(quelt::mail::postfix::checkOutput(c.text, false), c.clean) << c.text;
}

}  // namespace
