/**
 * @file forks_test.cpp
 * @brief Children that a process forks while it has the library loaded, and signals at work.
 *
 * Here a "child" of a test forks another one, which inherits what it has. The environment sets
 * MARVANE_FORK_ROUNDS, of forks beside working threads (30).
 */
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>

#include "children.h"
#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"
#include "testing/in_process_bus.h"

namespace {

const unsigned kRounds = FromEnvironment("MARVANE_FORK_ROUNDS", 30);

/** Forks a child that outlives its parent, for a while if the test forgets it. */
pid_t ForkOrphan(const std::function<void()>& act) {
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, 0);
    alarm(60);
    act();
    _exit(0);
}

class ForksTest : public SharedStateTest {};

TEST_F(ForksTest, ChildIsAUserOfItsOwnFromItsFirstLockToItsEndHoweverItComes) {
    void (*const ends[])() = {[] { std::exit(0); }, [] { _exit(0); }, [] { raise(SIGKILL); }};
    for (const auto end : ends) {
        RunLoaded([&](LoadedLibrary& library) {
            const InSharedMemory<Barrier> barrier;
            Child forked([&] {
                barrier->Arrive();
                if (library.SetOutputBit(3, 1) != 1) return 1;
                barrier->Arrive();
                barrier->Arrive();
                end();
                return 2;
            });
            EXPECT_EQ(SharedSemaphore(0), 1) << "a fork alone registers nobody";
            barrier->Arrive();
            barrier->Arrive();
            EXPECT_EQ(SemaphoreValues(), Semaphores(2));
            EXPECT_EQ(OnCopy(0)[0], 8);
            barrier->Arrive();
            EXPECT_EQ(forked.Wait(), end == ends[2] ? 128 + SIGKILL : 0);
            EXPECT_EQ(SemaphoreValues(), Semaphores(1));
            EXPECT_EQ(library.SetOutputBit(3, 0), 1);
        });
        ExpectNothingIsLeft();
    }
}

TEST_F(ForksTest, ChildThatUsesNothingTakesNothingBack) {
    RunLoaded([](LoadedLibrary& library) {
        EXPECT_EQ(StatusOf([]() -> int { std::exit(0); }), 0);
        EXPECT_EQ(StatusOf([&] {
                      library.Unload();
                      return 0;
                  }),
                  0);
        EXPECT_EQ(SemaphoreValues(), Semaphores(1));
        EXPECT_NE(FindSegment(), -1);
        EXPECT_EQ(library.SetOutputBit(3, 1), 1);
    });
}

TEST_F(ForksTest, ChildJoinsItsParentsSetThoughTheKeyFilesAreGone) {
    RunLoaded([](LoadedLibrary& library) {
        const int set = FindSet();
        SweepKeyFiles();
        EXPECT_EQ(StatusOf([&] {
                      EXPECT_EQ(library.SetOutputBit(3, 1), 1);
                      EXPECT_EQ(SemaphoreValues(set), Semaphores(2));
                      return 0;
                  }),
                  0);
    });
}

TEST_F(ForksTest, ChildMayOutliveItsParent) {
    for (const bool kills : {false, true}) {
        const InSharedMemory<Barrier> barrier;
        const InSharedMemory<std::atomic<int>> result;
        const int end = kills ? 128 + SIGKILL : 0;
        RunLoaded(end, [&](LoadedLibrary& library) {
            ForkOrphan([&] {
                library.SetOutputBit(1, 1);
                barrier->Arrive();
                barrier->Arrive();
                *result = library.SetOutputBit(2, 1);
                library.Unload();
                barrier->Arrive();
            });
            barrier->Arrive();
            if (kills) raise(SIGKILL);
        });
        EXPECT_EQ(SemaphoreValues(), Semaphores(kills ? 2 : 1));
        EXPECT_EQ(OnCopy(0)[0], 2);
        barrier->Arrive();
        barrier->Arrive();
        EXPECT_EQ(*result, 1);
        EXPECT_EQ(FindSegment(), -1);
        EXPECT_EQ(SemaphoreValues(), Semaphores(kills ? 1 : 0));
        Sweep();
    }
}

