// ExecCmd: the command line as text, the exact failure report and its exception type, and
// the outputs of a successful run.
#include <gtest/gtest.h>

#include "runtime/demangle.h"
#include "services/process/exec_cmd.h"
#include "support/capture.h"

namespace {

TEST(ExecCmd, CommandLineQuotesEachWord)
{
    quelt::ExecCmd postconf("postconf");
    postconf << "-h" << "";
    EXPECT_EQ(postconf.getString(), "postconf -h ''");
    quelt::ExecCmd odd("/usr/sbin/postmap");
    odd << "a b" << "x;y" << "line\nfeed" << "$HOME" << "ünï";
    EXPECT_EQ(odd.getString(), "/usr/sbin/postmap a\\ b x\\;y line'\n'feed \\$HOME ünï");
}

TEST(ExecCmd, FailureReportShowsOnlyTheStreamsThatHaveText)
{
    quelt::ExecCmd cmd("/bin/sh");
    cmd << "-c" << "printf x; exit 3";
    try {
        cmd.exec();
        FAIL() << "exit 3 did not throw";
    } catch (const quelt::Exc<&quelt::ExecCmd::Failed>& e) {
        const std::string report = "Execution of /bin/sh -c printf\\ x\\;\\ exit\\ 3 failed with return code 3.\n"
                                   "Stdout is\nx\n";
        EXPECT_EQ(e.what(), report);
        EXPECT_EQ(quelt::demangledTypeName(typeid(e)), "quelt::Exc<&quelt::ExecCmd::Failed>");
    }

    quelt::ExecCmd all("/bin/sh");
    all << "-c" << "cat; echo 'no such table' >&2; exit 1" << "";
    all.setStdin("key value\n%1% 100%");
    EXPECT_EQ(thrownWhat<std::exception>([&] { all.exec(); }),
              "Execution of /bin/sh -c cat\\;\\ echo\\ \\'no\\ such\\ table\\'\\ \\>\\&2\\;\\ exit\\ 1 "
              "'' failed with return code 1.\n"
              "Stdin is\nkey value\n%1% 100%\n"
              "Stdout is\nkey value\n%1% 100%\n"
              "Stderr is\nno such table\n");
}

TEST(ExecCmd, SuccessKeepsTheOutputsAndTheEnvironment)
{
    quelt::ExecCmd cmd("sh");
    cmd << "-c" << "printf '%s' \"$GREETING\"; printf warn >&2";
    cmd.setEnv("GREETING", "first");
    cmd.setEnv("GREETING", "hello");
    EXPECT_EQ(cmd.exec(), 0);
    EXPECT_TRUE(cmd.finished());
    EXPECT_EQ(cmd.getStdout(), "hello");
    EXPECT_EQ(cmd.getStderr(), "warn");
}

TEST(ExecCmd, NoThrowFormReportsOnlyByTheCode)
{
    quelt::ExecCmd cmd("/bin/sh");
    cmd << "-c" << "exit 9";
    EXPECT_EQ(cmd.exec(std::nothrow), 9);
    EXPECT_EQ(cmd.getReturnCode(), 9);
    quelt::ExecCmd missing("/nonexistent/postmap");
    EXPECT_EQ(missing.exec(std::nothrow), 1);
    EXPECT_EQ(missing.getStderr().rfind("forkExecvPipes: execv() failed: No such file or directory\n", 0), 0u);
}

}  // namespace
