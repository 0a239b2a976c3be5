/**
 * @file callback_test.cpp
 * @brief The changed-inputs thread: its passes, its start and stop, and its signals.
 */
#include "callback_test.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cstring>
#include <deque>

namespace {

struct Passes {
    const char* what;
    usbInput mask, level;
    std::vector<DriverAnswer> answers;  // to the thread; what comes after them is refused
    Words events;
};

// clang-format off
const Passes kPasses[] = {
    {"only unwatched ones", {{0xFE, 0xFF, 0xFF, 0xFF, 0x00}}, All(0xFF),
     {{.reply = {1, 0, 0, 0, 1}}, {.reply = {0, 0, 0, 0, 0}}},
     {"81", "sleep 5000", "81", "sleep 5000", "81"}},
    {"to the selected level, no sleep", {{0, 0, 0, 0, 1}}, {{0, 0, 0, 0, 1}},
     {{.reply = {9, 0, 0, 0, 1}}, {.reply = {9, 8, 7, 6, 0xF1}}},
     {"81", "75", "call 0 0 0 0 1, 9 8 7 6 241", "81"}},
    {"to the selected level 0", {{4, 0, 0, 0, 0}}, {{0xFB, 0xFF, 0xFF, 0xFF, 0xFF}},
     {{.reply = {4, 0, 0, 0, 0}}, {.reply = {0xFB, 1, 2, 3, 4}}},
     {"81", "75", "call 4 0 0 0 0, 251 1 2 3 4", "81"}},
    {"to the other level, no sleep either", All(0xFF), All(0xFF),
     {{.reply = {4, 0, 0, 0, 0}}, {.reply = {0xFB, 0, 0, 0, 0}}},
     {"81", "75", "81"}},
    {"one right, one wrong, one unwatched", {{6, 0, 0, 0x80, 0}}, {{2, 0, 0, 0x80, 0}},
     {{.reply = {7, 0, 0, 0x80, 0}}, {.reply = {7, 0xAA, 0, 0, 0}}},
     {"81", "75", "call 2 0 0 0 0, 7 170 0 0 0", "81"}},
    {"every pass starts anew, with a short report", All(0xFF), All(0xFF),
     {{.reply = {1}}, {.reply = {0xFF}}, {}, {.reply = {0, 1}}, {.reply = {0xFF, 0xFF}}},
     {"81", "75", "call 1 0 0 0 0, 255 0 0 0 0", "81", "sleep 5000",
      "81", "75", "call 0 1 0 0 0, 255 255 0 0 0", "81"}},
    {"image fails", All(0xFF), All(0xFF), {{.reply = {1, 0, 0, 0, 0}}, {.error = 5}}, {"81", "75"}},
};
// clang-format on

TEST_F(CallbackTest, APassReportsWatchedChangesToTheSelectedLevelAndSleepsOnlyWithoutAny) {
    for (const Passes& passes : kPasses) {
        SCOPED_TRACE(passes.what);
        Open(Model::kK44);
        std::deque<DriverAnswer> answers(passes.answers.begin(), passes.answers.end());
        driver.AnswerWith([&answers](const Exchange& exchange) {
            if (!IsOfLibrary()) return DriverAnswer{.reply = Bytes(5, 0xFF)};
            events.Add(std::to_string(exchange.command));
            EXPECT_EQ(exchange.channel, 1);
            EXPECT_EQ(exchange.payload, Bytes());
            if (answers.empty()) return DriverAnswer{.status = 9};
            DriverAnswer answer = answers.front();
            answers.pop_front();
            return answer;
        });
        calls.onSleep = [](useconds_t duration) {
            if (IsOfLibrary()) events.Add("sleep " + std::to_string(duration));
        };
        events.Clear();
        const int endedBefore = calls.ended;
        ASSERT_EQ(Start(passes.mask, passes.level, Tell), 1);
        ASSERT_TRUE(Wait([&] { return calls.ended > endedBefore; }));
        EXPECT_EQ(events.Get(), passes.events);
        EXPECT_EQ(board.GetLastError(), 0) << "the thread's failure is its own";
        EXPECT_EQ(State(), 2U);
        EXPECT_EQ(Error(), passes.answers.size() > 1 && passes.answers.back().error != 0 ? 6 : 9);
        // A stop after a failed exchange returns at once, and only once.
        calls.onSleep = [](useconds_t duration) { EXPECT_LT(duration, 20000U); };
        EXPECT_EQ(Stop(), 1);
        EXPECT_EQ(State(), 0U);
        EXPECT_EQ(Error(), 0);
        EXPECT_EQ(Stop(), 0);
        EXPECT_EQ(board.GetLastError(), 30);
    }
}

struct BadStart {
    const char* what;
    bool hasMask, hasSelection;
    int readStatus;  // of the first read of the inputs
    bool refuseDetaching, refuseCreation;
    int error;
    std::ptrdiff_t reads;
};

// clang-format off
const BadStart kBadStarts[] = {
    {"no selection",              true,  false, 9, false, false, 30, 0},
    {"no mask",                   false, true,  9, false, false, 30, 0},
    {"inputs cannot be read",     true,  true,  9, false, true,  9,  1},
    {"thread cannot be detached", true,  true,  0, true,  false, 37, 1},
    {"thread cannot be created",  true,  true,  0, false, true,  37, 1},
};
// clang-format on

TEST_F(CallbackTest, AFailedStartLeavesNoThreadNotEvenTheOneBefore) {
    HurrySleeps();
    for (const bool running : {false, true}) {
        for (const BadStart& c : kBadStarts) {
            SCOPED_TRACE(std::string(running ? "again: " : "") + c.what);
            Open(Model::kK44);
            AcceptEverything();
            EXPECT_EQ(Stop(), 0) << "nothing to stop";
            if (running) {
                EXPECT_EQ(Start(First), 1);
            }
            StartAfresh();
            driver.AnswerWith([&c](const Exchange&) {
                return DriverAnswer{.status = IsOfLibrary() ? 0 : c.readStatus};
            });
            calls.refuseDetaching = c.refuseDetaching;
            calls.refuseCreation = c.refuseCreation;
            usbInput mask = All(1);
            sigset_t before = {};
            sigset_t after = {};
            pthread_sigmask(SIG_SETMASK, nullptr, &before);
            EXPECT_EQ(board.ConfigureChangedInputsCallback(
                          c.hasMask ? &mask : nullptr, c.hasSelection ? &mask : nullptr, Second),
                      0);
            pthread_sigmask(SIG_SETMASK, nullptr, &after);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
            EXPECT_EQ(InputThreads(), 0);
            const Exchanges sent = driver.Sent();
            EXPECT_EQ(std::count(sent.begin(), sent.end(), Exchange{75, 1, {}}), c.reads);
            calls.refuseDetaching = calls.refuseCreation = false;
            EXPECT_EQ(Stop(), 0);
            EXPECT_EQ(board.GetLastError(), 30);
            AcceptEverything();
            EXPECT_EQ(Start(Second), 1) << "the next start is none the worse";
            EXPECT_EQ(Stop(), 1);
        }
    }
}

TEST_F(CallbackTest, NoCallbackComesAfterTheCallThatReplacedOrStoppedIt) {
    Open(Model::kK44);
    ChangeAllTheTime();
    HurrySleeps();
    for (int round = 0; round < 100; ++round) {
        const int firstBefore = callsOfFirst;
        ASSERT_EQ(Start(First), 1);
        ASSERT_TRUE(Wait([&] { return callsOfFirst > firstBefore; }));
        const int secondBefore = callsOfSecond;
        ASSERT_EQ(Start(Second), 1);
        const int first = callsOfFirst;
        ASSERT_TRUE(Wait([&] { return callsOfSecond > secondBefore; }));
        ASSERT_EQ(Stop(), 1);
        const int second = callsOfSecond;
        std::this_thread::sleep_for(200us);
        ASSERT_EQ(callsOfFirst, first);
        ASSERT_EQ(callsOfSecond, second);
    }
}

TEST_F(CallbackTest, AStopRightAfterTheStartIsNotLost) {
    HurrySleeps();
    Open(Model::kK44);
    AcceptEverything();
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(Start(First), 1);
        ASSERT_EQ(Stop(), 1);
        ASSERT_EQ(calls.begun, calls.ended);
    }
}

