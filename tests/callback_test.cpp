/**
 * @file callback_test.cpp
 * @brief The changed-inputs thread: its passes, start, stop and signals, and forks beside it.
 */
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "board_test.h"
#include "children.h"
#include "thread_calls.h"

namespace {

const pid_t testProcess = getpid();

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

Words events;  // of the library's thread; read once it has ended

std::string NameOfThisThread() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}
bool IsOfLibrary() {
    return NameOfThisThread() == "marvane-inputs";
}

/** Threads of this process that the kernel knows under the library's name. */
int InputThreads() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "marvane-inputs") ++count;
    }
    return count;
}

std::atomic<int> callsOfFirst = 0, callsOfSecond = 0;
void First(usbInput*, usbInput*) {
    ++callsOfFirst;
}
void Second(usbInput*, usbInput*) {
    ++callsOfSecond;
}

void Tell(usbInput* changed, usbInput* current) {
    std::ostringstream text("call", std::ios::ate);
    for (const unsigned char byte : changed->bytes)
        text << ' ' << unsigned{byte};
    text << ",";
    for (const unsigned char byte : current->bytes)
        text << ' ' << unsigned{byte};
    events.push_back(text.str());
}

usbInput All(unsigned char byte) {
    return {{byte, byte, byte, byte, byte}};
}

/** The first call since now has come. */
bool IsCalled(const std::atomic<int>& calls) {
    return Await([&, before = calls.load()] { return calls > before; });
}

class CallbackTest : public BoardTest {
protected:
    CallbackTest() { calls.sleepDivisor = 1000; }  // nobody waits longer than he must
    ~CallbackTest() override {
        board.close();
        calls.onSleep = nullptr;
        driver.AnswerWith(nullptr);
    }

    void TearDown() override {
        BoardTest::TearDown();
        EXPECT_EQ(InputThreads(), 0) << "a thread is left";
    }

    using Callback = void (*)(usbInput*, usbInput*);

    int Start(Callback callback) { return Start(All(0xFF), All(0xFF), callback); }
    int Start(usbInput mask, usbInput selection, Callback callback) {
        const int result = board.ConfigureChangedInputsCallback(&mask, &selection, callback);
        mask = selection = All(0xAA);  // ours again at once
        return result;
    }
    unsigned State() {
        unsigned state = 99;
        EXPECT_EQ(board.GetChangedInputsCallbackState(&state), 1);
        return state;
    }
    int Error() {
        int code = 99;
        EXPECT_EQ(board.GetChangedInputsCallbackError(&code), 1);
        return code;
    }
    int Stop() { return board.ConfigureChangedInputsCallback(nullptr, nullptr, nullptr); }

    /** Every report says that every input has changed, and every input is at 1. */
    void ChangeAllTheTime(std::chrono::microseconds exchange = 0us) {
        driver.AnswerWith([exchange](const Exchange&) {
            if (exchange > 0us && IsOfLibrary()) std::this_thread::sleep_for(exchange);
            return DriverAnswer{.reply = Bytes(5, 0xFF)};
        });
    }

    ThreadCalls& calls = ThreadCalls::Instance();
};

