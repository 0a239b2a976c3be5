/**
 * @file key_file.cpp
 * @brief The locks on key files, and what becomes of them in a forked child.
 */
#include "key_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <mutex>

namespace {

// One thread loads or unloads, and one joins a set anew; each has one file open.
constexpr int kOpenRoom = 8;
// Somebody who replaces the file this often does it on purpose.
constexpr int kMostReplacements = 100;

int OpenKeyFile(const char* path) {
    // O_NONBLOCK: a named pipe in the file's place must not hold us up.
    constexpr int kAlways = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int created = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | kAlways, 0777);
    return created >= 0 ? created : open(path, O_RDONLY | kAlways);
}

/**
 * The key files that this process has open. A lock belongs to the open file, which fork copies: a
 * child that kept its copy would keep the lock alive after its parent has died. No thread opens or
 * closes one while another one forks, for then the child would not know which to close.
 */
class OpenKeyFiles {
public:
    static int Open(const char* path) {
        const std::lock_guard lock(guard);
        const int descriptor = OpenKeyFile(path);
        if (descriptor >= 0) Replace(kEmpty, descriptor + 1);
        RegisterForFork();
        return descriptor;
    }
    static void Close(int descriptor) {
        const std::lock_guard lock(guard);
        Replace(descriptor + 1, kEmpty);
        close(descriptor);
    }

private:
    static void Replace(int wanted, int replacement) {
        int* slot = std::find(std::begin(slots), std::end(slots), wanted);
        if (slot != std::end(slots)) *slot = replacement;
    }
    static void RegisterForFork() {
        static const int registered =
            pthread_atfork([] { guard.lock(); }, [] { guard.unlock(); }, CloseAllInChild);
        static_cast<void>(registered);
    }
    static void CloseAllInChild() {
        for (int& slot : slots) {
            if (slot != kEmpty) close(slot - 1);
            slot = kEmpty;
        }
        guard.unlock();
    }

    static constexpr int kEmpty = 0;  // else a descriptor plus 1
    static constinit std::mutex guard;
    static constinit int slots[kOpenRoom];
};

constinit std::mutex OpenKeyFiles::guard;
constinit int OpenKeyFiles::slots[kOpenRoom] = {};

bool WaitForLock(int descriptor) {
    while (flock(descriptor, LOCK_EX) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

bool PathLeadsTo(const char* path, int descriptor) {
    struct stat named;
    struct stat opened;
    return stat(path, &named) == 0 && fstat(descriptor, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

}  // namespace

KeyFileLock::KeyFileLock(const char* path) : path_(path) {
    for (int attempt = 0; attempt < kMostReplacements; ++attempt) {
        const Outcome outcome = TryLock();
        if (outcome != Outcome::kReplaced) return;
        GiveBack();
    }
}

KeyFileLock::~KeyFileLock() {
    GiveBack();
}

key_t KeyFileLock::Key(int projectId) const {
    if (!Held()) return ftok(path_, projectId);
    // Of the file that is locked, whatever becomes of the path meanwhile.
    char locked[32];
    std::snprintf(locked, sizeof locked, "/proc/self/fd/%d", descriptor_);
    const key_t key = ftok(locked, projectId);
    return key != kNoKey ? key : ftok(path_, projectId);
}

KeyFileLock::Outcome KeyFileLock::TryLock() {
    descriptor_ = OpenKeyFiles::Open(path_);
    if (descriptor_ < 0) return Outcome::kNoLock;
    if (!WaitForLock(descriptor_)) {
        GiveBack();
        return Outcome::kNoLock;
    }
    // While we waited a cleaner may have removed the file, and others lock a new one by now.
    return PathLeadsTo(path_, descriptor_) ? Outcome::kHeld : Outcome::kReplaced;
}

void KeyFileLock::GiveBack() {
    if (descriptor_ < 0) return;
    // Explicitly: closing would leave the lock with a copy that a child may have.
    flock(descriptor_, LOCK_UN);
    OpenKeyFiles::Close(descriptor_);
    descriptor_ = -1;
}
