// Collects the exit of a set of children from SIGCHLD and turns it into a readable
// descriptor (a self-pipe) for a select loop.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <map>

#include "runtime/fd_owner.h"

namespace quelt::process {

struct ProcessStatus {
    bool finished = false;
    int status = 0;  // as waitpid gives it
};

// At most one instance is installed at a time. Register children (add) while SIGCHLD is
// blocked, so none can be reaped before it is known. The handler reaps every child, known
// or not.
class ProcessSetCatcher {
public:
    ProcessSetCatcher() = default;
    // Removes the catcher by force.
    ~ProcessSetCatcher();
    ProcessSetCatcher(const ProcessSetCatcher&) = delete;
    ProcessSetCatcher& operator=(const ProcessSetCatcher&) = delete;

    // Installs the SIGCHLD handler and the self-pipe. Throws std::logic_error "ProcessSetCatcher
    // instance has been installed already", SystemError on a failing system call.
    void install();
    // Uninstalls (nothing when not installed). Unless `force`, throws std::logic_error
    // "there're some child processes still running" when a registered child has not ended.
    void remove(bool force);

    void add(pid_t pid);
    // The status seen for `pid`; std::out_of_range "no such pid" for one never added.
    ProcessStatus status(pid_t pid) const;
    // Empties the self-pipe; call when it was readable.
    void clear_control();
    // The self-pipe's read end: readable after a registered child ended.
    int controlFd() const { return control_.read.get(); }

    static void childHandler(int signo, siginfo_t* info, void* context);

private:
    std::map<pid_t, ProcessStatus> processes_;
    volatile sig_atomic_t changes_ = 0;
    volatile sig_atomic_t terminated_ = 0;
    struct sigaction saved_ {};
    PipeOwner control_;
    bool installed_ = false;
};

}  // namespace quelt::process
