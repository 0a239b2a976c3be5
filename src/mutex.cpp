/**
 * @file mutex.cpp
 * @brief Named locks between processes, on System V semaphore sets.
 */
#include "mutex.h"

#include <pthread.h>
#include <sys/ipc.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

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
bool Operate(int set, unsigned short semaphore, short change, short flags) {
    sembuf operation = {semaphore, change, flags};
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

semid_ds StateOf(int set) {
    semid_ds state = {};
    SemaphoreArgument argument = {};
    argument.buf = &state;
    return semctl(set, 0, IPC_STAT, argument) == 0 ? state : semid_ds{};
}

/** As a creator leaves a set that dies before it registers: locks raised in turn, or none yet. */
bool IsUnfinished(int set, int count) {
    if (StateOf(set).sem_nsems != static_cast<unsigned long>(count) + 1) return false;
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

/** The finished set of this key, created if need be; kNoSet when there can be none. */
int FindOrCreate(const KeyFileLock& file, const MutexID& id) {
    const key_t key = file.Key(id.index + 1);
    if (key == KeyFileLock::kNoKey) return LinuxMutex::kNoSet;

    int set = semget(key, id.count + 1, kPermissions);
    if (set >= 0 && StateOf(set).sem_otime != 0) return set;
    if (!file.Held()) return LinuxMutex::kNoSet;
    if (set >= 0 && !IsUnfinished(set, id.count)) return LinuxMutex::kNoSet;
    if (set < 0) set = semget(key, id.count + 1, IPC_CREAT | IPC_EXCL | kPermissions);
    return set >= 0 && Initialise(set, id.count) ? set : LinuxMutex::kNoSet;
}

struct KeyPath {
    explicit KeyPath(const MutexID& id) {
        std::snprintf(text, sizeof text, "/tmp/Sem_%.*s", MutexID::kNameRoom, id.name);
    }
    char text[KeyFileLock::kPathRoom];
};

// Between the threads of this process: one joins, the others find the new set.
constinit std::mutex joining;

void NoteFork() {
    // Whichever thread held it does not exist here.
    new (&joining) std::mutex;
    LinuxMutex::forks.fetch_add(1, std::memory_order_relaxed);
}

void RegisterForFork() {
    static const int registered = pthread_atfork(nullptr, nullptr, NoteFork);
    static_cast<void>(registered);
}

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

constinit std::atomic<int> LinuxMutex::forks = 0;
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
    Mutex** link = &MutexChain;
    while (*link != nullptr && *link != mutex)
        link = &(*link)->chainNext;
    if (*link == nullptr) return;
    *link = mutex->chainNext;
    LinuxMutexSet::ReleaseLinuxMutex(static_cast<LinuxMutex*>(mutex));
}

LinuxMutex::LinuxMutex(const MutexID& mutexId, int setId)
    : Mutex(mutexId),
      semid(setId),
      joinedIn(LinuxMutex::Forks()),
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
    return LockOn(semid.load(std::memory_order_relaxed));
}

bool LinuxMutex::LockOn(int set) {
    while (!Operate(set, taking)) {
        if (errno != EINTR) return false;
    }
    TellAcquired();
    return true;
}

bool LinuxMutex::UnLock() {
    TellReleasing();
    return GiveBackAgain(semid.load(std::memory_order_relaxed));
}

int LinuxMutex::TakeAfterJoining(int lastTried, int error) {
    for (int attempt = 0; attempt < kMostJoins; ++attempt) {
        if (!HasJoined() || SetIsGone(error)) {
            LinuxMutexSet* own = LinuxMutexSet::SearchForMutexSet(id);
            if (own == nullptr) return kNoSet;
            own->JoinAgain(lastTried);
        } else if (error != kNotTried && error != EINTR) {
            return kNoSet;
        }
        lastTried = semid.load(std::memory_order_relaxed);
        if (lastTried == kNoSet) return kNoSet;
        if (LockOn(lastTried)) return lastTried;
        error = errno;
    }
    return kNoSet;
}

bool LinuxMutex::GiveBackAgain(int takenOn) {
    while (!Operate(takenOn, givingBack)) {
        if (errno != EINTR) return false;
    }
    return true;
}

LinuxMutexSet::LinuxMutexSet(MutexID& creator) : id(creator), joinedIn(LinuxMutex::Forks()) {
    RegisterForFork();
    Join();
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
    mutex = new (std::nothrow) LinuxMutex(wanted, set->semid);
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
    LinuxMutex** link = &mutexes;
    while (*link != nullptr && *link != mutex)
        link = &(*link)->setNext;
    if (*link == nullptr) return false;
    *link = mutex->setNext;
    return true;
}

void LinuxMutexSet::ReleaseLinuxMutex(LinuxMutex* mutex) {
    LinuxMutexSet* set = SearchForMutexSet(mutex->id);
    if (set == nullptr || !set->UnLinkMutex(mutex)) return;
    delete mutex;
    if (set->mutexes != nullptr) return;

    LinuxMutexSet** link = &MasterListStart;
    while (*link != set)
        link = &(*link)->next;
    *link = set->next;
    delete set;
}

void LinuxMutexSet::Join() {
    const KeyPath path(id);
    const KeyFileLock file(path.text);
    for (int attempt = 0; attempt < kMostJoins; ++attempt) {
        semid = FindOrCreate(file, id);
        if (semid == LinuxMutex::kNoSet || semid == registeredIn) return;
        if (Operate(semid, kUserCount, 1, registrationFlags)) {
            registeredIn = semid;
            return;
        }
        // The count may be full of processes that died: the locks work all the same.
        if (!SetIsGone(errno)) return;
        // Removed since we found it, by somebody who asks for no lock.
    }
    semid = LinuxMutex::kNoSet;
}

/**
 * A child goes on with its parent's set as long as there is one, for it has the parent's segment:
 * what the key file's path leads to may be another by now.
 */
bool LinuxMutexSet::JoinInherited() {
    const KeyPath path(id);
    const KeyFileLock file(path.text);
    if (!Operate(semid, kUserCount, 1, registrationFlags)) return false;
    registeredIn = semid;
    return true;
}

void LinuxMutexSet::JoinAgain(int gone) {
    const std::lock_guard lock(joining);
    const bool inChild = joinedIn != LinuxMutex::Forks();
    if (!inChild && semid != gone) return;  // another thread has joined meanwhile
    if (inChild) {
        registeredIn = LinuxMutex::kNoSet;
        registrationFlags = SEM_UNDO;
    }
    if (!inChild || !JoinInherited()) Join();
    joinedIn = LinuxMutex::Forks();
    ShareWithLocks();
}

void LinuxMutexSet::ShareWithLocks() {
    for (LinuxMutex* mutex = mutexes; mutex != nullptr; mutex = mutex->setNext) {
        mutex->semid.store(semid, std::memory_order_relaxed);
        mutex->joinedIn.store(joinedIn, std::memory_order_release);
    }
}

void LinuxMutexSet::Leave() {
    // A child that never joined is counted nowhere: its parent is.
    if (registeredIn == LinuxMutex::kNoSet || joinedIn != LinuxMutex::Forks()) return;

    const KeyPath path(id);
    const KeyFileLock file(path.text);
    const auto flags = static_cast<short>(IPC_NOWAIT | registrationFlags);
    Operate(registeredIn, kUserCount, -1, flags);
    if (!file.Held()) return;
    if (semctl(registeredIn, kUserCount, GETVAL) <= 0) semctl(registeredIn, 0, IPC_RMID);
}
