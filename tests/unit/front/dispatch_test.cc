// The dispatcher and the last-resort report, driven through a test command table.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "front/dispatch/dispatcher.h"
#include "runtime/report.h"
#include "runtime/errors.h"
#include "support/child.h"

namespace mc = quelt::mail::postfix::mailrig_commands;

namespace {

int throwsSystemError(int, char*[])
{
    quelt::throwSystemError("lock() failed", EAGAIN);
}

int throwsInt(int, char*[])
{
    throw 42;
}

ChildResult runTable(std::vector<std::string> words)
{
    const mc::CommandTable table{{"--sys", throwsSystemError}, {"--int", throwsInt}};
    return runInChild([&] {
        std::vector<char*> argv{const_cast<char*>("mailrig")};
        for (auto& w : words)
            argv.push_back(w.data());
        return quelt::runReportingExceptions(
            [&] { return mc::dispatch(table, static_cast<int>(argv.size()), argv.data()); });
    });
}

TEST(Dispatch, EscapingExceptionsAreReportedOnBothStreams)
{
    struct Case {
        const char* word;
        int status;
        std::string report;
    };
    const Case cases[] = {
        {"--sys", 1,
         std::string("Fatal error: quelt::ExSystemError<11>(lock() failed: ") + std::strerror(EAGAIN) + ")\n"},
        {"--int", 2, "UNSPECIFIED ERROR OCCURED\n"},
    };
    for (const auto& c : cases) {
        const auto r = runTable({c.word});
        EXPECT_EQ(r.status, c.status) << c.word;
        EXPECT_EQ(r.err, c.report) << c.word;
        EXPECT_EQ(r.out, c.report) << c.word;
    }
}

}  // namespace
