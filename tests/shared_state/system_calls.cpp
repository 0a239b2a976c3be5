/**
 * @file system_calls.cpp
 * @brief Watches the program's System V and flock calls.
 */
#include "system_calls.h"

#include <sys/file.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

constexpr std::size_t kSegmentRoom = 65536;

std::atomic<int> made = 0;
system_calls::Watcher watching;
bool guarding = false;
bool refusing = false;

template <class... Arguments>
long Call(const char* name, long number, Arguments... arguments) {
    const long result = syscall(number, arguments...);
    const int error = errno;
    const int call = ++made;
    if (watching) watching(name, result, call);
    errno = error;
    return result;
}

bool IsRefused(int command) {
    if (!refusing || command != IPC_RMID) return false;
    errno = EPERM;
    return true;
}

}  // namespace

void system_calls::Watch(Watcher watcher) {
    watching = std::move(watcher);
    made = 0;
}

int system_calls::Made() {
    return made;
}

void system_calls::RefuseRemoval() {
    refusing = true;
}

void system_calls::AttachBetweenGuards() {
    guarding = true;
}

extern "C" {

int semget(key_t key, int semaphores, int flags) {
    return static_cast<int>(Call("semget", SYS_semget, key, semaphores, flags));
}

int semop(int set, sembuf* operations, std::size_t count) {
    return static_cast<int>(Call("semop", SYS_semtimedop, set, operations, count, nullptr));
}

int semctl(int set, int semaphore, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    const long argument = va_arg(rest, long);
    va_end(rest);
    if (IsRefused(command)) return -1;
    return static_cast<int>(Call("semctl", SYS_semctl, set, semaphore, command, argument));
}

int shmget(key_t key, std::size_t size, int flags) {
    return static_cast<int>(Call("shmget", SYS_shmget, key, size, flags));
}

void* shmat(int segment, const void* address, int flags) {
    if (guarding && address == nullptr) {
        auto* place = static_cast<char*>(
            mmap(nullptr, 3 * kSegmentRoom, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        address = place + kSegmentRoom;
        flags |= SHM_REMAP;
    }
    return reinterpret_cast<void*>(Call("shmat", SYS_shmat, segment, address, flags));
}

int shmdt(const void* address) {
    return static_cast<int>(Call("shmdt", SYS_shmdt, address));
}

int shmctl(int segment, int command, shmid_ds* state) {
    if (IsRefused(command)) return -1;
    return static_cast<int>(Call("shmctl", SYS_shmctl, segment, command, state));
}

int flock(int descriptor, int operation) noexcept {
    return static_cast<int>(Call("flock", SYS_flock, descriptor, operation));
}

}  // extern "C"