TEST_F(ForksTest, ForkBesideWorkingThreadsLeavesBothAtWork) {
    RunLoaded([](LoadedLibrary& library) {
        std::atomic<bool> finish = false;
        std::atomic<int> failures = 0;
        std::vector<std::thread> threads;
        for (unsigned number = 0; number < 2; ++number) {
            threads.emplace_back([&, number] {
                while (!finish)
                    failures += library.SetOutputBit(number, 1) != 1;
            });
        }
        const auto start = std::chrono::steady_clock::now();
        for (unsigned round = 0; round < kRounds; ++round) {
            Child forked([&] {
                // At the fork the other threads held locks, or joined, or were about to.
                if (library.SetOutputBit(5, 1) + library.SetOutputBit(6, 1) == 2) std::exit(0);
                return 1;
            });
            EXPECT_EQ(forked.Wait(), 0) << "round " << round;
        }
        const auto longest = kRounds * std::chrono::milliseconds(600);
        EXPECT_LT(std::chrono::steady_clock::now() - start, longest) << "exits wait for others";
        finish = true;
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(SemaphoreValues(), Semaphores(1));
        EXPECT_EQ(failures, 0);
    });
}

TEST_F(ForksTest, ChildrenOfAJoiningThreadHoldNoKeyFileLock) {
    // A thread joins again and again while another one forks; what the children
    // inherit must not keep the lock of a parent that is killed.
    for (unsigned round = 0; round < kRounds / 2; ++round) {
        const InSharedMemory<std::array<std::atomic<pid_t>, 8>> orphans;
        const InSharedMemory<std::atomic<unsigned>> answered;
        RunLoaded(128 + SIGKILL, [&](LoadedLibrary& library) {
            std::thread([&] {
                for (;; library.SetOutputBit(1, 1))
                    RemoveSet();
            }).detach();
            for (auto& orphan : *orphans) {
                usleep(300);
                orphan = ForkOrphan([&] {
                    library.SetOutputBit(2, 1);  // whatever the other thread was joining
                    for (++*answered;;)
                        pause();
                });
            }
            raise(SIGKILL);
        });
        EXPECT_TRUE(Await([&] { return *answered == orphans->size(); })) << "an orphan is stuck";
        EXPECT_FALSE(KeyFileIsLocked()) << "round " << round;
        for (const auto& orphan : *orphans)
            kill(orphan, SIGKILL);
        EXPECT_TRUE(Await([] { return Attachments() == 0; }));
        Sweep();
    }
}

pid_t forkedInHandler = -1;

TEST_F(ForksTest, ChildForkedAtAnyCallOfAnOperationTakesNothingFromItsParent) {
    // By a signal handler that returns in both processes: the child goes on with
    // the operation that its parent was in.
    std::signal(SIGUSR1, [](int) { forkedInHandler = fork(); });
    for (const bool joins : {false, true}) {
        for (int last = 1;; ++last) {
            SCOPED_TRACE(std::string(joins ? "joining, " : "") + "call " + std::to_string(last));
            const InSharedMemory<std::atomic<int>> made;
            RunLoaded([&](LoadedLibrary& library) {
                if (joins) RemoveSet();
                system_calls::Watch([&](const std::string&, long, int number) {
                    *made = number;
                    if (number == last) raise(SIGUSR1);
                });
                EXPECT_EQ(library.SetOutputBit(5, 1), 1);
                system_calls::Watch(nullptr);
                if (forkedInHandler == 0) {
                    alarm(20);
                    const auto start = std::chrono::steady_clock::now();
                    library.SetOutputBit(6, 1);
                    const std::vector<int> values = SemaphoreValues();
                    if (*std::max_element(values.begin() + 1, values.end()) > 1) _exit(4);
                    library.Unload();
                    const auto took = std::chrono::steady_clock::now() - start;
                    _exit(took < std::chrono::milliseconds(900) ? 0 : 3);
                }
                int status = 0;
                if (forkedInHandler > 0) waitpid(forkedInHandler, &status, 0);
                EXPECT_EQ(status, 0) << "in the child";
                EXPECT_EQ(SemaphoreValues(), Semaphores(1));
            });
            ExpectNothingIsLeft();
            if (*made < last || HasFailure()) break;
        }
    }
}

