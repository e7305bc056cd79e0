// ExecCmd: the command line as text, the exact failure report and its exception type, and
// the outputs of a successful run.
#include <gtest/gtest.h>

#include "runtime/demangle.h"
#include "services/exec_cmd.h"

namespace {

struct Trail : quelt::ExInfoVisitor {
    std::string tag, id, function, file;
    int line = 0, code = 0;
    void visitTag(const std::string& s) override { tag = s; }
    void visitId(const std::string& s) override { id = s; }
    void visitText(const std::string&) override {}
    void visitFunction(const std::string& s) override { function = s; }
    void visitFile(const std::string& s) override { file = s; }
    void visitLine(int n) override { line = n; }
    void enterIncluded() override {}
    void visitCode(int n) override { code = n; }
};

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
        EXPECT_STREQ(e.what(), "Execution of /bin/sh -c printf\\ x\\;\\ exit\\ 3 failed with return "
                               "code 3.\nStdout is\nx\n");
        EXPECT_EQ(quelt::demangledTypeName(typeid(e)), "quelt::Exc<&quelt::ExecCmd::Failed>");
        Trail trail;
        e.accept(trail);
        EXPECT_EQ(trail.tag, "ExecCmd::ExFailed");
        EXPECT_EQ(trail.function, "void quelt::ExecCmd::reportError() const");
        EXPECT_EQ(trail.line, 63);
        EXPECT_EQ(trail.code, 3);
        EXPECT_EQ(trail.id.size(), 36u);
    }
}

TEST(ExecCmd, FailureReportWithAllThreeStreams)
{
    quelt::ExecCmd cmd("/bin/sh");
    cmd << "-c" << "cat; echo 'no such table' >&2; exit 1" << "";
    cmd.setStdin("key value\n%1% 100%");
    try {
        cmd.exec();
        FAIL() << "exit 1 did not throw";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(),
                     "Execution of /bin/sh -c cat\\;\\ echo\\ \\'no\\ such\\ table\\'\\ \\>\\&2\\;\\ exit\\ 1 "
                     "'' failed with return code 1.\n"
                     "Stdin is\nkey value\n%1% 100%\n"
                     "Stdout is\nkey value\n%1% 100%\n"
                     "Stderr is\nno such table\n");
    }
}

TEST(ExecCmd, SuccessKeepsTheOutputsAndTheEnvironment)
{
    quelt::ExecCmd cmd("sh");
    cmd << "-c" << "printf '%s' \"$GREETING\"; printf warn >&2";
    cmd.setEnv("GREETING", "first");
    cmd.setEnv("GREETING", "hello");
    EXPECT_FALSE(cmd.executed());
    EXPECT_EQ(cmd.exec(), 0);
    EXPECT_TRUE(cmd.executed());
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
