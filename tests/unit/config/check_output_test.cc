// Classification of Postfix diagnostics into errors and harmless notes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/maincf/check_output.h"

namespace {

// Whether Postfix's output is clean, without and with strict (warnings are errors) checking.
TEST(CheckOutput, SeverityWordAfterProgramName)
{
    struct Case {
        std::string text;
        bool clean, strictClean;
    };
    const std::vector<Case> cases = {
        {"", true, true},
        {"postconf: fatal: bad value", false, false},
        {"postmap: fatal: open x: No such file", false, false},
        {"postmap: panic: y", false, false},
        {"postmap: error: z", false, false},
        {"postmap:   fatal: spaces before the word", false, false},
        {"postconf: warning: nosuchparam: unknown parameter\n", true, false},
        {"postconf: notice: x", true, true},
        {"fatal: x", true, true},
        {"postmap: fatal", true, true},
        {"postmap:", true, true},
        {"postmap: fatalx: y", true, true},
        {"postmap: \tfatal: tab is not skipped", true, true},
        {"postmap: Fatal: case matters", true, true},
        {"first line\npostmap: warning: w\npostmap: fatal: f\n", false, false},
        {"postmap: warning: a\n\npostmap: notice: b", true, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(quelt::mail::postfix::checkOutput(c.text, false), c.clean) << c.text;
        EXPECT_EQ(quelt::mail::postfix::checkOutput(c.text, true), c.strictClean) << c.text;
    }
}

}  // namespace
