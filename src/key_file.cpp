/**
 * @file key_file.cpp
 * @brief The locks on key files, and what becomes of them in a forked child.
 */
#include "key_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <thread>

#include "forks.h"
#include "open_file.h"

namespace {

using Clock = std::chrono::steady_clock;

// One thread loads or unloads, and one joins a set anew; each has one file open.
constexpr int kOpenRoom = 8;
// Somebody who replaces the file this often does it on purpose.
constexpr int kMostReplacements = 100;
constexpr auto kLongestWait = std::chrono::seconds(10);
constexpr auto kFirstPause = std::chrono::microseconds(50);
constexpr auto kLongestPause = std::chrono::microseconds(2000);

constexpr int kEmpty = 0;  // else a descriptor plus 1
constinit int slots[kOpenRoom] = {};
constinit std::mutex guard;
constinit sigset_t signalsBeforeFork = {};  // of the thread that forks; changes under the guard
// A thread that forks while it has the guard, in a handler of a fault, must not wait for itself.
constinit thread_local bool hasGuard = false;

class Guarded {
public:
    Guarded() : lock_(guard) { hasGuard = true; }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    ~Guarded() { hasGuard = false; }

private:
    std::lock_guard<std::mutex> lock_;
};

bool Replace(int wanted, int replacement) {
    int* slot = std::find(std::begin(slots), std::end(slots), wanted);
    if (slot == std::end(slots)) return false;
    *slot = replacement;
    return true;
}

int OpenKeyFile(const char* path) {
    // O_NONBLOCK: a named pipe in the file's place must not hold us up.
    constexpr int kAlways = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int created = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | kAlways, 0777);
    if (created >= 0) return created;
    const int error = errno;
    const int readable = open(path, O_RDONLY | kAlways);
    // Of a file that is not there, why it cannot be created tells more.
    if (readable < 0 && errno == ENOENT) errno = error;
    return readable;
}

bool PathLeadsTo(const char* path, int descriptor) {
    struct stat named;
    struct stat opened;
    return stat(path, &named) == 0 && fstat(descriptor, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/** The process that holds the flock of a file, as the kernel lists it; 0 when it does not tell. */
pid_t HolderOf(const char* path) {
    struct stat file;
    if (stat(path, &file) != 0) return 0;
    const OpenFile locks = OpenToRead("/proc/locks");
    char line[256];
    while (locks && std::fgets(line, sizeof line, locks.get()) != nullptr) {
        // 1: FLOCK  ADVISORY  WRITE 1234 08:01:131074 0 EOF; who waits stands behind an arrow.
        int holder = 0;
        unsigned deviceMajor = 0;
        unsigned deviceMinor = 0;
        unsigned long inode = 0;
        if (std::sscanf(line, "%*d: FLOCK %*s %*s %d %x:%x:%lu", &holder, &deviceMajor,
                        &deviceMinor, &inode) == 4 &&
            makedev(deviceMajor, deviceMinor) == file.st_dev && inode == file.st_ino) {
            return holder;
        }
    }
    return 0;
}

/** Kinds of files that kept this process waiting in vain. */
constinit std::atomic<bool> waitedInVain[2] = {};

std::atomic<bool>& WaitedInVain(const KeyPath& path) {
    return waitedInVain[static_cast<int>(path.Names())];
}

}  // namespace

KeyPath::KeyPath(Kind kind, const char* name) : kind_(kind) {
    std::snprintf(text_, sizeof text_, "/tmp/%s%s", kind == Kind::kSet ? "Sem_" : "", name);
}

KeyFileLock::KeyFileLock(const KeyPath& path) : path_(path) {
    const auto deadline =
        Clock::now() + (WaitedInVain(path_) ? Clock::duration::zero() : kLongestWait);
    auto pause = kFirstPause;
    for (int replacements = 0; replacements < kMostReplacements;) {
        const Outcome outcome = TryLock();
        WaitedInVain(path_) = WaitedInVain(path_) && outcome != Outcome::kHeld;
        if (outcome == Outcome::kHeld || outcome == Outcome::kNoLock) return;
        GiveBack();
        if (outcome == Outcome::kReplaced) {
            ++replacements;
        } else if (Clock::now() < deadline) {
            std::this_thread::sleep_for(pause);
            pause = std::min(2 * pause, kLongestPause);
        } else {
            WaitedInVain(path_) = true;
            refusal_ = {0, HolderOf(path_.Text())};
            return;
        }
    }
    refusal_ = {ESTALE, 0};
}

KeyFileLock::~KeyFileLock() {
    GiveBack();
}

key_t KeyFileLock::Key(int projectId) const {
    if (!Held()) return ftok(path_.Text(), projectId);
    // Of the file that is locked, whatever becomes of the path meanwhile.
    char locked[32];
    std::snprintf(locked, sizeof locked, "/proc/self/fd/%d", descriptor_);
    const key_t key = ftok(locked, projectId);
    return key != kNoKey ? key : ftok(path_.Text(), projectId);
}

KeyFileLock::Outcome KeyFileLock::TryLock() {
    signals_.emplace();
    const int forks = Forks::Count();
    descriptor_ = OpenKeyFiles::Open(path_.Text());
    if (descriptor_ < 0) return Refuse(errno);
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK || errno == EINTR ? Outcome::kTaken : Refuse(errno);
    }
    // While we waited a cleaner may have removed the file, and others lock a new one by now. In a
    // child the open file, and its lock, are the parent's.
    return forks == Forks::Count() && PathLeadsTo(path_.Text(), descriptor_) ? Outcome::kHeld
                                                                             : Outcome::kReplaced;
}

KeyFileLock::Outcome KeyFileLock::Refuse(int error) {
    refusal_ = {error, 0};
    GiveBack();
    return Outcome::kNoLock;
}

void KeyFileLock::GiveBack() {
    if (descriptor_ >= 0) OpenKeyFiles::Close(descriptor_);
    descriptor_ = -1;
    signals_.reset();
}

int OpenKeyFiles::Open(const char* path) {
    const Guarded guarded;
    const int descriptor = OpenKeyFile(path);
    if (descriptor >= 0) Replace(kEmpty, descriptor + 1);
    Forks::Watch();
    return descriptor;
}

void OpenKeyFiles::Close(int descriptor) {
    const Guarded guarded;
    if (!Replace(descriptor + 1, kEmpty)) return;
    // Explicitly: closing would leave the lock with a copy that a child may have.
    flock(descriptor, LOCK_UN);
    close(descriptor);
}

void OpenKeyFiles::HoldStill() {
    // A handler that forked before GoOn would wait for this thread, which it has interrupted.
    const sigset_t before = BlockSignals();
    if (!hasGuard) guard.lock();
    signalsBeforeFork = before;
}

void OpenKeyFiles::GoOn() {
    const sigset_t before = signalsBeforeFork;
    if (!hasGuard) guard.unlock();
    RestoreSignals(before);
}

void OpenKeyFiles::CloseInChild() {
    for (int& slot : slots) {
        if (slot != kEmpty) close(slot - 1);
        slot = kEmpty;
    }
    GoOn();
}
