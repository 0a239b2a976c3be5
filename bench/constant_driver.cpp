/**
 * @file constant_driver.cpp
 * @brief The constant driver, and the system calls that it takes over.
 */
#include "constant_driver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "testing/led_key_files.h"
#include "testing/transfer_records.h"

namespace {

constexpr int kDeviceCount = 16;

constexpr unsigned char kFirmwareStatus = 74;
unsigned char firmwareStatus = 1;
unsigned long exchanges = 0;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::FILE* FileHolding(const char* text) {
    std::FILE* file = std::tmpfile();
    std::fputs(text, file);
    std::rewind(file);
    return file;
}

bool IsMemoryRead(unsigned char command) {
    return command == 5 || command == 70 || command == 116;
}

/** Fills in a reply and yields its length. */
unsigned Reply(unsigned char command, const unsigned char* payload, unsigned char* reply) {
    constexpr unsigned char kAnswer[5] = {1, 2, 3, 4, 1};
    ++exchanges;
    if (IsMemoryRead(command)) {
        const unsigned length = payload[0];
        std::memset(reply, 0x5A, length);
        return length;
    }
    std::memcpy(reply, kAnswer, sizeof kAnswer);
    if (command == kFirmwareStatus) reply[0] = firmwareStatus;
    return sizeof kAnswer;
}

}  // namespace

void constant_driver::SetFirmwareRunning(bool running) {
    firmwareStatus = running ? 1 : 0;
}

unsigned long constant_driver::Exchanges() {
    return exchanges;
}

extern "C" {

int open(const char* path, int flags, ...) {
    if (std::strncmp(path, "/dev/Kovar_", 11) == 0) return memfd_create("Kovar", MFD_CLOEXEC);
    std::va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    return Next<int(const char*, int, ...)>("open")(led_key_files::Lead(path), flags, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
    int deviceNo = -1;
    if (std::sscanf(path, "/sys/class/Kovar/Kovar_%d/device/", &deviceNo) != 1) {
        return Next<std::FILE*(const char*, const char*)>("fopen")(led_key_files::Lead(path), mode);
    }
    if (deviceNo < 0 || deviceNo >= kDeviceCount) return nullptr;
    const char* products[] = {"Marvane K40 Board", "Marvane K44 Board", "Marvane K50 Board"};
    if (std::strstr(path, "product") != nullptr) return FileHolding(products[deviceNo % 3]);
    return FileHolding(deviceNo / 3 % 2 == 0 ? "480" : "12");
}

int ioctl(int descriptor, unsigned long request, ...) {
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    if (request == kK44Request) {
        auto* record = static_cast<K44Record*>(argument);
        *record->replyLength = Reply(record->command, record->request, record->reply);
        return 0;
    }
    if (request == kK40Request) {
        auto* record = static_cast<K40Record*>(argument);
        const unsigned length = Reply(record->data[0], record->data + 1, record->data + 2);
        record->data[1] = 0;
        record->readLength = 2 + length;
        return 0;
    }
    return Next<int(int, unsigned long, ...)>("ioctl")(descriptor, request, argument);
}

}  // extern "C"
