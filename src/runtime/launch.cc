// Running one external program with its three standard streams served from memory.
#include "runtime/launch.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/demangle.h"
#include "runtime/errors.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"
#include "runtime/signals.h"

namespace {

// A pipe end numbered 0, 1 or 2 would be overwritten by an earlier dup2 onto its number.
int moveAboveStdio(int fd, int target)
{
    if (fd < 0 || fd > 2 || fd == target)
        return fd;
    const int moved = ::fcntl(fd, F_DUPFD, 3);
    if (moved < 0)
        quelt::throwSystemError("dup2Custom failed");
    return moved;
}

// The child's half of forkExecvPipes: never returns.
[[noreturn]] void runChild(int in, int out, int err, const std::string& path,
                           std::vector<char*>& argv, const std::string& user, const EnvMap& env)
{
    try {
        in = moveAboveStdio(in, 0);
        out = moveAboveStdio(out, 1);
        err = moveAboveStdio(err, 2);
        dup2Custom(in, 0);
        dup2Custom(out, 1);
        dup2Custom(err, 2);
        quelt::closeRange(3, INT_MAX);
        if (!user.empty()) {
            uid_t uid = 0;
            gid_t gid = 0;
            if (quelt_ugid(user, &uid, &gid) != 0 || (uid != 0 && p_setuid(user) != 0))
                quelt::throwSystemError("forkExecvPipes: p_setuid() to '" + user + "' failed");
        }
        for (const auto& [name, value] : env)
            if (::setenv(name.c_str(), value.c_str(), 1) != 0)
                quelt::throwSystemError("forkExecvPipes: setenv() falied");
        ::execvp(path.c_str(), argv.data());
        messlog2(0, 0, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
        std::fflush(nullptr);
        ::_exit(1);
    } catch (const std::exception& e) {
        // The same last-resort report the program gives, on the streams the parent collects.
        const std::string report = quelt::fatalErrorText(e) + "\n";
        for (int fd : {2, 1})
            if (::write(fd, report.data(), report.size()) < 0)
                break;
        ::_exit(1);
    } catch (...) {
        const std::string report = std::string(quelt::kUntypedErrorText) + "\n";
        for (int fd : {2, 1})
            if (::write(fd, report.data(), report.size()) < 0)
                break;
        ::_exit(2);
    }
}

void openPipe(quelt::PipeOwner& pipe)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        messlog2(1, 0, "forkExecvGetOutErr: pipe() failed");
    pipe.read.reset(fds[0]);
    pipe.write.reset(fds[1]);
}

void setNonBlockingOrDie(int fd)
{
    if (!quelt::setNonBlocking(fd))
        messlog2(1, 0, "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed");
}

// -1 when the child could not be waited for or died of a signal, else its exit code.
int waitChild(pid_t pid)
{
    int status = 0;
    pid_t got;
    while ((got = ::waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
    }
    // ECHILD (collected elsewhere, e.g. by a SIGCHLD handler that reaps everything) ends the
    // wait at once: the exit code is lost, so the result is -1.
    if (got <= 0)
        return -1;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    return -1;
}

// Serves the three pipes until the child has closed its output streams.
void pump(quelt::FdOwner& input, std::string pending, quelt::FdOwner& output, std::string& out,
          quelt::FdOwner& error, std::string& err)
{
    while (input.valid() || output.valid() || error.valid()) {
        fd_set readable;
        fd_set writable;
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        int top = -1;
        if (input.valid()) {
            FD_SET(input.get(), &writable);
            top = std::max(top, input.get());
        }
        for (quelt::FdOwner* fd : {&output, &error})
            if (fd->valid()) {
                FD_SET(fd->get(), &readable);
                top = std::max(top, fd->get());
            }
        if (::select(top + 1, &readable, &writable, nullptr, nullptr) < 0) {
            if (errno == EINTR)
                continue;
            quelt::throwSystemError("forkExecvGetOutErr: select() failed");
        }
        if (input.valid() && FD_ISSET(input.get(), &writable)) {
            try {
                writeFromString(input.get(), pending);
            } catch (const quelt::SystemError& e) {
                // The child closed its input early: what it did not read is dropped.
                if (e.code() != EPIPE)
                    throw;
                pending.clear();
            }
            if (pending.empty())
                input.close();
        }
        if (output.valid() && FD_ISSET(output.get(), &readable) && readToString(output.get(), out) == 0)
            output.close();
        if (error.valid() && FD_ISSET(error.get(), &readable) && readToString(error.get(), err) == 0)
            error.close();
    }
}

}  // namespace

int quelt_ugid(const std::string& user, uid_t* uid, gid_t* gid)
{
    errno = 0;
    const struct passwd* pw = ::getpwnam(user.c_str());
    if (!pw) {
        if (errno == 0)
            errno = ENOENT;
        return -1;
    }
    if (uid)
        *uid = pw->pw_uid;
    if (gid)
        *gid = pw->pw_gid;
    return 0;
}

int p_setuid(const std::string& user)
{
    uid_t uid = 0;
    gid_t gid = 0;
    if (quelt_ugid(user, &uid, &gid) != 0)
        return -1;
    if (::initgroups(user.c_str(), gid) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
        return -1;
    return 0;
}

void dup2Custom(int fd, int target)
{
    if (fd == target)
        return;
    if (fd == -1) {
        quelt::FdOwner null(::open("/dev/null", O_RDWR));
        if (!null.valid() || ::dup2(null.get(), target) < 0)
            quelt::throwSystemError("dup2Custom failed");
        if (null.get() == target)
            null.release();
        return;
    }
    if (::dup2(fd, target) < 0)
        quelt::throwSystemError("dup2Custom failed");
    quelt::FdOwner(fd).close_nothrow();
}

int readToString(int fd, std::string& out)
{
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            out.append(buffer, static_cast<std::size_t>(n));
            continue;
        }
        if (n == 0)
            return 0;
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 1;
        quelt::throwSystemError("readToString failed");
    }
}