TEST_F(CallbackTest, AStopWaitsUntilTheThreadIsGone) {
    HurrySleeps();
    for (const bool closing : {false, true}) {
        Open(Model::kK44);
        AcceptEverything();
        calls.endDelayMs = 1500;  // what a thread still has to do after the library's last step
        ASSERT_EQ(Start(First), 1);
        closing ? board.close() : Stop();
        EXPECT_EQ(calls.begun, calls.ended);
        EXPECT_EQ(InputThreads(), 0);
    }
}

TEST_F(CallbackTest, ClosingStopsTheThreadBeforeTheDevice) {
    HurrySleeps();
    Open(Model::kK44);
    std::atomic<bool> inExchange = false;
    std::atomic<int> openDuringExchange = -1;
    driver.AnswerWith([&](const Exchange&) {
        if (IsOfLibrary()) {
            inExchange = true;
            std::this_thread::sleep_for(50ms);
            openDuringExchange = driver.OpenDescriptors();
        }
        return DriverAnswer{};
    });
    ASSERT_EQ(Start(First), 1);
    ASSERT_TRUE(Wait([&] { return inExchange.load(); }));
    board.close();
    EXPECT_EQ(openDuringExchange, 1);
    EXPECT_EQ(driver.OpenDescriptors(), 0);
    driver.ForgetSent();
    std::this_thread::sleep_for(2ms);
    EXPECT_EQ(driver.Sent(), Exchanges());
}

