/**
 * @file kills_test.cpp
 * @brief Processes that are killed after each of their System V calls in turn: whoever comes
 * next, or works meanwhile, is not disturbed.
 */
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

constexpr int kKilled = 128 + SIGKILL;

/** What the killed process is doing at that time. */
struct Phase {
    const char* what;
    int fewestCalls;  // that a phase is known to make
    std::function<void(LoadedLibrary&)> before, during;
};

void Nothing(LoadedLibrary&) {}

void Switch(LoadedLibrary& library) {
    library.SetOutputBit(12, 1);
}

void RemoveSetThenSwitch(LoadedLibrary& library) {
    semctl(FindSet(), 0, IPC_RMID);
    library.SetOutputBit(12, 1);
}

void Configure(LoadedLibrary& library) {
    K40EEPROM part = UsualEeprom();
    library.ConfigureEEPROM(&part);
}

const Phase kPhases[] = {
    {"two locks", 4, Nothing, Switch},
    {"one lock", 2, Nothing, [](LoadedLibrary& library) { library.SetOnPeriodOutputBit(1, 4, 1); }},
    {"EEPROM entry", 2, Nothing, Configure},
    {"joining a new set", 20, Nothing, RemoveSetThenSwitch},
    {"unload", 15, Switch, [](LoadedLibrary& library) { library.Unload(); }},
};

/** Runs a whole life of the library; `last` counts from the phase, or kills nowhere. */
int LiveAndDie(const Phase* phase, int last, int& calls) {
    AddAcceptingBoard();
    const auto count = [&] {
        last == 0 ? system_calls::Count() : system_calls::CountAndKillAfter(last);
    };
    if (phase == nullptr) count();
    LoadedLibrary library;
    if (phase != nullptr) {
        library.InitPort(0);
        phase->before(library);
        count();
        phase->during(library);
    }
    calls = system_calls::Made();
    system_calls::Count();
    return 0;
}

/** Uses the outputs and the EEPROM as the next process; 0, or what fails. */
int UseEverything() {
    AddAcceptingBoard();
    LoadedLibrary library;
    if (library.InitPort(0) != 1) return 1;
    if (library.SetOutputBit(37, 1) != 1 || OnCopy(0)[4] != 32 || OffCopy(0)[4] != 32) return 2;
    K40EEPROM part = UsualEeprom();
    unsigned char byte = 0;
    if (library.ConfigureEEPROM(&part) != 1 || library.ReadEEPROM(8, &byte, 1) != 1) return 3;
    return ObjectsTwiceOrMissing().empty() ? 0 : 4;
}

/** The same where nobody else is at work, so that every lock must be free. */
int UseEverythingAlone() {
    if (const int failed = UseEverything(); failed != 0) return failed;
    LoadedLibrary library;
    const int users = RegisteredUsers();
    if (users != 1 && users != 2) return 5;  // the killed one is counted or not
    return SemaphoreValues(FindSet()) == Semaphores(users) ? 0 : 6;
}

class KillsTest : public SharedStateTest {
protected:
    /** Kills a process after each call that it makes in the phase, in a fresh world each time. */
    void KillAfterEachCall(const Phase* phase, int fewestCalls) {
        const int calls = CountCalls(phase);
        ASSERT_GE(calls, fewestCalls) << "the calls are not seen";
        for (int last = 1; last <= calls && !HasFailure(); ++last) {
            SCOPED_TRACE("killed after call " + std::to_string(last));
            Sweep();
            SweepKeyFiles();
            Child killed([&] { return LiveAndDie(phase, last, *made); });
            EXPECT_EQ(killed.Wait(), kKilled);
            ExpectNextProcessWorks();
        }
    }
    /** The same beside others, who may do part of it first, so that it makes fewer calls. */
    void KillAfterEachCallBesideOthers(const Phase* phase, const std::function<void()>& goOn) {
        const int calls = CountCalls(phase);
        ASSERT_GE(calls, 2);
        for (int last = 1; last <= calls && !HasFailure(); ++last) {
            SCOPED_TRACE("killed after call " + std::to_string(last));
            Child killed([&] { return LiveAndDie(phase, last, *made); });
            const int status = killed.Wait();
            EXPECT_TRUE(status == kKilled || status == 0) << status;
            goOn();
        }
    }

private:
    int CountCalls(const Phase* phase) {
        Child whole([&] { return LiveAndDie(phase, 0, *made); });
        EXPECT_EQ(whole.Wait(), 0);
        return *made;
    }

    static void ExpectNextProcessWorks() {
        EXPECT_FALSE(KeyFileIsLocked());
        Child next(UseEverythingAlone);
        EXPECT_EQ(next.Wait(), 0);
        EXPECT_EQ(FindSegment(), -1) << "it was the last that had it attached";
        if (FindSet() == -1) return;
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1)) << "the killed one counts for ever";
        Sweep();
    }

    InSharedMemory<int> made;
};

TEST_F(KillsTest, FirstProcessThatDiesWhileItLoadsLeavesNoTrace) {
    KillAfterEachCall(nullptr, 38);
}

TEST_F(KillsTest, ProcessThatDiesAtWorkOrLeavingLeavesItsLocksFree) {
    for (const Phase& phase : kPhases) {
        SCOPED_TRACE(phase.what);
        KillAfterEachCall(&phase, phase.fewestCalls);
    }
}

/** A process that works all the time, beside those that are killed. */
class Worker {
public:
    Worker()
        : child([this] {
              AddAcceptingBoard(5);
              LoadedLibrary library;
              int failures = library.InitPort(5) != 1;
              for (; !state->finish; ++state->done) {
                  failures += library.SetOutputBit(state->done % 38, 1) != 1;
              }
              return failures;
          }) {
        ExpectProgress();
    }
    void ExpectProgress() {
        const unsigned before = state->done;
        EXPECT_TRUE(Await([&] { return state->done >= before + 2; })) << "the worker is stuck";
    }
    void Finish() {
        state->finish = true;
        EXPECT_EQ(child.Wait(), 0);
    }

private:
    struct State {
        std::atomic<unsigned> done = 0;
        std::atomic<bool> finish = false;
    };
    InSharedMemory<State> state;
    Child child;
};

TEST_F(KillsTest, ProcessesThatDieDoNotHoldUpAWorkingOne) {
    Worker worker;
    const auto goOn = [&] {
        worker.ExpectProgress();
        Child next(UseEverything);
        EXPECT_EQ(next.Wait(), 0);
        const std::vector<int> values = SemaphoreValues(FindSet());
        EXPECT_LE(*std::max_element(values.begin() + 1, values.end()), 1);
    };
    KillAfterEachCallBesideOthers(nullptr, goOn);
    for (const Phase& phase : kPhases) {
        SCOPED_TRACE(phase.what);
        KillAfterEachCallBesideOthers(&phase, goOn);
    }
    worker.Finish();
    EXPECT_EQ(FindSegment(), -1);
    Sweep();
}

}  // namespace
