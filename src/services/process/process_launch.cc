// One child process: descriptor set-up, fork and exec, failures carried over a control pipe.
#include "services/process/process_launch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "runtime/errors.h"

namespace quelt::process {

namespace {

int openRetrying(const char* path, int flags)
{
    int fd;
    while ((fd = ::open(path, flags | O_CLOEXEC)) < 0 && errno == EINTR) {
    }
    return fd;
}

void dup2Retrying(int fd, int target, const char* what)
{
    while (::dup2(fd, target) < 0) {
        if (errno != EINTR)
            throwSystemError(what);
    }
}

void checkCode(int code, const char* what)
{
    if (code < SameAsStdout || code == -1)
        throw std::invalid_argument(what);
}

// Sets up one stream in the parent: `child` gets the descriptor the child will use, `parent`
// the end the parent keeps for a pipe.
void prepare(int code, bool input, const char* name, FdOwner& child, FdOwner& parent)
{
    if (code >= 0) {
        child.lend(code);
    } else if (code == DevNull) {
        child.reset(openRetrying("/dev/null", input ? O_RDONLY : O_WRONLY));
        if (!child.valid())
            throwSystemError(std::string(name) + " /dev/null open");
    } else if (code == NewPipe) {
        PipeOwner pipe;
        pipe.open(O_CLOEXEC, (std::string(name) + " pipe").c_str());
        child = std::move(input ? pipe.read : pipe.write);
        parent = std::move(input ? pipe.write : pipe.read);
    }
}

void closeAllBut(int keep, int limit)
{
    const int saved = errno;
    if (keep >= 3 && keep < limit) {
        closeRange(3, keep - 1);
        closeRange(keep + 1, limit - 1);
    } else {
        closeRange(3, limit - 1);
    }
    errno = saved;
}

struct ChildSetup {
    char* const* argv;
    const std::string& path;
    const std::string& cwd;
    char* const* envp;
    bool searchPath;
    bool callSetsid;
    const std::function<void()>& preExec;
};

void execChild(const ChildSetup& setup, int control, FdOwner& in, FdOwner& out, FdOwner& err,
               FdOwner* parentEnds[3])
{
    if (::fcntl(control, F_SETFD, FD_CLOEXEC) != 0)
        throwSystemError("control pipe close-on-exec fcntl");
    for (int i = 0; i < 3; ++i)
        parentEnds[i]->close_nothrow();
    if (in.get() > 0) {
        dup2Retrying(in.get(), 0, "stdin dup2");
        in.close_nothrow();
    }
    if (out.get() >= 0 && out.get() != 1)
        dup2Retrying(out.get(), 1, "stdout dup2");
    if (err.get() >= 0 && err.get() != 2)
        dup2Retrying(err.get(), 2, "stderr dup2");
    if (!setup.cwd.empty() && ::chdir(setup.cwd.c_str()) != 0)
        throwSystemError("cwd chdir");
    // Every child starts with standard input, output and error alone, closeOtherFds or not: a
    // descriptor inherited from our caller or opened without close-on-exec would otherwise
    // reach it (a writable table file, a lock that outlives us). The whole range goes, not
    // only what lies below the soft limit, which a caller may have lowered after opening.
    closeAllBut(control, INT_MAX);
    if (setup.callSetsid && ::setsid() < 0)
        throwSystemError("setsid");
    if (setup.preExec)
        setup.preExec();
    // The launcher blocks SIGCHLD while it registers children; the program must not start
    // with it blocked, since an exec keeps the signal mask.
    sigset_t chld;
    sigemptyset(&chld);
    sigaddset(&chld, SIGCHLD);
    ::sigprocmask(SIG_UNBLOCK, &chld, nullptr);
    if (setup.envp) {
        while (::execve(setup.path.c_str(), setup.argv, setup.envp) < 0 && errno == EINTR) {
        }
        throwSystemError("execve");
    }
    if (setup.searchPath) {
        while (::execvp(setup.path.c_str(), setup.argv) < 0 && errno == EINTR) {
        }
        throwSystemError("execvp");
    }
    while (::execv(setup.path.c_str(), setup.argv) < 0 && errno == EINTR) {
    }
    throwSystemError("execv");
}

// The records the child wrote before failing: type, message and error number.
struct ChildReport {
    std::string type;
    std::string message;
    int number = 0;
    bool typed = false;

