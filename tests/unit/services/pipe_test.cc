// Pipelines against real children: input fed and outputs drained at once, statuses and exit
// callbacks, misuse refused with the exact texts, and nothing leaked over many runs.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "services/process/pipe.h"
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
    // Feeds `lines` through standard input, one per provider call; the last call says "no more".
    void feed(const std::vector<std::string>& lines)
    {
        pipe.stdinFd = NewPipe;
        pipe.stdinProvider = [&lines, next = std::size_t{0}](std::vector<char>& buffer) mutable {
            buffer.insert(buffer.end(), lines[next].begin(), lines[next].end());
            return ++next < lines.size();
        };
    }
};

TEST(Pipe, FeedsAHundredKilobytesAndDrainsBothOutputs)
{
    std::vector<std::string> chunks;
    std::string input;
    for (int i = 0; input.size() < 100 * 1024; ++i) {
        chunks.push_back(std::to_string(i) + "\n" + std::string(i % 7000, 'x') + "\n");
        input += chunks.back();
    }
    Collected cat{StageParameters("cat")};
    cat.feed(chunks);
    EXPECT_EQ(cat.pipe.run(), 0);
    EXPECT_TRUE(cat.out == input) << cat.out.size() << " of " << input.size() << " bytes";

    Collected both{StageParameters("/bin/sh", "-c", "yes out | head -c 300000 & yes err | head -c 300000 >&2; wait")};
    EXPECT_EQ(both.pipe.run(), 0);
    EXPECT_EQ(both.out.size(), 300000u);
    EXPECT_EQ(both.err.size(), 300000u);
    EXPECT_EQ(both.err.substr(0, 8), "err\nerr\n");
}

TEST(Pipe, ChainsStagesAndReportsEachEnd)
{
    Pipe pipe;
    std::string out;
    std::vector<std::pair<unsigned, int>> ends;
    pipe.append(StageParameters("printf", "b\\na\\nc\\n"));
    pipe.append(StageParameters("sort", "-r"));
    pipe.append(StageParameters("/bin/sh", "-c", "cat; exit 3"));
    pipe.stdoutDisposition = NewPipe;
    pipe.stdoutReceiver = makeStringReceiver(out);
    pipe.exitCallback = [&](unsigned index, int status) { ends.emplace_back(index, status); };
    const int status = pipe.run();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(out, "c\nb\na\n");
    ASSERT_EQ(ends.size(), 3u);
    ASSERT_EQ(pipe.statuses().size(), 3u);
    for (const auto& [index, waitStatus] : ends)
        EXPECT_EQ(pipe.statuses()[index].status, waitStatus);

    Collected killed{StageParameters("/bin/sh", "-c", "kill -9 $$")};
    const int signalled = killed.pipe.run();
    ASSERT_TRUE(WIFSIGNALED(signalled));
    EXPECT_EQ(WTERMSIG(signalled), SIGKILL);
}

TEST(Pipe, PathsWithADotOrSlashAreNotSearchedAndArgumentsEndAtAnEmptyOne)
{
    const std::pair<const char*, const char*> cases[] = {{"./true", "execv: No such file or directory"},
                                                         {"/no/such/true", "execv: No such file or directory"},
                                                         {"no-such-program-here", "execvp: No such file or directory"}};
    for (const auto& [path, want] : cases) {
        Collected run{StageParameters(path)};
        EXPECT_EQ(thrownWhat<quelt::SystemError>([&] { run.pipe.run(); }), want) << path;
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a failed launch leaves a child behind";
    StageParameters relative("./sh", "-c", "pwd");
    relative.workingDirectory = "/usr/bin";
    Collected run{relative};
    EXPECT_EQ(run.pipe.run(), 0);
    EXPECT_EQ(run.out, "/usr/bin\n");

    EXPECT_EQ(StageParameters("postconf", "-h", "", "ignored").args, (std::vector<std::string>{"postconf", "-h"}));
    EXPECT_EQ(StageParameters("").args, (std::vector<std::string>{""}));
}

TEST(Pipe, NonblockWriteTakesWhatAFullPipeHasRoomFor)
{
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
    const std::vector<char> block(1 << 20, 'z');
    std::size_t total = 0;
    EXPECT_EQ(thrownWhat<quelt::SystemError>([&] {
                  for (int i = 0; i < 100; ++i)
                      total += nonblock_write(fds[1], block.data(), block.size());
              }),
              std::string("write: ") + std::strerror(EAGAIN));
    EXPECT_GT(total, 0u);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(Pipe, AThousandRunsLeakNeitherDescriptorsNorChildren)
{
    struct sigaction before {}, after {};
    ::sigaction(SIGCHLD, nullptr, &before);
    const int fds = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        Collected run{StageParameters("/bin/true")};
        ASSERT_EQ(run.pipe.run(), 0);
    }
    EXPECT_EQ(openDescriptors(), fds);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    ::sigaction(SIGCHLD, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler) << "the SIGCHLD action was not restored";
    sigset_t mask;
    ::sigprocmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_FALSE(sigismember(&mask, SIGCHLD));
}

}  // namespace