void writeFromString(int fd, std::string& text)
{
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n >= 0) {
            text.erase(0, static_cast<std::size_t>(n));
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return;
        quelt::throwSystemError("writeToString failed");
    }
}

pid_t forkExecvPipes(int in, int out, int err, const std::string& path, const ArgList& args,
                     const std::string& user, const EnvMap& env)
{
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (const auto& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    // Unwritten stdio buffers would otherwise be written a second time by the child.
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0)
        quelt::throwSystemError("forkExecvPipes: fork() failed");
    if (pid == 0)
        runChild(in, out, err, path, argv, user, env);
    return pid;
}

int forkExecvGetInOutErrSuidEnv(const std::string& in, std::string& out, std::string& err,
                                const std::string& path, const ArgList& args,
                                const std::string& user, const EnvMap& env)
{
    quelt::PipeOwner input;
    quelt::PipeOwner output;
    quelt::PipeOwner error;
    openPipe(input);
    openPipe(output);
    openPipe(error);
    setNonBlockingOrDie(input.write.get());
    setNonBlockingOrDie(output.read.get());
    setNonBlockingOrDie(error.read.get());

    const pid_t pid = forkExecvPipes(input.read.get(), output.write.get(), error.write.get(),
                                     path, args, user, env);
    try {
        input.read.close();
        output.write.close();
        error.write.close();
        quelt::SignalIgnorer noSigpipe(SIGPIPE);
        pump(input.write, in, output.read, out, error.read, err);
    } catch (...) {
        // The child is collected on every path; closing our ends first lets it finish.
        input.write.close_nothrow();
        output.read.close_nothrow();
        error.read.close_nothrow();
        const int saved = errno;
        waitChild(pid);
        errno = saved;
        throw;
    }
    return waitChild(pid);
}