    void take(const std::string& record)
    {
        const std::string head = record.substr(0, 4);
        const std::string rest = record.size() > 4 ? record.substr(4) : std::string();
        if (head == "ET: ") {
            type = rest;
            typed = true;
        } else if (head == "EM: ") {
            message = rest;
        } else if (head == "EC: ") {
            char* end = nullptr;
            errno = 0;
            const long value = std::strtol(rest.c_str(), &end, 10);
            number = (rest.empty() || *end != '\0' || errno != 0) ? EINVAL : static_cast<int>(value);
        } else {
            std::clog << "child output: " << record << std::endl;
        }
    }
};

}  // namespace

void writeException(int fd, const std::string& type, const std::string& message)
{
    if (fd < 0)
        return;
    // A failed write is not reported: the parent will see the exit status alone.
    writeAll(fd, "ET: ", 4);
    writeAll(fd, type.c_str(), type.size() + 1);
    writeAll(fd, "EM: ", 4);
    writeAll(fd, message.c_str(), message.size() + 1);
}

ProcessLaunch::ProcessLaunch(char* const* argv, const std::string& path, const std::string& cwd,
                             char* const* envp, bool /*closeOtherFds: always*/, bool searchPath,
                             bool callSetsid, const std::function<void()>& preExec, int stdinCode,
                             int stdoutCode, int stderrCode)
{
    checkCode(stdinCode, "invalid FD for stdin");
    checkCode(stdoutCode, "invalid FD for stdout");
    if (stdinCode == SameAsStdout)
        throw std::invalid_argument("invalid FD for stdin");
    if (stdoutCode == SameAsStdout)
        throw std::invalid_argument("invalid FD for stdout");
    checkCode(stderrCode, "invalid FD for stderr");

    FdOwner in;
    FdOwner out;
    FdOwner err;
    prepare(stdinCode, true, "stdin", in, stdin_);
    prepare(stdoutCode, false, "stdout", out, stdout_);
    if (stderrCode == SameAsStdout)
        err.lend(out.valid() ? out.get() : STDOUT_FILENO);
    else
        prepare(stderrCode, false, "stderr", err, stderr_);
    control_.open(O_CLOEXEC, "pipe");

    // Unwritten stdio buffers would otherwise be written a second time by the child.
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ < 0)
        throwSystemError("fork");
    if (pid_ == 0) {
        const int control = control_.write.get();
        FdOwner* parentEnds[3] = {&stdin_, &stdout_, &stderr_};
        const ChildSetup setup{argv, path, cwd, envp, searchPath, callSetsid, preExec};
        // _exit, not exit: the parent's atexit handlers and stdio buffers are not ours to run.
        try {
            execChild(setup, control, in, out, err, parentEnds);
        } catch (const SystemError& e) {
            writeException(control, "SystemError", e.message());
            char record[47];
            const int n = std::snprintf(record, sizeof record, "EC: %d", e.code());
            writeAll(control, record, static_cast<std::size_t>(n) + 1);
            ::_exit(kChildSystemError);
        } catch (const std::runtime_error& e) {
            writeException(control, "std::runtime_error", e.what());
            ::_exit(kChildException);
        } catch (const std::exception& e) {
            writeException(control, "std::exception", e.what());
            ::_exit(kChildException);
        } catch (...) {
            writeException(control, "std::runtime_error", "unknown error");
            ::_exit(kChildUnknownError);
        }
    }
    in.close();
    out.close();
    err.close();
    control_.write.close();
}

void ProcessLaunch::waitExec()
{
    std::vector<std::string> records(1);
    char chunk[1024];
    for (;;) {
        const ssize_t n = ::read(control_.read.get(), chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throwSystemError("control pipe read");
        }
        if (n == 0)
            break;
        for (ssize_t i = 0; i < n; ++i) {
            if (chunk[i] == '\0')
                records.emplace_back();
            else
                records.back() += chunk[i];
        }
    }
    if (records.back().empty())
        records.pop_back();
    const int saved = errno;
    control_.read.close_nothrow();
    errno = saved;

    ChildReport report;
    for (const auto& record : records)
        report.take(record);
    if (!report.typed)
        return;
    if (report.message.empty())
        report.message = "an error in child process";
    if (report.type == "SystemError")
        throw SystemError(report.message, report.number != 0 ? report.number : errno);
    if (report.type == "std::runtime_error")
        throw std::runtime_error(report.message);
    if (report.type == "std::exception")
        throw std::exception();
    throw std::bad_exception();
}

int ProcessLaunch::waitExit()
{
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR)
            throwSystemError("unable to wait for child process exit");
    }
    return status;
}

}  // namespace quelt::process
