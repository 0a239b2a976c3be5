/**
 * @file signals_blocked.h
 * @brief A stretch of code in which no signal handler of the application runs on this thread.
 */
#ifndef SIGNALS_BLOCKED_H
#define SIGNALS_BLOCKED_H

#include <signal.h>

/** Those that tell of a fault in a thread: they must reach the application's crash handler. */
inline constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

/**
 * Blocks all other signals on this thread; yields what it blocked before. That stays blocked,
 * faults included: who waits for one must not get it now.
 */
inline sigset_t BlockSignals() {
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (const int fault : kFaultSignals)
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    return before;
}

inline void RestoreSignals(const sigset_t& before) {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/** They are blocked while it lives. */
class SignalsBlocked {
public:
    SignalsBlocked() : before_(BlockSignals()) {}
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { RestoreSignals(before_); }

private:
    sigset_t before_;
};

#endif  // SIGNALS_BLOCKED_H
