// Pipelines and single children against real programs: input fed and outputs drained at once,
// statuses, set-up failures coming back typed, the failure report of a command, and nothing
// leaked over many runs.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "services/process/exec_cmd.h"
#include "services/process/pipe.h"
#include "services/process/process_launch.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

using namespace quelt::process;

// A one-stage pipe with both outputs collected into strings.
struct Collected {
    Pipe pipe;
    std::string out, err;

    explicit Collected(const StageParameters& stage)
    {
        pipe.append(stage);
        pipe.stdoutDisposition = pipe.stderrDisposition = NewPipe;
        pipe.stdoutReceiver = makeStringReceiver(out);
        pipe.stderrReceiver = makeStringReceiver(err);
    }
};

TEST(Pipe, FeedsAHundredKilobytesInPiecesAndDrainsBothOutputs)
{
    std::vector<std::string> chunks;
    std::string input;
    for (int i = 0; input.size() < 100 * 1024; ++i) {
        chunks.push_back(std::to_string(i) + "\n" + std::string(i % 7000, 'x') + "\n");
        input += chunks.back();
    }
    Collected cat{StageParameters("cat")};
    cat.pipe.stdinFd = NewPipe;
    cat.pipe.stdinProvider = [&chunks, next = std::size_t{0}](std::vector<char>& buffer) mutable {
        buffer.insert(buffer.end(), chunks[next].begin(), chunks[next].end());
        return ++next < chunks.size();
    };
    EXPECT_EQ(cat.pipe.run(), 0);
    EXPECT_TRUE(cat.out == input) << cat.out.size() << " of " << input.size() << " bytes";

    Collected both{StageParameters("/bin/sh", "-c", "yes out | head -c 300000 & yes err | head -c 300000 >&2; wait")};
    EXPECT_EQ(both.pipe.run(), 0);
    EXPECT_EQ(both.out.size(), 300000u);
    EXPECT_EQ(both.err.size(), 300000u);
}

TEST(Pipe, AThousandRunsAndFailedStartsLeakNeitherDescriptorsNorChildren)
{
    struct sigaction before {}, after {};
    ::sigaction(SIGCHLD, nullptr, &before);
    const int fds = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        Collected run{StageParameters("/bin/true")};
        ASSERT_EQ(run.pipe.run(), 0);
    }
    // Every stage the product runs names its program by an absolute path.
    Collected missing{StageParameters("/no/such/true")};
    const std::string what = thrownWhat<quelt::SystemError>([&] { missing.pipe.run(); });
    EXPECT_EQ(what, "execv: No such file or directory");
    EXPECT_EQ(openDescriptors(), fds);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    ::sigaction(SIGCHLD, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler) << "the SIGCHLD action was not restored";
}

// A descriptor the caller holds without close-on-exec never reaches a stage (mailrig also marks
// inherited ones at start; this guard holds without that): ls sees the standard streams and
// its own folder.
TEST(Pipe, AStageStartsWithTheStandardStreamsAlone)
{
    const int inherited = ::open("/etc/hostname", O_RDONLY);
    ASSERT_GE(inherited, 3);
    Collected ls{StageParameters("/bin/ls", "/proc/self/fd")};
    EXPECT_EQ(ls.pipe.run(), 0);
    ::close(inherited);
    EXPECT_EQ(ls.out, "0\n1\n2\n3\n");
}

// What waitExec() throws for a child that fails before its exec, and the status it exits with.
// No product stage runs a hook before exec: only the working directory can fail there.
std::string launchFailure(const std::string& cwd)
{
    std::string path = "/bin/true";
    char* argv[] = {path.data(), nullptr};
    ProcessLaunch child(argv, path, cwd, nullptr, false, false, false, {}, -3, -3, -3);
    std::string what = "none";
    try {
        child.waitExec();
    } catch (const quelt::SystemError& e) {
        what = "SystemError:" + e.message() + " " + std::to_string(e.code());
    }
    const int status = child.waitExit();
    return what + " " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

TEST(ProcessLaunch, SetUpFailuresInTheChildComeBackTyped)
{
    EXPECT_EQ(launchFailure("/nonexistent/dir"), "SystemError:cwd chdir 2 67");
    EXPECT_EQ(launchFailure(""), "none 0");
}

TEST(ExecCmd, FailureReportShowsTheQuotedLineAndOnlyTheStreamsWithText)
{
    quelt::ExecCmd cmd("/bin/sh");
    cmd << "-c" << "printf x; exit 3";
    EXPECT_EQ(thrownWhat<quelt::Exc<&quelt::ExecCmd::Failed>>([&] { cmd.exec(); }),
              "Execution of /bin/sh -c printf\\ x\\;\\ exit\\ 3 failed with return code 3.\n"
              "Stdout is\nx\n");

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

}  // namespace
