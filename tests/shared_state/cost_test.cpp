/**
 * @file cost_test.cpp
 * @brief What an operation may cost: its ioctl, two semops for each lock, and no more.
 *
 * Each operation runs in a process of its own in which any other system call is deadly.
 */
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <functional>
#include <string>

#include "allowed_system_calls.h"
#include "children.h"
#include "marvaneusb.h"
#include "outside_view.h"

extern "C" int ConstantIoctl(int descriptor, unsigned long request, ...);

namespace {

/** What this process has done. */
struct Calls {
    int ioctls = 0, semops = 0;
};
Calls calls;

}  // namespace

extern "C" int ioctl(int descriptor, unsigned long request, ...) {
    ++calls.ioctls;
    std::va_list rest;
    va_start(rest, request);
    void* argument = va_arg(rest, void*);
    va_end(rest);
    return ConstantIoctl(descriptor, request, argument);
}

extern "C" int semop(int set, sembuf* operations, std::size_t count) {
    ++calls.semops;
    return static_cast<int>(syscall(SYS_semop, set, operations, count));
}

namespace {

using Operation = std::function<int(MarvaneUSB&)>;

/** What a successful operation makes, or how the process ended. */
std::string CostOf(int deviceNo, const Operation& operation) {
    const InSharedMemory<Calls> made;
    const int status = StatusOf([&] {
        MarvaneUSB board;
        if (board.InitPort(deviceNo) != 1) return 1;
        // The first use in a thread makes room for its last error; in a child it joins, too.
        if (operation(board) != 1) return 2;
        if (!AllowOnly({SYS_semop, SYS_exit_group})) return 3;
        calls = {};
        const int result = operation(board);
        *made = calls;
        syscall(SYS_exit_group, result == 1 ? 0 : 4);
        return 5;
    });
    if (status != 0) return "ended with " + std::to_string(status);
    return std::to_string(made->ioctls) + " ioctls, " + std::to_string(made->semops) + " semops";
}

TEST(OperationCost, IsAnExchangeAndTwoSemopsForEachLock) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers make system calls of their own";
#endif
    usbInput inputs;
    K40EEPROM part = E24LC16;
    struct Case {
        const char* what;
        Operation operation;
        std::string cost;
    };
    const Case cases[] = {
        // clang-format off
        {"no lock", [&](MarvaneUSB& b) { return b.GetInputs(&inputs); }, "1 ioctls, 0 semops"},
        {"EEPROM",  [&](MarvaneUSB& b) { return b.ConfigureEEPROM(&part); }, "1 ioctls, 2 semops"},
        {"on-period", [](MarvaneUSB& b) {
             return b.SetOnPeriodOutputBit(static_cast<_usbOutputId>(1), 2, 1);
         }, "1 ioctls, 2 semops"},
        {"both",    [](MarvaneUSB& b) { return b.SetOutputBit(USB_OUTPUT_12, 1); },
         "1 ioctls, 4 semops"},
        {"one too many", [&](MarvaneUSB& b) { getppid(); return b.GetInputs(&inputs); },
         "ended with " + std::to_string(128 + SIGSYS)},
        // clang-format on
    };
    for (const int deviceNo : {0, 1, 2}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.what) + ", device " + std::to_string(deviceNo));
            EXPECT_EQ(CostOf(deviceNo, c.operation), c.cost);
        }
    }
}

}  // namespace
