// The dispatcher and the last-resort report, driven through a test command table.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "front/dispatch/dispatcher.h"
#include "runtime/report.h"
#include "runtime/errors.h"
#include "runtime/traceback.h"
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

struct TracedError : std::runtime_error, quelt::Traceback {
    TracedError() : std::runtime_error("traced") {}
};

TEST(Report, AnExceptionCarryingATracebackPrintsItAfterTheLine)
{
    const auto r = runInChild([] {
        quelt::reportException(TracedError());
        return 0;
    });
    EXPECT_EQ(r.err.rfind("Fatal error: (anonymous namespace)::TracedError(traced)\nTraceback:\n\t", 0), 0u) << r.err;
    // Symbol lines are demangled: the test binary's own functions show with their signatures.
    EXPECT_NE(r.err.find("runInChild"), std::string::npos) << r.err;
}

}  // namespace
