// The launcher against real child processes: whole streams, exit codes, signals, start
// failures, user switch, and no descriptors or children left behind.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "runtime/launch.h"
#include "support/io.h"

namespace {

struct Outcome {
    int code;
    std::string out, err;
};

Outcome run(const ArgList& args, const std::string& in = "", const EnvMap& env = {}, const std::string& user = "")
{
    Outcome r{};
    r.code = forkExecvGetInOutErrSuidEnv(in, r.out, r.err, args[0], args, user, env);
    return r;
}

Outcome sh(const std::string& script) { return run({"/bin/sh", "-c", script}); }

TEST(Launch, EchoesAHundredKilobytesWholeAndDrainsBothStreams)
{
    std::string input;
    for (int i = 0; input.size() < 100 * 1024; ++i)
        input += "line " + std::to_string(i) + "\n";
    Outcome r = run({"/bin/cat"}, input);
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.out == input) << r.out.size() << " of " << input.size() << " bytes";
    EXPECT_EQ(r.err, "");

    // Both writers run at once, so each blocks on a full pipe unless both are drained.
    r = sh("yes out | head -c 300000 & yes err | head -c 300000 >&2; wait");
    EXPECT_EQ(r.code, 0);
    ASSERT_EQ(r.out.size(), 300000u);
    ASSERT_EQ(r.err.size(), 300000u);
    EXPECT_EQ(r.out.substr(0, 8), "out\nout\n");
    EXPECT_EQ(r.err.substr(299992), "err\nerr\n");
}

TEST(Launch, ExitCodesAndSignals)
{
    EXPECT_EQ(sh("exit 7").code, 7);
    EXPECT_EQ(sh("exit 255").code, 255);
    EXPECT_EQ(sh("kill -9 $$").code, -1);
    EXPECT_EQ(sh("kill -TERM $$").code, -1);
    EXPECT_EQ(run({"/bin/true"}, std::string(1 << 20, 'x')).code, 0) << "a child that reads nothing";
}

TEST(Launch, SearchesPathSetsTheEnvironmentAndSwitchesUser)
{
    const Outcome r = run({"printenv", "MAILRIG_TEST", "HOME"}, "", {{"MAILRIG_TEST", "a b"}, {"HOME", "/x"}});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "a b\n/x\n");
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to switch users";
    EXPECT_EQ(run({"/usr/bin/id", "-u"}, "", {}, "nobody").out, "65534\n");
    const Outcome bad = run({"/usr/bin/id", "-u"}, "", {}, "no-such-user-here");
    EXPECT_EQ(bad.code, 1);
    EXPECT_EQ(bad.err, "Fatal error: quelt::SystemError(forkExecvPipes: p_setuid() to "
                       "'no-such-user-here' failed: No such file or directory)\n");
}

TEST(Launch, ChildCollectedElsewhereGivesMinusOneWithoutHanging)
{
    // With SIGCHLD ignored the kernel reaps the child itself; the wait then sees ECHILD.
    struct sigaction ignore {}, saved {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGCHLD, &ignore, &saved);
    const Outcome r = sh("echo done");
    const int error = errno;
    ::sigaction(SIGCHLD, &saved, nullptr);
    EXPECT_EQ(r.code, -1);
    EXPECT_EQ(error, ECHILD);
    EXPECT_EQ(r.out, "done\n");
}

TEST(Launch, LeavesNoDescriptorsOrChildrenBehind)
{
    run({"/bin/true"});
    const int before = openDescriptors();
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(run({"/bin/true"}, "in").code, 0);
    run({"/nonexistent"});
    sh("kill -9 $$");
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Launch, ReadAndWriteHelpersStopWhenThePipeWould)
{
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
    std::string text(1 << 20, 'y');
    writeFromString(fds[1], text);
    EXPECT_GT(text.size(), 0u) << "a pipe does not take a megabyte";
    std::string got;
    EXPECT_EQ(readToString(fds[0], got), 1);
    EXPECT_EQ(got.size(), (1u << 20) - text.size());
    ::close(fds[1]);
    EXPECT_EQ(readToString(fds[0], got), 0);
    ::close(fds[0]);
}

}  // namespace
