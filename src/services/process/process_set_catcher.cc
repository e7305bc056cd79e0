// Collects the exit of a set of children from SIGCHLD through a self-pipe.
#include "services/process/process_set_catcher.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "runtime/errors.h"

namespace quelt::process {

namespace {

// The one installed catcher, for the signal handler.
ProcessSetCatcher* volatile g_installed = nullptr;

}  // namespace

ProcessSetCatcher::~ProcessSetCatcher()
{
    try {
        remove(true);
    } catch (...) {
        // Destruction goes on; the old SIGCHLD action could not be restored.
    }
}

void ProcessSetCatcher::install()
{
    if (g_installed)
        throw std::logic_error("ProcessSetCatcher instance has been installed already");
    PipeOwner control;
    control.open(O_CLOEXEC | O_NONBLOCK, "process set catcher control pipe");
    struct sigaction action {};
    action.sa_sigaction = &ProcessSetCatcher::childHandler;
    action.sa_flags = SA_SIGINFO | SA_NOCLDSTOP;
    if (::sigprocmask(SIG_BLOCK, nullptr, &action.sa_mask) != 0)
        throwSystemError("get sigprocmask");
    if (::sigaction(SIGCHLD, &action, &saved_) != 0)
        throwSystemError("sigaction");
    control_ = std::move(control);
    installed_ = true;
    g_installed = this;
}

void ProcessSetCatcher::remove(bool force)
{
    if (!installed_)
        return;
    control_.close();
    if (!force && static_cast<std::size_t>(terminated_) < processes_.size())
        throw std::logic_error("there're some child processes still running");
    processes_.clear();
    changes_ = 0;
    terminated_ = 0;
    installed_ = false;
    g_installed = nullptr;
    if (::sigaction(SIGCHLD, &saved_, nullptr) != 0)
        throwSystemError("restore sigaction");
}

void ProcessSetCatcher::add(pid_t pid)
{
    processes_[pid] = ProcessStatus{};
}

ProcessStatus ProcessSetCatcher::status(pid_t pid) const
{
    const auto found = processes_.find(pid);
    if (found == processes_.end())
        throw std::out_of_range("no such pid");
    return found->second;
}

void ProcessSetCatcher::clear_control()
{
    char drain[64];
    while (::read(control_.read.get(), drain, sizeof drain) > 0 || errno == EINTR) {
    }
}

void ProcessSetCatcher::childHandler(int, siginfo_t*, void*)
{
    ProcessSetCatcher* self = g_installed;
    if (!self)
        return;
    const int saved = errno;
    for (;;) {
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, WNOHANG);
        if (pid < 0 && errno == EINTR)
            continue;
        if (pid <= 0)
            break;
        const auto found = self->processes_.find(pid);
        if (found == self->processes_.end())
            continue;
        found->second.finished = true;
        found->second.status = status;
        self->changes_ = self->changes_ + 1;
        if (!WIFSTOPPED(status)) {
            self->terminated_ = self->terminated_ + 1;
            while (::write(self->control_.write.get(), "t", 1) < 0 && errno == EINTR) {
            }
        }
    }
    errno = saved;
}

}  // namespace quelt::process
