/**
 * @file interposed_calls.cpp
 * @brief Every call by which the library could reach a file or a device, in the system's place.
 */
#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "testing/in_process_bus.h"
#include "testing/led_key_files.h"

namespace {

using marvaneusb::testing::InProcessBus;
using marvaneusb::testing::onOtherOpen;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool TakesMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

int Open(const char* path, int flags, mode_t mode) {
    path = led_key_files::Lead(path);
    if (const auto taken = InProcessBus::Instance().Open(path, flags)) return *taken;
    static auto* next = Next<int(const char*, int, ...)>("open");
    const int descriptor = next(path, flags, mode);
    InProcessBus::Instance().Close(descriptor);  // a board's that was closed past us
    if (onOtherOpen) {
        const int error = errno;
        onOtherOpen(path);
        errno = error;
    }
    return descriptor;
}

int Fcntl(int descriptor, int command, void* argument) {
    static auto* next = Next<int(int, int, ...)>("fcntl");
    const int result = next(descriptor, command, argument);
    const bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    if (copies && result >= 0) InProcessBus::Instance().Duplicated(descriptor, result);
    return result;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = TakesMode(flags) ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return Open(path, flags, mode);
}

// On 64-bit Linux the two are one function, here and below.
int open64(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = TakesMode(flags) ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return Open(path, flags, mode);
}

int __open_2(const char* path, int flags) {
    return Open(path, flags, 0);
}

int __open64_2(const char* path, int flags) {
    return Open(path, flags, 0);
}

std::FILE* fopen(const char* path, const char* mode) {
    if (const auto taken = InProcessBus::Instance().OpenFile(path)) return *taken;
    static auto* next = Next<std::FILE*(const char*, const char*)>("fopen");
    return next(led_key_files::Lead(path), mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
    return fopen(path, mode);
}

int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    if (const auto taken = InProcessBus::Instance().Ioctl(descriptor, request, argument)) {
        return *taken;
    }
    static auto* next = Next<int(int, unsigned long, ...)>("ioctl");
    return next(descriptor, request, argument);
}

int fcntl(int descriptor, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    return Fcntl(descriptor, command, argument);
}

int fcntl64(int descriptor, int command, ...) {
    std::va_list rest;
    va_start(rest, command);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    return Fcntl(descriptor, command, argument);
}

int close(int descriptor) {
    InProcessBus::Instance().Close(descriptor);
    static auto* next = Next<int(int)>("close");
    return next(descriptor);
}

}  // extern "C"
#pragma GCC visibility pop
