/**
 * @file cost_test.cpp
 * @brief What an operation may cost: its ioctl, four semops where it takes two locks, and no more.
 *
 * Each operation runs in a process of its own in which any other system call is deadly.
 */
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <ostream>

#include "children.h"
#include "marvaneusb.h"
#include "own_world.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

extern "C" int ConstantIoctl(int descriptor, unsigned long request, ...);

namespace {

/** What this process has done since the last reset. */
struct Calls {
    int ioctls = 0, semops = 0, allocations = 0, others = 0;

    bool operator==(const Calls&) const = default;
};
Calls calls;

std::ostream& operator<<(std::ostream& out, const Calls& made) {
    return out << made.ioctls << " ioctls, " << made.semops << " semops, " << made.allocations
               << " allocations, " << made.others << " other system calls";
}

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

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* old, std::size_t size);
extern "C" void* malloc(std::size_t size) {
    ++calls.allocations;
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    ++calls.allocations;
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* old, std::size_t size) {
    ++calls.allocations;
    return __libc_realloc(old, size);
}
#endif

namespace {

/** From here on this process may take and give back semaphores, and end. */
bool ForbidOtherSystemCalls() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_semop, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

using Operation = std::function<int(MarvaneUSB&)>;

/** The calls that one operation makes; fails unless the operation succeeds. */
Calls CallsOf(int deviceNo, const Operation& operation) {
    const InSharedMemory<Calls> made;
    made->others = 1;  // unless the process survives the operation
    Child child([&] {
        MarvaneUSB board;
        if (board.InitPort(deviceNo) != 1) return 1;
        // The first use in a thread makes room for its last error; in a child it joins, too.
        if (operation(board) != 1) return 2;
        if (!ForbidOtherSystemCalls()) return 3;
        calls = {};
        const int result = operation(board);
        *made = calls;
        syscall(SYS_exit_group, result == 1 ? 0 : 4);
        return 5;
    });
    const int status = child.Wait();
    EXPECT_EQ(status, made->others == 0 ? 0 : 128 + SIGSYS);
    return *made;
}

void SkipWhereCallsCannotBeCounted() {
    if (NoOwnWorld() != nullptr) GTEST_SKIP() << NoOwnWorld();
    if (kSanitized) GTEST_SKIP() << "sanitizers allocate and make system calls of their own";
}

class OperationCostTest : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { SkipWhereCallsCannotBeCounted(); }
};

TEST_P(OperationCostTest, GetInputsIsItsExchangeAndNothingElse) {
    usbInput inputs;
    EXPECT_EQ(CallsOf(GetParam(), [&](MarvaneUSB& board) { return board.GetInputs(&inputs); }),
              Calls({.ioctls = 1}));
}

TEST_P(OperationCostTest, OneLockIsTwoSemopsMore) {
    EXPECT_EQ(CallsOf(GetParam(),
                      [](MarvaneUSB& board) {
                          return board.SetOnPeriodOutputBit(static_cast<_usbOutputId>(1), 2, 1);
                      }),
              Calls({.ioctls = 1, .semops = 2}));
}

TEST_P(OperationCostTest, TwoLocksAreFourSemopsMore) {
    EXPECT_EQ(
        CallsOf(GetParam(), [](MarvaneUSB& board) { return board.SetOutputBit(USB_OUTPUT_12, 1); }),
        Calls({.ioctls = 1, .semops = 4}));
}

INSTANTIATE_TEST_SUITE_P(EachModel, OperationCostTest, ::testing::Values(0, 1, 2));

TEST(OperationCostMeter, NoticesOtherSystemCallsAndAllocations) {
    SkipWhereCallsCannotBeCounted();
    if (::testing::Test::IsSkipped()) return;
    usbInput inputs;
    EXPECT_EQ(CallsOf(1,
                      [&](MarvaneUSB& board) {
                          getppid();
                          return board.GetInputs(&inputs);
                      }),
              Calls({.others = 1}));
    EXPECT_EQ(CallsOf(1,
                      [&](MarvaneUSB& board) {
                          static char* volatile kept = nullptr;
                          kept = new char[10];
                          delete[] kept;
                          return board.GetInputs(&inputs);
                      }),
              Calls({.ioctls = 1, .allocations = 1}));
}

}  // namespace
