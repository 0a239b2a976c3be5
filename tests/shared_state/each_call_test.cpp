/**
 * @file each_call_test.cpp
 * @brief Processes that are killed, or that stop, after each of their System V calls in turn, and
 * at each instruction while they make the segment: whoever comes next, or works meanwhile, is not
 * disturbed.
 */
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

constexpr int kKilled = 128 + SIGKILL;
constexpr int kNever = 0;

using Act = void (*)(LoadedLibrary&);

/** What a process does while its calls count. */
struct Phase {
    const char* what;
    int fewestCalls;  // that it is known to make
    Act before, during;
};

void Switch(LoadedLibrary& library) {
    library.SetOutputBit(12, 1);
}

void Unload(LoadedLibrary& library) {
    library.Unload();
}

const Phase kLoading = {"load", 38, nullptr, nullptr};
const Phase kLeaving = {"unload", 17, Switch, Unload};
const Phase kPhases[] = {
    kLoading,
    kLeaving,
    {"two locks", 4, nullptr, Switch},
    {"one lock", 2, nullptr, [](LoadedLibrary& library) { library.SetOnPeriodBit(12, 1); }},
    {"EEPROM entry", 2, nullptr, [](LoadedLibrary& library) { library.ConfigureEeprom(); }},
    {"joining a new set", 20, [](LoadedLibrary&) { RemoveSet(); }, Switch},
};

/** A whole life of the library, watched during the phase; yields the calls made in it. */
int Live(
    const Phase& phase, const system_calls::Watcher& watcher,
    const std::function<void()>& afterwards = [] {}) {
    AddAcceptingBoard();
    const bool loads = phase.during == nullptr;
    if (loads) system_calls::Watch(watcher);
    LoadedLibrary library;
    if (!loads) {
        library.InitPort(0);
        if (phase.before != nullptr) phase.before(library);
        system_calls::Watch(watcher);
        phase.during(library);
    }
    const int made = system_calls::Made();
    system_calls::Watch(nullptr);
    afterwards();
    return made;
}

/** Lives, and is killed after that call. */
Child LiveUntil(const Phase& phase, int last) {
    return Child([&phase, last] {
        return Live(phase, [last](const std::string&, long, int number) {
            if (number == last) raise(SIGKILL);
        });
    });
}

class EachCallTest : public SharedStateTest {
protected:
    /** Kills a process after each call of each phase in turn, and looks. */
    static void KillAfterEachCall(bool alone, const std::function<void()>& look) {
        for (const Phase& phase : kPhases) {
            for (int last = 1, status = kKilled; status == kKilled && !HasFailure(); ++last) {
                SCOPED_TRACE(std::string(phase.what) + ", killed after " + std::to_string(last));
                if (alone) Sweep();
                if (alone) SweepKeyFiles();
                status = LiveUntil(phase, last).Wait();
                EXPECT_TRUE(status == kKilled || status < last) << status;
                // Others may do a part of the phase, so that it makes fewer calls.
                EXPECT_GE(status, alone ? phase.fewestCalls : 0) << "the calls are not seen";
                look();
            }
        }
        Sweep();
    }
};

TEST_F(EachCallTest, WhoeverComesAfterAKilledProcessIsServed) {
    KillAfterEachCall(true, [] {
        EXPECT_FALSE(KeyFileIsLocked());
        EXPECT_EQ(ServedToAnother(), kAll);
        EXPECT_EQ(FindSegment(), -1) << "it was the last that had it attached";
        // The killed one counts for ever.
        if (FindSet() != -1) {
            EXPECT_EQ(SemaphoreValues(), Semaphores(1));
        }
    });
}

TEST_F(EachCallTest, ProcessesThatAreKilledDoNotHoldUpAWorkingOne) {
    struct State {
        std::atomic<unsigned> done = 0;
        std::atomic<bool> finish = false;
    };
    const InSharedMemory<State> state;
    Child worker([&] {
        AddAcceptingBoard(5);
        LoadedLibrary library;
        int failures = library.InitPort(5) != 1;
        for (; !state->finish; ++state->done)
            failures += library.SetOutputBit(state->done % 38, 1) != 1;
        return failures;
    });
    KillAfterEachCall(false, [&] {
        const unsigned before = state->done;
        EXPECT_TRUE(Await([&] { return state->done >= before + 2; })) << "the worker is stuck";
        EXPECT_EQ(ServedToAnother(false), kAll);
        EXPECT_EQ(HeaderDifference(), "");
        const std::vector<int> values = SemaphoreValues();
        EXPECT_LE(*std::max_element(values.begin() + 1, values.end()), 1);
    });
    state->finish = true;
    EXPECT_EQ(worker.Wait(), 0);
    EXPECT_EQ(FindSegment(), -1);
}

