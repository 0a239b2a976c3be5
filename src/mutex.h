/**
 * @file mutex.h
 * @brief Named locks between processes, on System V semaphore sets.
 *
 * A lock is known by a name and an index. All locks of a name live in one set: semaphore 0 counts
 * the processes that use it, semaphore index + 1 is the lock, 1 when free and 0 when held. Locks
 * are taken with SEM_UNDO, so that those of a process that dies come free. They are not recursive.
 *
 * Creating, initialising, registering in and removing a set run under the lock of its key file. A
 * set that its creator did not live to initialise was never registered in (its sem_otime is 0), has
 * our number of semaphores and its locks raised in turn; the next process finishes it. Any other
 * set that was never used is a stranger's: it stays as it is, and the locks cannot be had.
 *
 * A set may be removed under its users (ipcrm, or a login manager that clears up after a user).
 * LinuxMutex::Take then joins anew as at load. A forked child joins at its first Take, with an
 * undo, so that its end takes the registration back however it comes; what a child did not
 * register it does not unregister. Which set a process is on is known in one place,
 * LinuxMutexSet::Joined; whoever holds a lock keeps what it said.
 *
 * The lists and reference counts change only while the library is loaded or unloaded, on one
 * thread.
 */
#ifndef MUTEX_H
#define MUTEX_H

#include <sys/sem.h>

#include <atomic>
#include <cstdint>

#include "forks.h"
#include "shared_trouble.h"

/** Identity of a lock. Also stored in the segment, so its layout is fixed. */
struct MutexID {
    static constexpr int kNameRoom = 50;

    MutexID(const char* mutexName, int mutexIndex, int mutexCount);

    [[nodiscard]] bool SameName(const MutexID& other) const;
    [[nodiscard]] bool SameLock(const MutexID& other) const;

    char name[kNameRoom];
    char padding[2] = {};  // named, so that nothing undefined gets into the segment
    int count;             // locks that a set gets when this identity creates it
    int index;
};
static_assert(sizeof(MutexID) == 60);

class Mutex {
public:
    explicit Mutex(const MutexID& mutexId) : id(mutexId) {}
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /** Waits for the lock, also through signals; false when it cannot be had. */
    virtual bool Lock() = 0;
    virtual bool UnLock() = 0;
    virtual ~Mutex() = default;

    /** The process's lock of this identity, with one holder more. */
    static Mutex* GetLocalMutex(MutexID& wanted);
    /** Drops one holder; the last one destroys the lock, and the set with its last lock. */
    static void ReleaseLocalMutex(Mutex* mutex);
    static Mutex* FindMutex(MutexID& wanted);

    static Mutex* MutexChain;

    MutexID id;
    Mutex* chainNext = nullptr;
    int refCount = 0;
};

/** A set, and the process, by its number of forks, that has joined it or holds a lock on it. */
struct alignas(std::uint64_t) OnSet {
    static constexpr int kNone = -1;

    int set = kNone;
    int forks = 0;

    /** In a forked child it is the parent's affair. */
    [[nodiscard]] bool IsOurs() const { return forks == Forks::Count(); }
    [[nodiscard]] bool IsNone() const { return set == kNone; }
    bool operator==(const OnSet&) const = default;
};

class LinuxMutex;

/** The process's end of one kernel set. */
class LinuxMutexSet {
public:
    explicit LinuxMutexSet(MutexID& creator);
    LinuxMutexSet(const LinuxMutexSet&) = delete;
    LinuxMutexSet& operator=(const LinuxMutexSet&) = delete;
    ~LinuxMutexSet();

    static LinuxMutex* GetMutex(MutexID& wanted);
    static LinuxMutexSet* SearchForMutexSet(MutexID& wanted);
    static void ReleaseLinuxMutex(LinuxMutex* mutex);
    LinuxMutex* FindMutex(MutexID& wanted);
    bool UnLinkMutex(LinuxMutex* mutex);

    /** The set that this process has joined last; asked afresh for every lock. */
    [[nodiscard]] OnSet Joined() const { return joined.load(std::memory_order_acquire); }
    /** Joins the set of this name again, unless another thread has done so since it was `gone`. */
    OnSet JoinAgain(OnSet gone);
    /** Gives back what this process held before it executed its present program. */
    void GiveBackLocksOfFormerProgram() const;
    /** Why there is no set, or none of its locks. */
    [[nodiscard]] Trouble WhyNone() const { return trouble.load(); }
    void NoteTrouble(Trouble why) { trouble.store(why); }

    static void ForgetJoiningInChild();

    static LinuxMutexSet* MasterListStart;

private:
    [[nodiscard]] int Join();
    [[nodiscard]] int JoinInherited(int set);
    bool Register(int set);
    void Leave();

    std::atomic<OnSet> joined;
    static_assert(std::atomic<OnSet>::is_always_lock_free);
    std::atomic<Trouble> trouble = Trouble{};
    // The process that is counted among the users of that set; changes while one thread joins. A
    // child may be forked without our knowing, with _Fork or by another copy of the C library.
    pid_t registered = kNobody;
    static constexpr pid_t kNobody = 0;
    MutexID id;
    LinuxMutex* mutexes = nullptr;
    LinuxMutexSet* next = nullptr;
};

class LinuxMutex : public Mutex {
public:
    LinuxMutex(const MutexID& mutexId, LinuxMutexSet& ownSet);

    bool Lock() override;
    bool UnLock() override;

    /** Takes the lock for an operation, on a new set if the old one is gone; or none. */
    OnSet Take() {
        // Inline as far as the lock is free: a call that returns after a system call costs twice.
        const OnSet on = set.Joined();
        const Attempt attempt = Try(on);
        return attempt == Attempt::kTaken ? on : TakeAfter(attempt, on);
    }
    /**
     * Gives the lock back where it was taken. On a newer set it would raise a semaphore that
     * nobody lowered, and let two holders in.
     */
    void GiveBack(OnSet takenOn) {
        if (!takenOn.IsOurs()) return;
        TellReleasing();
        if (!TryToOperate(takenOn.set, givingBack) || !takenOn.IsOurs()) GiveBackAfter(takenOn);
    }

    LinuxMutex* setNext = nullptr;
    LinuxMutexSet& set;

private:
    enum class Attempt { kTaken, kNotJoined, kGone, kInterrupted, kRefused };

    static bool TryToOperate(int on, sembuf& operation) { return semop(on, &operation, 1) == 0; }
    Attempt Try(OnSet on) {
        if (!on.IsOurs()) return Attempt::kNotJoined;
        if (!TryToOperate(on.set, taking)) return AfterFailure();
        if (!on.IsOurs()) return AfterFork(on.set);
        TellAcquired();
        return Attempt::kTaken;
    }
    Attempt AfterFailure();
    Attempt AfterFork(int takenOn);
    OnSet TakeAfter(Attempt attempt, OnSet on);
    bool GiveBackAfter(OnSet takenOn);
    [[nodiscard]] bool WasOperatedHere(int on) const;
    // ThreadSanitizer sees no ordering in semaphores, so its build is told where it is.
#if defined(__SANITIZE_THREAD__)
    void TellAcquired();
    void TellReleasing();
#else
    void TellAcquired() {}
    void TellReleasing() {}
#endif

    // Made once: the kernel waits for what has only just been stored. Never changed.
    sembuf taking;
    sembuf givingBack;
};

#endif  // MUTEX_H
