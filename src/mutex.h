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
 * register it does not unregister.
 *
 * The lists and reference counts change only while the library is loaded or unloaded, on one
 * thread.
 */
#ifndef MUTEX_H
#define MUTEX_H

#include <sys/sem.h>

#include <atomic>
#include <cerrno>

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

class LinuxMutex : public Mutex {
public:
    static constexpr int kNoSet = -1;

    LinuxMutex(const MutexID& mutexId, int setId);

    bool Lock() override;
    bool UnLock() override;

    /**
     * Takes the lock for an operation, on a new set if the old one is gone. Yields the id of the
     * set on which it is held, or kNoSet.
     */
    int Take() {
        // Inline as far as the lock is free: a call that returns after a system call costs twice.
        if (!HasJoined()) return TakeAfterJoining(kNoSet, kNotTried);
        const int set = semid.load(std::memory_order_relaxed);
        if (!Operate(set, taking)) return TakeAfterJoining(set, errno);
        TellAcquired();
        return set;
    }
    /**
     * Gives the lock back on the set on which it was taken. On a newer set it would raise a
     * semaphore that nobody lowered, and let two holders in.
     */
    void GiveBack(int takenOn) {
        TellReleasing();
        if (!Operate(takenOn, givingBack)) GiveBackAgain(takenOn);
    }

    LinuxMutex* setNext = nullptr;
    // Both change when the process joins anew, while other threads lock.
    std::atomic<int> semid;
    std::atomic<int> joinedIn;  // how many forks before this process joined

    // Forks between the process that loaded the library and this one. Who joined before the last
    // of them was another process.
    static std::atomic<int> forks;
    static int Forks() { return forks.load(std::memory_order_relaxed); }

private:
    static bool Operate(int set, sembuf& operation) { return semop(set, &operation, 1) == 0; }
    bool LockOn(int set);
    /** In a forked child that has not joined, the set is its parent's affair. */
    [[nodiscard]] bool HasJoined() const {
        return joinedIn.load(std::memory_order_acquire) == Forks();
    }
    static constexpr int kNotTried = 0;
    int TakeAfterJoining(int lastTried, int error);
    bool GiveBackAgain(int takenOn);
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

    /**
     * Joins the set of this name again, unless another thread has done so since the caller saw
     * the id `gone`.
     */
    void JoinAgain(int gone);

    static LinuxMutexSet* MasterListStart;

private:
    void Join();
    bool JoinInherited();
    void Leave();
    void ShareWithLocks();

    int semid = LinuxMutex::kNoSet;
    MutexID id;
    LinuxMutex* mutexes = nullptr;
    LinuxMutexSet* next = nullptr;
    int registeredIn = LinuxMutex::kNoSet;  // the set whose users this process is counted among
    short registrationFlags = 0;            // SEM_UNDO in a forked child
    int joinedIn;                           // how many forks before this process joined
};

#endif  // MUTEX_H