/** The first process stops after a call, and the second one loads as far as it can meanwhile. */
void Meet(const Phase& phase, int stopAfter) {
    struct Meeting {
        std::atomic<bool> stopped = false, goOn = false;  // the first process, after its call
        std::atomic<bool> served = false;                 // the second process
        Barrier barrier;
    };
    const InSharedMemory<Meeting> shared;
    const auto stop = [&](const std::string&, long, int number) {
        if (number != stopAfter) return;
        shared->stopped = true;
        Await([&] { return shared->goOn.load(); });
    };
    const auto meet = [&] {
        shared->barrier.Arrive();
        shared->barrier.Arrive();
    };
    Child first([&] {
        Live(phase, stop, meet);
        return 0;
    });
    EXPECT_TRUE(Await([&] { return shared->stopped.load(); }));
    Child second([&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        EXPECT_EQ(library.InitPort(0), 1);
        EXPECT_EQ(library.SetOutputBit(7, 1), 1);
        EXPECT_EQ(OnCopy(0)[0], 128);
        shared->served = true;
        shared->barrier.Arrive();
        EXPECT_EQ(SemaphoreValues(), Semaphores(phase.during == nullptr ? 2 : 1));
        EXPECT_EQ(HeaderDifference(), "");
        shared->barrier.Arrive();
        return 0;
    });
    EXPECT_TRUE(Await([&] {
        return shared->served || second.WaitsIn(SYS_clock_nanosleep) ||
               second.WaitsIn(SYS_semtimedop);
    }));
    usleep(300);  // unless it waits for nobody
    shared->goOn = true;
    EXPECT_EQ(second.Wait(), 0);
    EXPECT_EQ(first.Wait(), 0);
}

TEST_F(EachCallTest, WhoLoadsWhileAnotherLoadsOrLeavesIsServed) {
    for (const Phase& phase : {kLoading, kLeaving}) {
        const int calls = LiveUntil(phase, kNever).Wait();
        for (int call = 1; call <= calls && !HasFailure(); ++call) {
            SCOPED_TRACE(std::string(phase.what) + ", stopped after call " + std::to_string(call));
            Meet(phase, call);
            ExpectNothingIsLeft();
        }
    }
}

/** What is in the segment after each instruction of a process that makes it and loads. */
std::vector<ByteString> ContentsWhileLoading() {
    const pid_t process = fork();
    if (process == 0) {
        ptrace(PTRACE_TRACEME);
        raise(SIGSTOP);
        LoadedLibrary library;
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    const auto stopped = [&] {
        return waitpid(process, &status, 0) == process && WIFSTOPPED(status);
    };
    EXPECT_TRUE(stopped());
    while (FindSegment() == -1) {
        ptrace(PTRACE_SYSCALL, process, 0, 0);
        if (!stopped()) throw std::runtime_error("it ended");
    }
    const SegmentView view;
    constexpr std::size_t kUsed = 136 + 40 * 128;
    std::vector<ByteString> contents = {view.All()};
    while (ptrace(PTRACE_SINGLESTEP, process, 0, 0) == 0 && stopped() &&
           WSTOPSIG(status) == SIGTRAP) {
        if (std::memcmp(view.bytes, contents.back().data(), kUsed) == 0) continue;
        contents.push_back(view.All());
    }
    kill(process, SIGKILL);
    waitpid(process, &status, 0);
    return contents;
}

TEST_F(EachCallTest, WhoeverComesAfterAProcessKilledAtAnyInstructionOfItsLoadIsServed) {
    const std::vector<ByteString> contents = ContentsWhileLoading();
    EXPECT_GT(contents.size(), 20U) << "the steps are not seen";
    EXPECT_EQ(FirstDifference(contents.back(), SegmentInUse(1)), "");
    for (std::size_t step = 0; step < contents.size() && !HasFailure(); ++step) {
        SCOPED_TRACE("after change " + std::to_string(step));
        Sweep();
        MakeSegment(contents[step]);
        EXPECT_EQ(ServedToAnother(), kAll);
        EXPECT_EQ(FindSegment(), -1);
    }
    Sweep();
}

}  // namespace
