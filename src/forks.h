/**
 * @file forks.h
 * @brief How many forks lie between the process that loaded the library and this one.
 *
 * What a process holds is its own: a forked child finds copies of locks, registrations and counts
 * that are its parent's. Whoever holds such a thing notes the number of forks beside it, and takes
 * nothing back when the number is another by then. A child may be forked at any instruction, by a
 * signal handler as well; forks.cpp says what happens then.
 */
#ifndef FORKS_H
#define FORKS_H

#include <atomic>

class Forks {
public:
    static int Count() { return count_.load(std::memory_order_relaxed); }

    /**
     * Counts from now on, whoever says so first: with the first key file that is opened. Not before
     * it is: whatever takes part in that open has its own handlers by then, so that at a fork, as
     * at an open, our lock comes before its.
     */
    static void Watch();

private:
    static void CountInChild();

    static std::atomic<int> count_;
};

#endif  // FORKS_H