void ForkInHandler() {
    std::signal(SIGUSR1, [](int) {
        const pid_t child = fork();
        if (child == 0) _exit(0);
        waitpid(child, nullptr, 0);
    });
    alarm(20);
}

TEST_F(ForksTest, HandlerThatForksMayInterruptItsOwnThreadsFork) {
    const auto forkInFork = [] {
        ForkInHandler();
        // Registered before the library, so called after its own.
        pthread_atfork(
            [] {
                static bool raised = false;
                if (!std::exchange(raised, true)) raise(SIGUSR1);
            },
            nullptr, nullptr);
        LoadedLibrary library;
        EXPECT_EQ(StatusOf([] { return 7; }), 7);
        return 0;
    };
    EXPECT_EQ(StatusOf(forkInFork), 0);
    ExpectNothingIsLeft();
}

TEST_F(ForksTest, HandlerThatForksDoesNotWaitForItsOwnThreadsKeyFile) {
    const auto load = [&] {
        ForkInHandler();
        int opened = 0;
        marvaneusb::testing::onOtherOpen = [&](const std::string& path) {
            opened += path == kSetKeyFile || path == kSegmentKeyFile ? 1 : 0;
            raise(SIGUSR1);
        };
        LoadedLibrary library;
        library.Unload();
        return opened >= 8 ? 0 : 1;
    };
    EXPECT_EQ(StatusOf(load), 0);
    ExpectNothingIsLeft();
}

TEST_F(ForksTest, ProgramExecutedInMidOperationFindsItsLocksFree) {
    for (const int command : {77, 83, 3}) {
        RunLoaded([&](LoadedLibrary& library) {
            InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
                execl(MARVANE_LINKED_PROCESS, MARVANE_LINKED_PROCESS, "no", "no", "yes", "3",
                      nullptr);
                return {.error = errno};
            });
            // Any thread may be in an operation when another one executes a program.
            std::thread([&] {
                if (command == 77) library.SetOutputBit(1, 1);
                if (command == 83) library.SetOnPeriodBit(1, 1);
                if (command == 3) library.ConfigureEeprom();
            }).join();
            ADD_FAILURE() << "no program is executed";
        });
        EXPECT_EQ(SemaphoreValues(), Semaphores(1)) << "the former program's, for ever";
        EXPECT_EQ(FindSegment(), -1);
        Sweep();
    }
}

TEST_F(ForksTest, SignalsDoNotEndTheWaitForALock) {
    const InSharedMemory<std::atomic<int>> interrupted;
    const InSharedMemory<std::atomic<bool>> holds, lets;
    Child holder([&] {
        RunLoaded([&](LoadedLibrary& library) {
            InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
                *holds = true;
                Await([&] { return *interrupted >= 5; });
                *lets = true;
                return {};
            });
            EXPECT_EQ(library.SetOutputBit(0, 1), 1);
        });
        return 0;
    });
    RunLoaded([&](LoadedLibrary& library) {
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            EXPECT_TRUE(*lets) << "sent too early";
            return {};
        });
        Await([&] { return holds->load(); });
        system_calls::Watch([&](const std::string& name, long result, int) {
            *interrupted += name == "semop" && result < 0 && errno == EINTR ? 1 : 0;
        });
        std::signal(SIGALRM, [](int) {});
        const itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
        EXPECT_EQ(library.SetOutputBit(1, 1), 1);
        system_calls::Watch(nullptr);
        EXPECT_EQ(OnCopy(0)[0], 3);
    });
    EXPECT_EQ(holder.Wait(), 0);
}

}  // namespace
