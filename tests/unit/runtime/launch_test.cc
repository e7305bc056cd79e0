// The launcher against real child processes: whole streams, exit codes, signals, and no
// descriptors or children left behind.
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

Outcome run(const ArgList& args, const std::string& in = "")
{
    Outcome r{};
    r.code = forkExecvGetInOutErrSuidEnv(in, r.out, r.err, args[0], args, "", {});
    return r;
}

Outcome sh(const std::string& script) { return run({"/bin/sh", "-c", script}); }

TEST(Launch, FeedsAndDrainsBigStreamsWhole)
{
    std::string input;
    for (int i = 0; input.size() < 100 * 1024; ++i)
        input += "line " + std::to_string(i) + "\n";
    Outcome r = run({"/bin/cat"}, input);
    EXPECT_EQ(r.code, 0);
    EXPECT_TRUE(r.out == input) << r.out.size() << " of " << input.size() << " bytes";

    // Both writers run at once, so each blocks on a full pipe unless both are drained.
    r = sh("yes out | head -c 300000 & yes err | head -c 300000 >&2; wait");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out.size(), 300000u);
    EXPECT_EQ(r.err.size(), 300000u);
    EXPECT_EQ(run({"/bin/true"}, std::string(1 << 20, 'x')).code, 0) << "a child that reads nothing";
}

TEST(Launch, ExitCodesAndSignals)
{
    EXPECT_EQ(sh("exit 7").code, 7);
    EXPECT_EQ(sh("kill -9 $$").code, -1);
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

}  // namespace
