/**
 * @file shared_use.h
 * @brief Between operations on shared state and the end of the process, or of the library's stay.
 *
 * At exit the handles wait until no operation of this process holds an object, at most a second: a
 * thread may still be running. Operations that begin later are refused and hold up nobody: they do
 * not count, and pause, for threads that call again at once would keep the processor from those
 * that are waited for. Where the second does not suffice, the mapping stays and the process ends.
 */
#ifndef SHARED_USE_H
#define SHARED_USE_H

#include <atomic>
#include <cstdint>

class SharedUse {
public:
    /** What an operation keeps from its begin to its end. */
    struct Ticket {
        bool granted;
        std::uint16_t forks;  // modulo 65536
    };

    /** Not granted once the handles are being let go. */
    static Ticket Begin() {
        State now = state_.load(std::memory_order_relaxed);
        do {
            if (now.phase != Phase::kOpen) return Refuse();
        } while (!state_.compare_exchange_weak(now, now.With(+1)));
        return {true, now.forks};
    }
    /** In a child that was forked in mid-operation it is the parent that counts it. */
    static void End(Ticket ticket) {
        if (!ticket.granted) return;
        State now = state_.load(std::memory_order_relaxed);
        do {
            if (now.forks != ticket.forks) return;
        } while (!state_.compare_exchange_weak(now, now.With(-1)));
    }

    /** Refuses new operations, and waits for those that run. */
    static void Finish();
    /** An operation outlasted the wait: what it works on has to stay. */
    static bool IsAbandoned() { return state_.load().phase == Phase::kAbandoned; }
    static bool IsOpen() { return state_.load().phase == Phase::kOpen; }

    static void ForgetOperationsInChild(int forks);

private:
    enum class Phase : std::uint16_t { kOpen, kDraining, kAbandoned };

    /** In one word: a fork or the end may come between any two instructions of an operation. */
    struct alignas(std::uint64_t) State {
        std::int32_t operations;  // that run in this process
        std::uint16_t forks;
        Phase phase;

        [[nodiscard]] State With(int more) const { return {operations + more, forks, phase}; }
        [[nodiscard]] State In(Phase other) const { return {operations, forks, other}; }
    };
    static void Enter(Phase phase);
    static Ticket Refuse();

    static std::atomic<State> state_;
    static_assert(std::atomic<State>::is_always_lock_free);
};

#endif  // SHARED_USE_H
