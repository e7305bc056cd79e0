// Scoped changes of signal handling.
#include "runtime/signals.h"

#include "runtime/errors.h"

namespace quelt {

SigBlocker::~SigBlocker()
{
    if (blocked_)
        ::sigprocmask(SIG_SETMASK, &saved_, nullptr);
}

void SigBlocker::block(int signo)
{
    sigset_t mask;
    if (::sigprocmask(SIG_BLOCK, nullptr, &mask) != 0)
        throwSystemError("get sigprocmask");
    if (::sigaddset(&mask, signo) != 0)
        throwSystemError("sigaddset");
    if (::sigprocmask(SIG_SETMASK, &mask, &saved_) != 0)
        throwSystemError("set sigprocmask");
    blocked_ = true;
}

void SigBlocker::release()
{
    if (!blocked_)
        return;
    if (::sigprocmask(SIG_SETMASK, &saved_, nullptr) != 0)
        throwSystemError("restore sigprocmask");
    blocked_ = false;
}

SignalIgnorer::SignalIgnorer(int signo) : signo_(signo)
{
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    if (::sigaction(signo, &ignore, &saved_) != 0)
        throwSystemError("sigaction");
}

SignalIgnorer::~SignalIgnorer()
{
    ::sigaction(signo_, &saved_, nullptr);
}

}  // namespace quelt
