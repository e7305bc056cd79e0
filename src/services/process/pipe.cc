// Pipelines of child processes, run synchronously with their streams served by one select loop.
#include "services/process/pipe.h"

#include <signal.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "runtime/errors.h"
#include "runtime/signals.h"

namespace quelt::process {

namespace {

// One output stream of a child and where its bytes go.
struct Channel {
    FdOwner* fd;
    const Receiver* receiver;
};

// The stage as it runs: its own settings, completed by the pipe's.
StageParameters effective(const StageParameters& stage, const PipeFlags& pipe)
{
    StageParameters p = stage;
    if (p.workingDirectory.empty())
        p.workingDirectory = pipe.workingDirectory;
    if (!p.environment)
        p.environment = pipe.environment;
    p.closeOtherFds = p.closeOtherFds || pipe.closeOtherFds;
    if (!p.preExec)
        p.preExec = pipe.preExec;
    if (p.stderrDisposition == -1)
        p.stderrDisposition = pipe.stderrDisposition;
    if (!p.stderrReceiver)
        p.stderrReceiver = pipe.stderrReceiver;
    if (!p.exitCallback)
        p.exitCallback = pipe.exitCallback;
    return p;
}

void setNonBlockingOrThrow(int fd)
{
    if (!setNonBlocking(fd))
        throwSystemError("fcntl");
}

bool terminated(int status)
{
    return WIFEXITED(status) || WIFSIGNALED(status);
}

// After a failure: closes every stream so the children can finish, and collects them.
void abandon(std::vector<std::unique_ptr<ProcessLaunch>>& launched, FdOwner& input)
{
    input.close_nothrow();
    for (auto& child : launched) {
        child->stdinFd().close_nothrow();
        child->stdoutFd().close_nothrow();
        child->stderrFd().close_nothrow();
    }
    for (auto& child : launched) {
        int status;
        // ECHILD: the SIGCHLD handler collected it already.
        while (::waitpid(child->pid(), &status, 0) < 0 && errno == EINTR) {
        }
    }
}

// Feeds the first stage from the provider, keeping what a full pipe did not take.
class InputFeeder {
public:
    InputFeeder(FdOwner& fd, const Provider& provider) : fd_(fd), provider_(provider) {}