TEST_F(CallbackTest, APassReportsWatchedChangesToTheSelectedLevelAndSleepsOnlyWithoutAny) {
    const struct {
        const char* what;
        usbInput mask, level;
        std::vector<DriverAnswer> answers;  // to the thread; what comes after them is refused
        Words events;
    } cases[] = {
        // clang-format off
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
        // clang-format on
    };
    for (const auto& passes : cases) {
        SCOPED_TRACE(passes.what);
        Open(Model::kK44);
        std::deque<DriverAnswer> answers(passes.answers.begin(), passes.answers.end());
        driver.AnswerWith([&answers](const Exchange& exchange) {
            if (!IsOfLibrary()) return DriverAnswer{.reply = Bytes(5, 0xFF)};
            events.push_back(std::to_string(exchange.command));
            EXPECT_EQ(exchange.channel, 1);
            EXPECT_EQ(exchange.payload, Bytes());
            if (answers.empty()) return DriverAnswer{.status = 9};
            DriverAnswer answer = answers.front();
            answers.pop_front();
            return answer;
        });
        calls.onSleep = [](useconds_t duration) {
            if (IsOfLibrary()) events.push_back("sleep " + std::to_string(duration));
        };
        events.clear();
        const int endedBefore = calls.ended;
        ASSERT_EQ(Start(passes.mask, passes.level, Tell), 1);
        ASSERT_TRUE(Await([&] { return calls.ended > endedBefore; }));
        EXPECT_EQ(events, passes.events);
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

TEST_F(CallbackTest, AFailedStartLeavesNoThreadNotEvenTheOneBefore) {
    const struct {
        const char* what;
        bool hasMask, hasSelection;
        int readStatus;  // of the first read of the inputs
        bool refuseDetaching, refuseCreation;
        int error;
        std::ptrdiff_t reads;
    } cases[] = {
        // clang-format off
        {"no selection",              true,  false, 9, false, false, 30, 0},
        {"no mask",                   false, true,  9, false, false, 30, 0},
        {"inputs cannot be read",     true,  true,  9, false, true,  9,  1},
        {"thread cannot be detached", true,  true,  0, true,  false, 37, 1},
        {"thread cannot be created",  true,  true,  0, false, true,  37, 1},
        // clang-format on
    };
    for (const bool running : {false, true}) {
        for (const auto& c : cases) {
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

TEST_F(CallbackTest, NoCallbackComesAfterTheCallThatReplacedOrStoppedItOrClosedTheBoard) {
    for (int round = 0; round < 100; ++round) {
        Open(Model::kK44);
        ChangeAllTheTime();
        // What a thread still has to do after the library's last step.
        calls.endDelayMs = round < 2 ? 200 : 0;
        ASSERT_EQ(Start(First), 1);
        ASSERT_TRUE(IsCalled(callsOfFirst));
        ASSERT_EQ(Start(Second), 1);
        const int first = callsOfFirst;
        ASSERT_TRUE(IsCalled(callsOfSecond));
        if (round % 2 == 0) {
            ASSERT_EQ(Stop(), 1);
        }
        board.close();
        ASSERT_EQ(calls.begun, calls.ended);
        ASSERT_EQ(InputThreads(), 0);
        const int second = callsOfSecond;
        std::this_thread::sleep_for(200us);
        ASSERT_EQ(callsOfFirst, first);
        ASSERT_EQ(callsOfSecond, second);
    }
}

TEST_F(CallbackTest, AStopRightAfterTheStartIsNotLost) {
    Open(Model::kK44);
    AcceptEverything();
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(Start(First), 1);
        ASSERT_EQ(Stop(), 1);
        ASSERT_EQ(calls.begun, calls.ended);
    }
}

MarvaneUSB* boardInCallback;
std::atomic<bool> inCallback = false, closing = false;
std::atomic<int> resultWhileClosing = -1;

void WorkWhileClosing(usbInput*, usbInput*) {
    if (inCallback.exchange(true)) return;
    Await([] { return closing.load(); });
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
        ASSERT_TRUE(Await([] { return inCallback.load(); }));
        closing = true;
        board.close();
        EXPECT_EQ(resultWhileClosing, static_cast<int>(model));
        EXPECT_EQ(driver.OpenDescriptors(), 0);
        driver.ForgetSent();
        std::this_thread::sleep_for(2ms);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
}

TEST_F(CallbackTest, OneThreadServesAllObjectsThatShareTheBoard) {
    Open(Model::kK44);
    ChangeAllTheTime();
    ASSERT_EQ(Start(First), 1);
    MarvaneUSB sharer(board);
    board.close();
    EXPECT_TRUE(IsCalled(callsOfFirst)) << "the board is still open";
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
        ASSERT_TRUE(Await([] { return lookedAround.load(); }));
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

// ThreadSanitizer allows no threads in a child of a process that has several.
#if !defined(__SANITIZE_THREAD__)

// GCC's AddressSanitizer forks without setting its allocator's locks free: where the other thread
// holds one at that moment, a child waits for ever.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kForks = 15;
#else
constexpr int kForks = 60;
#endif

TEST_F(CallbackTest, AForkedChildWaitsForNoThread) {
    Open(Model::kK44);
    ChangeAllTheTime(500us);
    ASSERT_EQ(Start(First), 1);
    EXPECT_EQ(State(), 1U);
    EXPECT_EQ(Error(), 0);
    for (int round = 0; round < kForks; ++round) {
        const int result = StatusOf([&] {
            calls.onSleep = [](useconds_t) { _exit(3); };
            EXPECT_EQ(State(), 0U);
            if (round % 3 == 0) {
                EXPECT_EQ(Stop(), 1);
                EXPECT_EQ(Stop(), 0);
            } else if (round % 3 == 1) {
                board.close();
            } else {
                EXPECT_EQ(Start(Second), 1);
                EXPECT_TRUE(IsCalled(callsOfSecond));
                calls.onSleep = nullptr;
                EXPECT_EQ(Stop(), 1);
            }
            EXPECT_EQ(InputThreads(), 0);
            return 0;
        });
        ASSERT_EQ(result, 0) << "round " << round << "; 3: it slept in order to wait";
    }
    EXPECT_TRUE(IsCalled(callsOfFirst)) << "the parent's thread goes on";
}

std::atomic<pid_t> forkedInCallback = 0;

void ForkOnce(usbInput*, usbInput*) {
    static pid_t child = -1;
    if (child == 0) _exit(3);  // the thread goes on in the child
    if (child == -1) forkedInCallback = child = fork();
}

TEST_F(CallbackTest, AThreadWhoseCallbackForksEndsInTheChild) {
    Open(Model::kK44);
    ChangeAllTheTime(500us);
    ASSERT_EQ(Start(ForkOnce), 1);
    ASSERT_TRUE(Await([] { return forkedInCallback > 0; }));
    int status = -1;
    EXPECT_TRUE(Await([&] { return waitpid(forkedInCallback, &status, WNOHANG) != 0; }));
    EXPECT_EQ(status, 0) << "it was the child's only thread";
    if (status == -1) kill(forkedInCallback, SIGKILL);
}

#endif

}  // namespace

/**
 * LeakSanitizer asks this before it looks. A child that its only thread ends has left the stack
 * behind that its parent's objects hang on: nothing there has leaked.
 */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
extern "C" int __lsan_is_turned_off() {
    return getpid() != testProcess ? 1 : 0;
}
