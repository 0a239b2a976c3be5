/**
 * @file callback_test.h
 * @brief A board with a changed-inputs thread, and what its tests look at.
 */
#ifndef CALLBACK_TEST_H
#define CALLBACK_TEST_H

#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "board_test.h"
#include "thread_calls.h"

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;
using namespace std::chrono_literals;

/** What happened in which order on any thread. Never destroyed: threads may still run at exit. */
class Events {
public:
    void Add(const std::string& event) {
        const std::lock_guard lock(guard_);
        events_.push_back(event);
    }
    Words Get() {
        const std::lock_guard lock(guard_);
        return events_;
    }
    void Clear() {
        const std::lock_guard lock(guard_);
        events_.clear();
    }

private:
    std::mutex guard_;
    Words events_;
};
inline Events& events = *new Events;

template <class Predicate>
bool Wait(Predicate predicate) {
    const auto deadline = Clock::now() + 20s;
    while (!predicate()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(100us);
    }
    return true;
}

inline std::string Text(const usbInput* inputs) {
    std::ostringstream text;
    for (const unsigned char byte : inputs->bytes)
        text << ' ' << static_cast<int>(byte);
    return text.str();
}

inline std::string NameOfThisThread() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

/** Threads of this process that the kernel knows under the library's name. */
inline int InputThreads() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "marvane-inputs") ++count;
    }
    return count;
}

inline bool IsOfLibrary() {
    return NameOfThisThread() == "marvane-inputs";
}

using Callback = void (*)(usbInput*, usbInput*);

inline void Tell(usbInput* changed, usbInput* current) {
    events.Add("call" + Text(changed) + "," + Text(current));
}

inline std::atomic<int> callsOfFirst = 0;
inline std::atomic<int> callsOfSecond = 0;
inline void First(usbInput*, usbInput*) {
    ++callsOfFirst;
}
inline void Second(usbInput*, usbInput*) {
    ++callsOfSecond;
}

inline usbInput All(unsigned char byte) {
    return {{byte, byte, byte, byte, byte}};
}

class CallbackTest : public BoardTest {
protected:
    CallbackTest() {
        calls.sleepDivisor = 1;
        calls.endDelayMs = 0;
        events.Clear();
    }
    ~CallbackTest() override {
        board.close();
        calls.onSleep = nullptr;
        calls.refuseCreation = calls.refuseDetaching = false;
        driver.AnswerWith(nullptr);
    }

    void TearDown() override {
        BoardTest::TearDown();
        EXPECT_EQ(InputThreads(), 0) << "a thread is left";
    }

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

    /** The library's thread only polls, and stops take no time to speak of. */
    void HurrySleeps() { calls.sleepDivisor = 100; }

    ThreadCalls& calls = ThreadCalls::Instance();
};

#endif  // CALLBACK_TEST_H
