// One child: failures between fork and exec come back as the parent's exceptions, with the
// matching exit status; invalid stream codes are refused before anything starts.
#include <sys/wait.h>

#include <cerrno>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "services/process/process_launch.h"
#include "support/capture.h"

namespace {

using quelt::process::ProcessLaunch;

struct Argv {
    std::vector<std::string> words;
    std::vector<char*> pointers;
    explicit Argv(std::vector<std::string> w) : words(std::move(w))
    {
        for (auto& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
    }
    char* const* get() { return pointers.data(); }
};

struct Failure {
    std::string type;
    std::string what;
    int code = 0;
    int exitStatus = -1;
};

Failure launchAndFail(const std::string& path, bool searchPath, char* const* envp,
                      const std::string& cwd, const std::function<void()>& hook)
{
    Argv argv({path});
    ProcessLaunch child(argv.get(), path, cwd, envp, false, searchPath, false, hook, -3, -3, -3);
    Failure f;
    try {
        child.waitExec();
        f.type = "none";
    } catch (const quelt::SystemError& e) {
        f.type = "SystemError:" + e.message();
        f.code = e.code();
    } catch (const std::runtime_error& e) {
        f.type = "runtime_error";
        f.what = e.what();
    } catch (const std::bad_exception&) {
        f.type = "bad_exception";
    } catch (const std::exception&) {
        f.type = "exception";
    }
    const int status = child.waitExit();
    f.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return f;
}

TEST(ProcessLaunch, AMissingProgramIsASystemErrorOfTheExecCallAndStatus67)
{
    char env0[] = "A=1";
    char* envp[] = {env0, nullptr};
    const struct {
        const char* path;
        bool searchPath;
        char* const* envp;
        const char* want;
    } cases[] = {
        {"/nonexistent/program", false, nullptr, "SystemError:execv"},
        {"no-such-program-anywhere", true, nullptr, "SystemError:execvp"},
        {"/nonexistent/program", false, envp, "SystemError:execve"},
    };
    for (const auto& c : cases) {
        const Failure f = launchAndFail(c.path, c.searchPath, c.envp, "", {});
        EXPECT_EQ(f.type, c.want) << c.path;
        EXPECT_EQ(f.code, ENOENT) << c.path;
        EXPECT_EQ(f.exitStatus, 67) << c.path;
    }
}

TEST(ProcessLaunch, SetUpFailuresInTheChildComeBackTyped)
{
    const struct {
        const char* cwd;
        std::function<void()> hook;
        const char* want;  // type, what or code, exit status
    } cases[] = {
        {"/nonexistent/dir", {}, "SystemError:cwd chdir 2 67"},
        {"", [] { throw std::runtime_error("hook says no"); }, "runtime_error hook says no 66"},
        {"", [] { throw std::logic_error("odd"); }, "exception  66"},
        {"", [] { throw 5; }, "runtime_error unknown error 65"},
        {"", {}, "none  0"},
    };
    for (const auto& c : cases) {
        const Failure f = launchAndFail("/bin/true", false, nullptr, c.cwd, c.hook);
        EXPECT_EQ(f.type + " " + (f.code ? std::to_string(f.code) : f.what) + " " + std::to_string(f.exitStatus),
                  c.want);
    }
}

TEST(ProcessLaunch, StderrCanFollowStdoutIntoOnePipe)
{
    Argv argv({"/bin/sh", "-c", "echo out; echo err >&2"});
    ProcessLaunch child(argv.get(), "/bin/sh", "", nullptr, true, false, false, {}, -3, -4, -5);
    child.waitExec();
    std::string text;
    char buffer[256];
    ssize_t n;
    while ((n = ::read(child.stdoutFd().get(), buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(n));
    EXPECT_EQ(text, "out\nerr\n");
    EXPECT_FALSE(child.stderrFd().valid());
    EXPECT_EQ(child.waitExit(), 0);
}

}  // namespace
