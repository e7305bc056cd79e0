// Scoped changes of signal handling: a blocked signal (SigBlocker) and an ignored one.
#pragma once

#include <signal.h>

namespace quelt {

// Blocks one signal until release() or the end of the scope, restoring the mask it found.
class SigBlocker {
public:
    SigBlocker() = default;
    ~SigBlocker();
    SigBlocker(const SigBlocker&) = delete;
    SigBlocker& operator=(const SigBlocker&) = delete;

    // Throws SystemError "get sigprocmask", "sigaddset" or "set sigprocmask".
    void block(int signo);
    // Restores the saved mask; throws SystemError "restore sigprocmask". No-op when released.
    void release();
    bool blocked() const { return blocked_; }

private:
    sigset_t saved_{};
    bool blocked_ = false;
};

// Ignores one signal for the scope and restores the previous action afterwards. Used around
// writes into a child's input, so a child that stops reading gives EPIPE, not our death.
// Install it only after fork(): an ignored signal stays ignored across exec.
class SignalIgnorer {
public:
    // Throws SystemError "sigaction".
    explicit SignalIgnorer(int signo);
    ~SignalIgnorer();
    SignalIgnorer(const SignalIgnorer&) = delete;
    SignalIgnorer& operator=(const SignalIgnorer&) = delete;

private:
    int signo_;
    struct sigaction saved_ {};
};

}  // namespace quelt
