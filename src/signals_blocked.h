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
 * While it lives, the thread blocks all other signals. It goes on to block whatever it blocked
 * before, faults included: one that waits for it must not come now.
 */
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : kFaultSignals)
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

#endif  // SIGNALS_BLOCKED_H
