// Pipelines against real children: input fed and outputs drained at once, statuses and exit
// callbacks, misuse refused with the exact texts, and nothing leaked over many runs.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "services/pipe.h"

namespace {

using namespace quelt::process;

int openDescriptors()
{
    int count = 0;
    DIR* dir = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(dir))
        count += entry->d_name[0] != '.';
    ::closedir(dir);
    return count;
}

// A one-stage pipe with both outputs collected into strings.
struct Collected {
    Pipe pipe;
    std::string out;
    std::string err;

    explicit Collected(const StageParameters& stage)
    {
        pipe.append(stage);
        pipe.stdoutDisposition = NewPipe;
        pipe.stdoutReceiver = makeStringReceiver(out);
        pipe.stderrDisposition = NewPipe;
        pipe.stderrReceiver = makeStringReceiver(err);
    }
};

std::string logicError(const std::function<void()>& body)
{
    try {
        body();
    } catch (const std::logic_error& e) {
        return e.what();
    }
    return "no std::logic_error";
}

TEST(Pipe, FeedsAHundredKilobytesAndGetsThemBack)
{
    std::string input;
    for (int i = 0; input.size() < 100 * 1024; ++i)
        input += std::to_string(i) + "\n";
    Collected run{StageParameters("cat")};
    std::size_t given = 0;
    run.pipe.stdinFd = NewPipe;
    run.pipe.stdinProvider = [&](std::vector<char>& buffer) {
        if (given == input.size())
            return false;
        const std::size_t n = std::min<std::size_t>(7000, input.size() - given);
        buffer.assign(input.begin() + given, input.begin() + given + n);
        given += n;
        return true;
    };
    EXPECT_EQ(run.pipe.run(), 0);
    EXPECT_EQ(run.out.size(), input.size());
    EXPECT_TRUE(run.out == input);
}

TEST(Pipe, WritesTheChunkOfTheProvidersLastCall)
{
    // A record producer fills one line per call and answers "no more" with the last one.
    const std::vector<std::string> lines{"a 1\n", "b 2\n", "c 3\n"};
    Collected run{StageParameters("cat")};
    std::size_t next = 0;
    run.pipe.stdinFd = NewPipe;
    run.pipe.stdinProvider = [&](std::vector<char>& buffer) {
        buffer.insert(buffer.end(), lines[next].begin(), lines[next].end());
        return ++next < lines.size();
    };
    EXPECT_EQ(run.pipe.run(), 0);
    EXPECT_EQ(run.out, "a 1\nb 2\nc 3\n");
}

TEST(Pipe, DrainsBothOutputsBeyondAPipeBuffer)
{
    Collected run{StageParameters("/bin/sh", "-c",
                                  "yes out | head -c 300000 & yes err | head -c 300000 >&2; wait")};
    EXPECT_EQ(run.pipe.run(), 0);
    EXPECT_EQ(run.out.size(), 300000u);
    EXPECT_EQ(run.err.size(), 300000u);
    EXPECT_EQ(run.err.substr(0, 8), "err\nerr\n");
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
    EXPECT_TRUE(pipe.statuses()[0].finished);
}

TEST(Pipe, ASignalledStageGivesItsWaitStatus)
{
    Collected run{StageParameters("/bin/sh", "-c", "kill -9 $$")};
    const int status = run.pipe.run();
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST(Pipe, PathsWithADotOrSlashAreNotSearched)
{
    const struct {
        const char* path;
        const char* call;
    } cases[] = {{"./true", "execv"}, {"/no/such/true", "execv"}, {"no-such-program-here", "execvp"}};
    for (const auto& c : cases) {
        Collected run{StageParameters(c.path)};
        try {
            run.pipe.run();
            ADD_FAILURE() << c.path << " ran";
        } catch (const quelt::SystemError& e) {
            EXPECT_EQ(e.message(), c.call) << c.path;
            EXPECT_EQ(e.code(), ENOENT) << c.path;
        }
    }
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a failed launch leaves a child behind";
    StageParameters relative("./sh", "-c", "pwd");
    relative.workingDirectory = "/usr/bin";
    Collected run{relative};
    EXPECT_EQ(run.pipe.run(), 0);
    EXPECT_EQ(run.out, "/usr/bin\n");
}

TEST(Pipe, StageArgumentsEndAtTheFirstEmptyOne)
{
    EXPECT_EQ(StageParameters("postconf", "-h", "", "ignored").args,
              (std::vector<std::string>{"postconf", "-h"}));
    EXPECT_EQ(StageParameters("").args, (std::vector<std::string>{""}));
    EXPECT_EQ(StageParameters("0", "1", "2", "3", "4", "5", "6", "7", "8", "9").args.size(), 10u);
}

TEST(Pipe, MisuseIsRefusedWithItsOwnWords)
{
    Pipe empty;
    EXPECT_EQ(logicError([&] { empty.run(); }), "No processes to launch were assigned so far");
    Pipe pipe;
    pipe.append(StageParameters("/bin/true"));
    EXPECT_EQ(pipe.run(), 0);
    EXPECT_EQ(logicError([&] { pipe.run(); }), "the pipe has been launched already");
    EXPECT_EQ(logicError([&] { pipe.append(StageParameters("/bin/true")); }),
              "adding processes to the launched pipe is prohibited");

    ProcessSetCatcher first;
    first.install();
    ProcessSetCatcher second;
    EXPECT_EQ(logicError([&] { second.install(); }),
              "ProcessSetCatcher instance has been installed already");
    EXPECT_EQ(logicError([&] { Pipe p; p.append(StageParameters("/bin/true")); p.run(); }),
              "ProcessSetCatcher instance has been installed already");
    EXPECT_THROW(first.status(1), std::out_of_range);
    first.remove(false);
    second.install();
    second.remove(false);
}

TEST(Pipe, CatcherRefusesToGoWhileAChildRuns)
{
    ProcessSetCatcher catcher;
    catcher.install();
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    catcher.add(child);
    EXPECT_EQ(logicError([&] { catcher.remove(false); }), "there're some child processes still running");
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST(Pipe, NonblockWriteTakesWhatAFullPipeHasRoomFor)
{
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_NONBLOCK), 0);
    const std::vector<char> block(1 << 20, 'z');
    std::size_t total = 0;
    try {
        for (int i = 0; i < 100; ++i)
            total += nonblock_write(fds[1], block.data(), block.size());
        ADD_FAILURE() << "a pipe took " << total << " bytes";
    } catch (const quelt::SystemError& e) {
        EXPECT_EQ(e.message(), "write");
        EXPECT_EQ(e.code(), EAGAIN);
    }
    EXPECT_GT(total, 0u);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(Pipe, AThousandRunsLeakNeitherDescriptorsNorChildren)
{
    struct sigaction before {};
    ::sigaction(SIGCHLD, nullptr, &before);
    const int fds = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        Collected run{StageParameters("/bin/true")};
        ASSERT_EQ(run.pipe.run(), 0);
    }
    EXPECT_EQ(openDescriptors(), fds);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    struct sigaction after {};
    ::sigaction(SIGCHLD, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler) << "the SIGCHLD action was not restored";
    sigset_t mask;
    ::sigprocmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_FALSE(sigismember(&mask, SIGCHLD));
}

}  // namespace
