// One child process: descriptor set-up, fork and exec, with failures between fork and exec
// carried back to the parent over a close-on-exec control pipe.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "runtime/fd_owner.h"

namespace quelt::process {

// What a child's standard stream is; a value of 0 or more is a descriptor to put there.
enum StreamDisposition : int {
    Inherit = -2,       // the parent's own descriptor
    DevNull = -3,       // /dev/null, read-only for stdin, write-only for the outputs
    NewPipe = -4,       // a new pipe whose other end the ProcessLaunch keeps
    SameAsStdout = -5,  // stderr only: wherever stdout goes
};

// Child exit statuses that say the program never ran.
constexpr int kChildSystemError = 67;
constexpr int kChildException = 66;
constexpr int kChildUnknownError = 65;

class ProcessLaunch {
public:
    // Prepares the three streams (invalid codes: std::invalid_argument "invalid FD for stdin",
    // "... stdout", "... stderr"; failures: SystemError), forks, and in the child executes
    // `path` with `argv` (NULL-terminated): execve with `envp` when given, else execvp when
    // `searchPath`, else execv. The child keeps descriptors 0, 1 and 2 only (closeOtherFds is
    // always in force). Returns in the parent right after fork.
    ProcessLaunch(char* const* argv, const std::string& path, const std::string& cwd,
                  char* const* envp, bool closeOtherFds, bool searchPath, bool callSetsid,
                  const std::function<void()>& preExec, int stdinCode, int stdoutCode,
                  int stderrCode);
    ProcessLaunch(const ProcessLaunch&) = delete;
    ProcessLaunch& operator=(const ProcessLaunch&) = delete;

    // Returns once the child has executed its program; rethrows what the child failed with
    // before that (SystemError, std::runtime_error, std::exception, std::bad_exception).
    void waitExec();
    // waitpid for the child (EINTR retried): its wait status. Throws SystemError "unable to
    // wait for child process exit".
    int waitExit();

    pid_t pid() const { return pid_; }
    // The parent's ends of the streams that were NewPipe (invalid otherwise).
    FdOwner& stdinFd() { return stdin_; }
    FdOwner& stdoutFd() { return stdout_; }
    FdOwner& stderrFd() { return stderr_; }

private:
    pid_t pid_ = -1;
    FdOwner stdin_;
    FdOwner stdout_;
    FdOwner stderr_;
    PipeOwner control_;
};

// Writes "ET: ", `type`, NUL, "EM: ", `message`, NUL to `fd` (nothing when `fd` < 0).
void writeException(int fd, const std::string& type, const std::string& message);

}  // namespace quelt::process
