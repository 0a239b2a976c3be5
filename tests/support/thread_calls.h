/**
 * @file thread_calls.h
 * @brief Takes over usleep and the creation of threads in a test program.
 *
 * Linked into a program, it records who sleeps for how long, can shorten sleeps, can refuse to
 * create a thread, and can make a thread end late.
 */
#ifndef THREAD_CALLS_H
#define THREAD_CALLS_H

#include <sys/types.h>

#include <atomic>
#include <functional>

struct ThreadCalls {
    static ThreadCalls& Instance();

    /** Called before each usleep, on the thread that sleeps; empty: nothing is called. */
    std::function<void(useconds_t)> onSleep;
    /** Sleeps are as many times shorter as this says; those below a microsecond are left out. */
    std::atomic<unsigned> sleepDivisor = 1;

    std::atomic<bool> refuseDetaching = false;
    std::atomic<bool> refuseCreation = false;

    /** How long a thread created from now on stays between its function's return and its end. */
    std::atomic<int> endDelayMs = 0;
    /** Threads whose function was entered, and those that are past the delay. */
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;
};

#endif  // THREAD_CALLS_H
