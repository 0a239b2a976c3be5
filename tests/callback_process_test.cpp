/**
 * @file callback_process_test.cpp
 * @brief The changed-inputs thread in processes that fork while it runs, and in their children.
 */
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "callback_test.h"
#include "forked_child.h"
#include "shared_entries.h"

namespace {

const pid_t testProcess = getpid();

}  // namespace

/**
 * LeakSanitizer asks this before it looks. A child that its only thread ends has left the stack
 * behind that its parent's objects hang on: nothing there has leaked.
 */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
extern "C" int __lsan_is_turned_off() {
    return getpid() != testProcess ? 1 : 0;
}

namespace {

MarvaneUSB* boardInCallback;

// GCC's AddressSanitizer forks without setting its allocator's locks free: where the other thread
// holds one at that moment, a child waits for ever.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kRounds = 15;
#else
constexpr int kRounds = 100;
#endif

TEST_F(CallbackTest, AForkedChildWaitsForNoThread) {
    Open(Model::kK44);
    ChangeAllTheTime(500us);
    ASSERT_EQ(Start(First), 1);
    EXPECT_EQ(State(), 1U);
    EXPECT_EQ(Error(), 0);
    for (int round = 0; round < kRounds; ++round) {
        const int result = RunInChild([&] {
            calls.onSleep = [](useconds_t) { _exit(3); };
            EXPECT_EQ(State(), 0U);
            switch (round % 3) {
                case 0:
                    EXPECT_EQ(Stop(), 1);
                    EXPECT_EQ(Stop(), 0);
                    break;
                case 1:
                    board.close();
                    break;
                default: {
                    const int before = callsOfSecond;
                    EXPECT_EQ(Start(Second), 1);
                    EXPECT_TRUE(Wait([&] { return callsOfSecond > before; }));
                    calls.onSleep = nullptr;
                    EXPECT_EQ(Stop(), 1);
                }
            }
            EXPECT_EQ(InputThreads(), 0);
        });
        ASSERT_EQ(result, 0) << "round " << round << "; 3: it slept in order to wait";
    }
    const int before = callsOfFirst;
    EXPECT_TRUE(Wait([&] { return callsOfFirst > before; })) << "the parent's thread goes on";
}

std::atomic<pid_t> forkedInCallback = 0;

void ForkOnce(usbInput*, usbInput*) {
    if (forkedInCallback == 0) forkedInCallback = fork();
}

TEST_F(CallbackTest, AThreadWhoseCallbackForksEndsInTheChild) {
    Open(Model::kK44);
    ChangeAllTheTime(500us);
    ASSERT_EQ(Start(ForkOnce), 1);
    ASSERT_TRUE(Wait([] { return forkedInCallback > 0; }));
    int status = -1;
    EXPECT_TRUE(Wait([&] { return waitpid(forkedInCallback, &status, WNOHANG) != 0; }));
    EXPECT_EQ(status, 0) << "it was the child's only thread";
    if (status != 0) kill(forkedInCallback, SIGKILL);
}

std::atomic<int> lampsSet = 0;

void SetLamps(usbInput* changed, usbInput*) {
    boardInCallback->SetOutputBit(USB_OUTPUT_3, changed->bytes[0] & 1U);
    ++lampsSet;
}

TEST_F(CallbackTest, AForkedChildMayExitWhileTheCallbackSetsOutputs) {
    const auto begun = Clock::now();
    for (int round = 0; round < kRounds; ++round) {
        const int result = RunInChild([&] {
            Open(Model::kK44);
            ChangeAllTheTime();
            boardInCallback = &board;
            ASSERT_EQ(Start(SetLamps), 1);
            const int wanted = round % 20;
            Wait([&] { return lampsSet >= wanted; });
            std::exit(HasFailure() ? kChildFailed : 0);
        });
        ASSERT_EQ(result, 0) << "round " << round;
        for (int lock = 1; lock <= 5; ++lock) {
            ASSERT_EQ(SharedSemaphore(lock), 1) << "lock " << lock << " is held by nobody";
        }
        ASSERT_EQ(SharedSemaphore(0), 1) << "only this process uses the state";
    }
    EXPECT_LT(Clock::now() - begun, kRounds * 500ms) << "exits wait for something";
}

}  // namespace
