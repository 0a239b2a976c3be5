/**
 * @file mutex.cpp
 * @brief Named locks between processes, on System V semaphore sets.
 */
#include "mutex.h"

#include <sys/ipc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>

#include "chain.h"
#include "key_file.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

constexpr unsigned short kUserCount = 0;  // the semaphore that counts the users
constexpr int kPermissions = 0666;
// How often a set may vanish between joining and use before we believe that somebody means it.
constexpr int kMostJoins = 100;

// Argument of semctl; the C library leaves its definition to the program.
union SemaphoreArgument {
    int val;
    semid_ds* buf;
};

/** One semop, repeated while signals interrupt it. */
bool Operate(int set, sembuf operation) {
    while (semop(set, &operation, 1) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

unsigned short SemaphoreOf(const MutexID& id) {
    return static_cast<unsigned short>(id.index + 1);
}

bool SetIsGone(int error) {
    return error == EIDRM || error == EINVAL;
}

/** What the kernel knows of a set; nothing, and errno, when it does not say. */
std::optional<semid_ds> StateOf(int set) {
    semid_ds state = {};
    SemaphoreArgument argument = {};
    argument.buf = &state;
    if (semctl(set, 0, IPC_STAT, argument) != 0) return std::nullopt;
    return state;
}

/** As a creator leaves a set that dies before it registers: locks raised in turn, or none yet. */
bool IsUnfinished(int set, const semid_ds& state, int count) {
    if (state.sem_nsems != static_cast<unsigned long>(count) + 1) return false;
    if (semctl(set, kUserCount, GETVAL) != 0) return false;
    int before = 1;
    for (int lock = 1; lock <= count; ++lock) {
        const int value = semctl(set, lock, GETVAL);
        if (value < 0 || value > before) return false;
        before = value;
    }
    return true;
}

bool Initialise(int set, int count) {
    SemaphoreArgument value = {};
    value.val = 0;
    if (semctl(set, kUserCount, SETVAL, value) != 0) return false;
    value.val = 1;
    for (int lock = 1; lock <= count; ++lock) {
        if (semctl(set, lock, SETVAL, value) != 0) return false;
    }
    return true;
}

/** A look for the set of a name: the set, or why there is none. */
struct Look {
    static Look Without(Trouble trouble) { return {OnSet::kNone, trouble}; }
    /** Removed since it was found, by somebody who asks for no lock. */
    static Look AtVanished() { return Without(Trouble::Of(Trouble::Kind::kVanishing)); }
    static Look AtError(int error) {
        return SetIsGone(error) ? AtVanished()
                                : Without(Trouble::Of(Trouble::Kind::kRefused, error));
    }

    int set;
    Trouble trouble = {};
};

Look InitialiseSet(int set, int count) {
    return Initialise(set, count) ? Look{set} : Look::AtError(errno);
}

/** After a set could not be found, with that error. */
Look CreateSet(key_t key, int count, int error) {
    const int set = semget(key, count + 1, IPC_CREAT | IPC_EXCL | kPermissions);
    if (set >= 0) return InitialiseSet(set, count);
    // There is one, and it was refused.
    if (errno == EEXIST) return Look::Without(Trouble::Of(Trouble::Kind::kRefused, error));
    return Look::Without(Trouble::Of(Trouble::Kind::kNotCreated, errno));
}

/** The finished set of this name, created or finished if need be. */
Look FindOrCreate(const KeyFileLock& file, const MutexID& id) {
    const key_t key = file.Key(id.index + 1);
    if (key == KeyFileLock::kNoKey) return Look::Without(Trouble::WithoutLock(file));

    const int found = semget(key, id.count + 1, kPermissions);
    if (found < 0) {
        const int error = errno;
        return file.Held() ? CreateSet(key, id.count, error)
                           : Look::Without(Trouble::WithoutLock(file));
    }
    const std::optional<semid_ds> state = StateOf(found);
    if (!state) return Look::AtError(errno);
    if (state->sem_otime != 0) return {found};
    if (!file.Held()) return Look::Without(Trouble::WithoutLock(file));
    if (IsUnfinished(found, *state, id.count)) return InitialiseSet(found, id.count);
    return StateOf(found) ? Look::Without(Trouble::Of(Trouble::Kind::kStranger))
                          : Look::AtError(errno);
}

// Between the threads of this process: one joins, the others find the new set.
constinit std::mutex joining;

}  // namespace

MutexID::MutexID(const char* mutexName, int mutexIndex, int mutexCount)
    : name{}, count(mutexCount), index(mutexIndex) {
    std::snprintf(name, sizeof name, "%s", mutexName);
}

bool MutexID::SameName(const MutexID& other) const {
    return std::strncmp(name, other.name, sizeof name) == 0;
}

bool MutexID::SameLock(const MutexID& other) const {
    return index == other.index && SameName(other);
}

constinit Mutex* Mutex::MutexChain = nullptr;
constinit LinuxMutexSet* LinuxMutexSet::MasterListStart = nullptr;

Mutex* Mutex::FindMutex(MutexID& wanted) {
    for (Mutex* mutex = MutexChain; mutex != nullptr; mutex = mutex->chainNext) {
        if (mutex->id.SameLock(wanted)) return mutex;
    }
    return nullptr;
}

Mutex* Mutex::GetLocalMutex(MutexID& wanted) {
    Mutex* mutex = FindMutex(wanted);
    if (mutex == nullptr) {
        mutex = LinuxMutexSet::GetMutex(wanted);
        if (mutex == nullptr) return nullptr;
        mutex->chainNext = MutexChain;
        MutexChain = mutex;
    }
    ++mutex->refCount;
    return mutex;
}

void Mutex::ReleaseLocalMutex(Mutex* mutex) {
    if (--mutex->refCount != 0) return;
    if (!Unlink(MutexChain, &Mutex::chainNext, mutex)) return;
    LinuxMutexSet::ReleaseLinuxMutex(static_cast<LinuxMutex*>(mutex));
}

LinuxMutex::LinuxMutex(const MutexID& mutexId, LinuxMutexSet& ownSet)
    : Mutex(mutexId),
      set(ownSet),
      taking{SemaphoreOf(mutexId), -1, SEM_UNDO},
      givingBack{SemaphoreOf(mutexId), 1, SEM_UNDO} {}

#if defined(__SANITIZE_THREAD__)
void LinuxMutex::TellAcquired() {
    __tsan_acquire(this);
}
void LinuxMutex::TellReleasing() {
    __tsan_release(this);
}
#endif

bool LinuxMutex::Lock() {
    Attempt attempt = Attempt::kInterrupted;
    while (attempt == Attempt::kInterrupted)
        attempt = Try(set.Joined());
    return attempt == Attempt::kTaken;
}

bool LinuxMutex::UnLock() {
    const OnSet on = set.Joined();
    TellReleasing();
    return on.IsOurs() && Operate(on.set, givingBack);
}

LinuxMutex::Attempt LinuxMutex::AfterFailure() {
    if (errno == EINTR) return Attempt::kInterrupted;
    if (SetIsGone(errno)) return Attempt::kGone;
    set.NoteTrouble(Trouble::Of(Trouble::Kind::kRefused, errno));
    return Attempt::kRefused;
}

/**
 * A signal handler forked this child around the system call: what the parent took is the parent's,
 * and what was taken here was taken on a set that the child has not joined.
 */
LinuxMutex::Attempt LinuxMutex::AfterFork(int takenOn) {
    if (WasOperatedHere(takenOn)) Operate(takenOn, givingBack);
    return Attempt::kNotJoined;
}

OnSet LinuxMutex::TakeAfter(Attempt attempt, OnSet on) {
    for (int joins = 0; attempt != Attempt::kTaken; attempt = Try(on)) {
        if (attempt == Attempt::kInterrupted) continue;
        if (attempt == Attempt::kRefused) return {};
        if (++joins > kMostJoins) {
            set.NoteTrouble(Trouble::Of(Trouble::Kind::kVanishing));
            return {};
        }
        on = set.JoinAgain(on);
        if (on.IsNone()) return {};
    }
    return on;
}

bool LinuxMutex::GiveBackAfter(OnSet takenOn) {
    if (takenOn.IsOurs()) return Operate(takenOn.set, givingBack);
    // A child that was forked around the system call: what it has given back is its parent's.
    return !WasOperatedHere(takenOn.set) || Operate(takenOn.set, taking);
}

bool LinuxMutex::WasOperatedHere(int on) const {
    return semctl(on, SemaphoreOf(id), GETPID) == getpid();
}

LinuxMutexSet::LinuxMutexSet(MutexID& creator) : joined(OnSet{}), id(creator) {
    joined.store({Join(), Forks::Count()});
}

LinuxMutexSet::~LinuxMutexSet() {
    Leave();
}

LinuxMutex* LinuxMutexSet::GetMutex(MutexID& wanted) {
    LinuxMutexSet* set = SearchForMutexSet(wanted);
    if (set == nullptr) {
        set = new (std::nothrow) LinuxMutexSet(wanted);
        if (set == nullptr) return nullptr;
        set->next = MasterListStart;
        MasterListStart = set;
    }
    LinuxMutex* mutex = set->FindMutex(wanted);
    if (mutex != nullptr) return mutex;
    mutex = new (std::nothrow) LinuxMutex(wanted, *set);
    if (mutex == nullptr) return nullptr;
    mutex->setNext = set->mutexes;
    set->mutexes = mutex;
    return mutex;
}

LinuxMutexSet* LinuxMutexSet::SearchForMutexSet(MutexID& wanted) {
    for (LinuxMutexSet* set = MasterListStart; set != nullptr; set = set->next) {
        if (set->id.SameName(wanted)) return set;
    }
    return nullptr;
}

LinuxMutex* LinuxMutexSet::FindMutex(MutexID& wanted) {
    for (LinuxMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->setNext) {
        if (mutex->id.SameLock(wanted)) return mutex;
    }
    return nullptr;
}

bool LinuxMutexSet::UnLinkMutex(LinuxMutex* mutex) {
    return Unlink(mutexes, &LinuxMutex::setNext, mutex);
}

void LinuxMutexSet::ReleaseLinuxMutex(LinuxMutex* mutex) {
    LinuxMutexSet* set = SearchForMutexSet(mutex->id);
    if (set == nullptr || !set->UnLinkMutex(mutex)) return;
    delete mutex;
    if (set->mutexes != nullptr) return;

    Unlink(MasterListStart, &LinuxMutexSet::next, set);
    delete set;
}

bool LinuxMutexSet::Register(int set) {
    // The process that loaded the library takes its registration back itself, see Leave.
    const short flags = Forks::Count() == 0 ? 0 : SEM_UNDO;
    registered = Operate(set, {kUserCount, 1, flags}) ? getpid() : kNobody;
    return registered != kNobody;
}

int LinuxMutexSet::Join() {
    const KeyFileLock file(KeyPath::OfSet(id.name));
    Look look = Look::AtVanished();
    for (int attempt = 0; attempt < kMostJoins; ++attempt) {
        look = FindOrCreate(file, id);
        // The count of users may be full of processes that died: the locks work all the same.
        if (look.set != OnSet::kNone && (Register(look.set) || !SetIsGone(errno))) break;
        if (look.set == OnSet::kNone && look.trouble.kind != Trouble::Kind::kVanishing) break;
        look = Look::AtVanished();
    }
    trouble.store(look.trouble);
    return look.set;
}

/**
 * A child goes on with its parent's set as long as there is one, for it has the parent's segment:
 * what the key file's path leads to may be another by now.
 */
int LinuxMutexSet::JoinInherited(int set) {
    const KeyFileLock file(KeyPath::OfSet(id.name));
    return Register(set) ? set : OnSet::kNone;
}

OnSet LinuxMutexSet::JoinAgain(OnSet gone) {
    const std::lock_guard lock(joining);
    const OnSet before = joined.load();
    if (before.IsOurs() && before != gone) return before;  // another thread has joined meanwhile

    // Should a signal handler fork meanwhile, the child finds that it has not joined.
    OnSet now = {OnSet::kNone, Forks::Count()};
    if (!before.IsOurs()) now.set = JoinInherited(before.set);
    if (now.IsNone()) now.set = Join();
    joined.store(now, std::memory_order_release);
    return now;
}

void LinuxMutexSet::ForgetJoiningInChild() {
    // Whichever thread held it does not exist here.
    new (&joining) std::mutex;
}

void LinuxMutexSet::GiveBackLocksOfFormerProgram() const {
    const int set = joined.load().set;
    for (int lock = 1; lock <= id.count; ++lock) {
        if (semctl(set, lock, GETVAL) != 0 || semctl(set, lock, GETPID) != getpid()) continue;
        Operate(set, {static_cast<unsigned short>(lock), 1, SEM_UNDO | IPC_NOWAIT});
    }
}

void LinuxMutexSet::Leave() {
    const OnSet on = joined.load();
    // A child that never joined is counted nowhere: its parent is.
    if (registered != getpid() || !on.IsOurs()) return;

    const KeyFileLock file(KeyPath::OfSet(id.name));
    const short undo = Forks::Count() == 0 ? 0 : SEM_UNDO;
    Operate(on.set, {kUserCount, -1, static_cast<short>(IPC_NOWAIT | undo)});
    if (!file.Held()) return;
    if (semctl(on.set, kUserCount, GETVAL) <= 0) semctl(on.set, 0, IPC_RMID);
}
