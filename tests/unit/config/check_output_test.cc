// Classification of Postfix diagnostics into errors and harmless notes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/maincf/check_output.h"

namespace {

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

TEST(CheckOutput, StrictAlsoRejectsWarnings)
{
    EXPECT_FALSE(quelt::mail::postfix::checkOutput("postconf: warning: w", true));
    EXPECT_TRUE(quelt::mail::postfix::checkOutput("postconf: notice: n", true));
    EXPECT_FALSE(quelt::mail::postfix::checkOutput("postconf: fatal: f", true));
}

}  // namespace
