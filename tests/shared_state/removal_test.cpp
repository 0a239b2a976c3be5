/**
 * @file removal_test.cpp
 * @brief The set removed under live users.
 */
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

class RemovalTest : public SharedStateTest {};

TEST_F(RemovalTest, UsersOfARemovedSetMeetOnOneNewSet) {
    constexpr int kUsers = 4;
    struct State {
        std::atomic<int> working = 0;
        std::atomic<bool> finish = false;
        Barrier barrier;
    };
    const InSharedMemory<State> state;
    std::vector<Child> children;
    for (unsigned number = 0; number < kUsers; ++number) {
        children.emplace_back([&, number] {
            AddAcceptingBoard();
            LoadedLibrary library;
            if (library.InitPort(0) != 1) return 1;
            ++state->working;
            // Two threads, since one joins for both. They share no entry: who holds a lock of the
            // set when it is removed may meet who holds the same lock of the new one.
            std::atomic<int> failures = 0;
            std::thread other([&] {
                while (!state->finish)
                    failures += library.ConfigureEeprom() != 1;
            });
            while (!state->finish)
                failures += library.SetOutputBit(number, 1) != 1;
            other.join();
            failures += library.SetOutputBit(0, 1) != 1;  // on the last set for certain
            state->barrier.Arrive(kUsers + 1);
            state->barrier.Arrive(kUsers + 1);
            return failures.load();
        });
    }
    ASSERT_TRUE(Await([&] { return state->working == kUsers; }));
    for (int round = 0; round < 60; ++round) {
        const int set = FindSet();
        RemoveSet();
        ASSERT_TRUE(Await([&] { return FindSet() != -1 && FindSet() != set; }));
        for (int look = 0; look < 20; ++look) {
            const std::vector<int> values = SemaphoreValues();
            if (values.empty()) continue;  // just being made
            EXPECT_LE(*std::max_element(values.begin() + 1, values.end()), 1);
            EXPECT_LE(values[0], kUsers);
            usleep(100);
        }
    }
    state->finish = true;
    state->barrier.Arrive(kUsers + 1);
    EXPECT_EQ(SemaphoreValues(), Semaphores(kUsers));
    state->barrier.Arrive(kUsers + 1);
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

TEST_F(RemovalTest, BothLocksOfAnOperationAreHeldOnTheSameSet) {
    RunLoaded([](LoadedLibrary& library) {
        const int old = FindSet();
        std::vector<int> atExchange;
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            atExchange = SemaphoreValues();
            return {};
        });
        // As soon as it has taken its first lock.
        system_calls::Watch([&](const std::string& name, long result, int number) {
            if (number != 1) return;
            EXPECT_TRUE(name == "semop" && result == 0);
            syscall(SYS_semctl, old, 0, IPC_RMID, 0);
        });
        EXPECT_EQ(library.SetOutputBit(0, 1), 1);
        system_calls::Watch(nullptr);
        EXPECT_NE(FindSet(), old);
        EXPECT_EQ(atExchange, std::vector<int>({1, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1}));
        EXPECT_EQ(SemaphoreValues(), Semaphores(1));
    });
}

TEST_F(RemovalTest, SetThatVanishesAtAnyCallOfJoiningIsJoinedAnew) {
    RunLoaded([](LoadedLibrary& library) {
        int last = 0;
        for (int made = 0; made >= last;) {
            ++last;
            RemoveSet();
            system_calls::Watch([&](const std::string&, long, int number) {
                made = number;
                const long set = syscall(SYS_semget, ftok(kSetKeyFile, 1), 0, 0);
                if (number == last) syscall(SYS_semctl, set, 0, IPC_RMID, 0);
            });
            ASSERT_EQ(library.SetOutputBit(3, 1), 1) << "removed after call " << last;
            system_calls::Watch(nullptr);
        }
        EXPECT_GE(last, 20) << "the calls are not seen";
    });
    Sweep();
}

TEST_F(RemovalTest, UserThatNeverNoticesLeavesTheNewSetAlone) {
    LoadedProcess idle;
    RemoveSet();
    const int others = MakeSet(Semaphores(1), true);
    idle.Leave();
    EXPECT_EQ(SemaphoreValues(others), Semaphores(1));
    Sweep();
}

}  // namespace
