/**
 * @file led_open.cpp
 * @brief open of a program that is led by a library that it preloads.
 */
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdarg>

#include "testing/led_key_files.h"

extern "C" int open(const char* path, int flags, ...) {
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    using Open = int(const char*, int, ...);
    static auto* next = reinterpret_cast<Open*>(dlsym(RTLD_NEXT, "open"));
    return next(led_key_files::Lead(path), flags, mode);
}