MarvaneUSB* boardInCallback;
std::atomic<bool> inCallback = false;
std::atomic<bool> closing = false;
std::atomic<int> resultWhileClosing = -1;

void WorkWhileClosing(usbInput*, usbInput*) {
    if (inCallback.exchange(true)) return;
    Wait([] { return closing.load(); });
    std::this_thread::sleep_for(20ms);
    unsigned char type = 0;
    usbInput image;
    resultWhileClosing =
        boardInCallback->GetFittedBoard(&type) * boardInCallback->GetInputs(&image) * type;
}

TEST_F(CallbackTest, ACallbackMayUseTheBoardUntilItReturnsThoughTheBoardIsBeingClosed) {
    for (const Model model : kModels) {
        Open(model);
        ChangeAllTheTime();
        boardInCallback = &board;
        inCallback = closing = false;
        ASSERT_EQ(Start(WorkWhileClosing), 1);
        ASSERT_TRUE(Wait([] { return inCallback.load(); }));
        closing = true;
        board.close();
        EXPECT_EQ(resultWhileClosing, static_cast<int>(model));
    }
}

TEST_F(CallbackTest, OneThreadServesAllObjectsThatShareTheBoard) {
    HurrySleeps();
    Open(Model::kK44);
    ChangeAllTheTime();
    ASSERT_EQ(Start(First), 1);
    MarvaneUSB sharer(board);
    board.close();
    const int before = callsOfFirst;
    EXPECT_TRUE(Wait([&] { return callsOfFirst > before; })) << "the board is still open";
    EXPECT_EQ(sharer.ConfigureChangedInputsCallback(nullptr, nullptr, nullptr), 1);
}

sigset_t maskInCallback;
std::string nameInCallback;
int errorInCallback;
std::atomic<bool> lookedAround = false;

void LookAround(usbInput*, usbInput*) {
    if (lookedAround) return;
    pthread_sigmask(SIG_SETMASK, nullptr, &maskInCallback);
    nameInCallback = NameOfThisThread();
    boardInCallback->GetInputs(static_cast<usbInput*>(nullptr));
    errorInCallback = boardInCallback->GetLastError();
    lookedAround = true;
}

TEST_F(CallbackTest, TheThreadTakesFaultSignalsOnlyAndTheCallerKeepsItsOwn) {
    HurrySleeps();
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    for (const sigset_t& ofCaller : {none, all}) {
        Open(Model::kK44);
        ChangeAllTheTime();
        boardInCallback = &board;
        lookedAround = false;
        sigset_t before;
        sigset_t after;
        pthread_sigmask(SIG_SETMASK, &ofCaller, &before);
        const bool blocksFaults = sigismember(&ofCaller, SIGTRAP) == 1;
        if (blocksFaults) raise(SIGTRAP);  // ends the program unless it stays blocked
        const int started = Start(LookAround);
        if (blocksFaults) {
            EXPECT_EQ(sigwaitinfo(&ofCaller, nullptr), SIGTRAP);
        }
        pthread_sigmask(SIG_SETMASK, &before, &after);
        ASSERT_EQ(started, 1);
        ASSERT_TRUE(Wait([] { return lookedAround.load(); }));
        for (int number = 1; number <= SIGRTMAX; ++number) {
            if (number > 31 && number < SIGRTMIN) continue;  // the C library's own
            if (number == SIGKILL || number == SIGSTOP) continue;
            EXPECT_EQ(sigismember(&after, number), sigismember(&ofCaller, number)) << number;
            const bool fault = number == SIGSEGV || number == SIGBUS || number == SIGFPE ||
                               number == SIGILL || number == SIGTRAP;
            EXPECT_EQ(sigismember(&maskInCallback, number), fault ? 0 : 1) << number;
        }
        EXPECT_EQ(nameInCallback, "marvane-inputs");
        EXPECT_EQ(errorInCallback, 30);
        EXPECT_EQ(board.GetLastError(), 0) << "the callback's failure is its own thread's";
        board.close();
    }
}

}  // namespace
