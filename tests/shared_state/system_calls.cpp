/**
 * @file system_calls.cpp
 * @brief Counts the program's System V and flock calls, and may end it after any of them.
 */
#include "system_calls.h"

#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {

constexpr int kNever = -1;
constexpr std::size_t kSegmentRoom = 65536;

std::atomic<int> made = 0;
std::atomic<int> interrupted = 0;
std::atomic<int> lastAllowed = kNever;
std::atomic<void (*)(const char*, long)> watching = nullptr;
std::atomic<bool> guarding = false;

long After(const char* name, long result) {
    const int error = errno;
    if (const auto watcher = watching.load()) watcher(name, result);
    if (made.fetch_add(1) + 1 == lastAllowed) {
        kill(getpid(), SIGKILL);
        pause();
    }
    errno = error;
    return result;
}

}  // namespace

namespace system_calls {

void CountAndKillAfter(int last) {
    made = 0;
    interrupted = 0;
    lastAllowed = last;
}

void Count() {
    CountAndKillAfter(kNever);
}

int Made() {
    return made;
}

int Interrupted() {
    return interrupted;
}

void Watch(void (*watcher)(const char* name, long result)) {
    watching = watcher;
}

void AttachBetweenGuards(bool guarded) {
    guarding = guarded;
}

}  // namespace system_calls

extern "C" {

int semget(key_t key, int semaphores, int flags) {
    return static_cast<int>(After("semget", syscall(SYS_semget, key, semaphores, flags)));
}

int semop(int set, sembuf* operations, std::size_t count) {
    const long result = syscall(SYS_semtimedop, set, operations, count, nullptr);
    if (result < 0 && errno == EINTR) ++interrupted;
    return static_cast<int>(After("semop", result));
}

int semctl(int set, int semaphore, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    const long argument = va_arg(rest, long);
    va_end(rest);
    return static_cast<int>(
        After("semctl", syscall(SYS_semctl, set, semaphore, command, argument)));
}

int shmget(key_t key, std::size_t size, int flags) {
    return static_cast<int>(After("shmget", syscall(SYS_shmget, key, size, flags)));
}

void* shmat(int segment, const void* address, int flags) {
    if (guarding && address == nullptr) {
        auto* place = static_cast<char*>(
            mmap(nullptr, 3 * kSegmentRoom, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        address = place + kSegmentRoom;
        flags |= SHM_REMAP;
    }
    return reinterpret_cast<void*>(After("shmat", syscall(SYS_shmat, segment, address, flags)));
}

int shmdt(const void* address) {
    return static_cast<int>(After("shmdt", syscall(SYS_shmdt, address)));
}

int shmctl(int segment, int command, shmid_ds* state) {
    return static_cast<int>(After("shmctl", syscall(SYS_shmctl, segment, command, state)));
}

int flock(int descriptor, int operation) noexcept {
    return static_cast<int>(After("flock", syscall(SYS_flock, descriptor, operation)));
}

}  // extern "C"