    void onWritable()
    {
        if (pending_.empty()) {
            // The provider's last call (the one returning false) may still fill a chunk: it is
            // written before the input is closed.
            if (last_ || !provider_) {
                fd_.close();
                return;
            }
            chunk_.clear();
            last_ = !provider_(chunk_);
            pending_.swap(chunk_);
            offset_ = 0;
            if (pending_.empty())
                return;
        }
        try {
            offset_ += nonblock_write(fd_.get(), pending_.data() + offset_, pending_.size() - offset_);
        } catch (const SystemError& e) {
            if (e.code() != EPIPE)
                throw;
            // The stage stopped reading; the rest of the input has nowhere to go.
            fd_.close();
        }
        if (offset_ == pending_.size())
            pending_.clear();
    }

private:
    FdOwner& fd_;
    const Provider& provider_;
    std::vector<char> pending_;
    std::vector<char> chunk_;
    std::size_t offset_ = 0;
    bool last_ = false;
};

}  // namespace

Parameters<PipeProcessFlags>::Parameters(const std::string& a0, const std::string& a1,
                                         const std::string& a2, const std::string& a3,
                                         const std::string& a4, const std::string& a5,
                                         const std::string& a6, const std::string& a7,
                                         const std::string& a8, const std::string& a9)
{
    args.reserve(10);
    args.push_back(a0);
    for (const std::string* a : {&a1, &a2, &a3, &a4, &a5, &a6, &a7, &a8, &a9}) {
        if (a->empty())
            break;
        args.push_back(*a);
    }
}

std::unique_ptr<ProcessLaunch> launchOne(const StageParameters& p, int stdinCode, int stdoutCode)
{
    if (p.args.empty() && p.executable.empty())
        throw std::invalid_argument("no program to launch");
    std::vector<char*> argv;
    argv.reserve(p.args.size() + 1);
    for (const auto& arg : p.args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    const std::string& path = p.executable.empty() ? p.args[0] : p.executable;
    const bool searchPath = !path.empty() && path[0] != '.' && path[0] != '/';
    return std::make_unique<ProcessLaunch>(argv.data(), path, p.workingDirectory, p.environment,
                                           p.closeOtherFds, searchPath, false, p.preExec,
                                           stdinCode, stdoutCode,
                                           p.stderrDisposition == -1 ? Inherit : p.stderrDisposition);
}

Receiver makeStringReceiver(std::string& s)
{
    return [&s](const std::vector<char>& chunk) { s.append(chunk.begin(), chunk.end()); };
}

std::size_t nonblock_write(int fd, const char* buf, std::size_t len)
{
    const int saved = errno;
    for (;;) {
        const ssize_t n = ::write(fd, buf, len);
        if (n >= 0) {
            errno = saved;
            return static_cast<std::size_t>(n);
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN && (len /= 2) != 0)
            continue;
        throwSystemError("write");
    }
}

void Pipe::append(const StageParameters& stage)
{
    if (launched())
        throw std::logic_error("adding processes to the launched pipe is prohibited");
    stages_.push_back(stage);
}

int Pipe::run()
{
    if (launched())
        throw std::logic_error("the pipe has been launched already");
    if (stages_.empty())
        throw std::logic_error("No processes to launch were assigned so far");
    statuses_.assign(stages_.size(), ProcessStatus{});

    std::vector<StageParameters> stages;
    for (const auto& stage : stages_)
        stages.push_back(effective(stage, *this));

    SigBlocker blocker;
    blocker.block(SIGCHLD);
    ProcessSetCatcher catcher;
    catcher.install();
    std::vector<std::unique_ptr<ProcessLaunch>> launched;
    FdOwner input;
    try {
        for (std::size_t i = 0; i < stages.size(); ++i) {
            const bool last = i + 1 == stages.size();
            const int stdinCode = i == 0 ? (stdinFd == -1 ? Inherit : stdinFd)
                                         : launched.back()->stdoutFd().get();
            const int stdoutCode = last ? (stdoutDisposition == -1 ? Inherit : stdoutDisposition)
                                        : NewPipe;
            launched.push_back(launchOne(stages[i], stdinCode, stdoutCode));
            catcher.add(launched.back()->pid());
            if (i > 0) {
                if (launched[i - 1]->stdoutFd().close_nothrow() != 0)
                    throwSystemError("pipe read-end close");
            }
            launched.back()->waitExec();
        }
        blocker.release();
        input = std::move(launched.front()->stdinFd());
        if (input.valid())
            setNonBlockingOrThrow(input.get());

        std::vector<Channel> channels;
        if (launched.back()->stdoutFd().valid())
            channels.push_back({&launched.back()->stdoutFd(), &stdoutReceiver});
        for (std::size_t i = 0; i < stages.size(); ++i)
            if (launched[i]->stderrFd().valid())
                channels.push_back({&launched[i]->stderrFd(), &stages[i].stderrReceiver});
        for (const auto& channel : channels)
            setNonBlockingOrThrow(channel.fd->get());

        // A stage that stops reading its input must give us EPIPE, not end the process.
        SignalIgnorer noSigpipe(SIGPIPE);
        InputFeeder feeder(input, stdinProvider);
        std::size_t running = stages.size();
        std::vector<char> chunk;
        for (;;) {
            const bool open = std::any_of(channels.begin(), channels.end(),
                                          [](const Channel& c) { return c.fd->valid(); });
            if (running == 0 && !open)
                break;
            fd_set readable;
            fd_set writable;
            FD_ZERO(&readable);
            FD_ZERO(&writable);
            int top = catcher.controlFd();
            FD_SET(top, &readable);
            for (const auto& channel : channels)
                if (channel.fd->valid()) {
                    FD_SET(channel.fd->get(), &readable);
                    top = std::max(top, channel.fd->get());
                }
            if (input.valid()) {
                FD_SET(input.get(), &writable);
                top = std::max(top, input.get());
            }
            if (::select(top + 1, &readable, &writable, nullptr, nullptr) < 0) {
                if (errno == EINTR)
                    continue;
                throwSystemError("select");
            }
            for (const auto& channel : channels) {
                if (!channel.fd->valid() || !FD_ISSET(channel.fd->get(), &readable))
                    continue;
                chunk.resize(1024);
                const ssize_t n = ::read(channel.fd->get(), chunk.data(), chunk.size());
                if (n > 0) {
                    chunk.resize(static_cast<std::size_t>(n));
                    if (*channel.receiver)
                        (*channel.receiver)(chunk);
                } else if (n == 0) {
                    channel.fd->close();
                } else if (errno != EINTR && errno != EAGAIN) {
                    throwSystemError("read");
                }
            }
            if (FD_ISSET(catcher.controlFd(), &readable)) {
                catcher.clear_control();
                for (std::size_t i = 0; i < stages.size(); ++i) {
                    if (statuses_[i].finished)
                        continue;
                    const ProcessStatus status = catcher.status(launched[i]->pid());
                    if (!status.finished)
                        continue;
                    statuses_[i] = status;
                    if (terminated(status.status)) {
                        --running;
                        if (stages[i].exitCallback)
                            stages[i].exitCallback(static_cast<unsigned>(i), status.status);
                    }
                }
            }
            if (input.valid() && FD_ISSET(input.get(), &writable))
                feeder.onWritable();
        }
    } catch (...) {
        abandon(launched, input);
        throw;
    }
    catcher.remove(false);
    return statuses_.back().status;
}

}  // namespace quelt::process
