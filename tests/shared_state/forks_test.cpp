/**
 * @file forks_test.cpp
 * @brief Children that a process forks while it has the library loaded, and signals at work.
 *
 * Here a "child" of a test forks another one, which inherits what it has.
 */
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

/** In a process with the library loaded and board 0 open; the result is its exit status. */
using Act = std::function<int(LoadedLibrary&)>;

int RunLoaded(const Act& act) {
    Child process([&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 101;
        const int status = act(library);
        return ::testing::Test::HasFailure() ? 102 : status;
    });
    return process.Wait();
}

/** Steps that two processes agree on. */
class Steps {
public:
    void Reach(int step) { reached = step; }
    int Reached() const { return reached; }
    void Await(int step) {
        if (!::Await([&] { return reached >= step; })) throw std::runtime_error("step missing");
    }

private:
    std::atomic<int> reached = 0;
};

class ForksTest : public SharedStateTest {};

TEST_F(ForksTest, ChildIsAUserOfItsOwnFromItsFirstLockToItsEndHoweverItComes) {
    struct Case {
        const char* what;
        std::function<void()> end;
        int status;
    };
    const Case cases[] = {
        {"exit", [] { std::exit(0); }, 0},
        {"_exit", [] { _exit(0); }, 0},
        {"killed", [] { raise(SIGKILL); }, 128 + SIGKILL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto whole = [&](LoadedLibrary& library) {
            const InSharedMemory<Steps> steps;
            Child forked([&] {
                steps->Await(1);
                const bool served = library.SetOutputBit(3, 1) == 1;
                steps->Reach(2);
                steps->Await(3);
                if (!served) return 1;
                c.end();
                return 2;
            });
            EXPECT_EQ(RegisteredUsers(), 1) << "a fork alone registers nobody";
            steps->Reach(1);
            steps->Await(2);
            EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(2));
            EXPECT_EQ(OnCopy(0)[0], 8);
            steps->Reach(3);
            EXPECT_EQ(forked.Wait(), c.status);
            EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
            EXPECT_EQ(library.SetOutputBit(3, 0), 1);
            return 0;
        };
        EXPECT_EQ(RunLoaded(whole), 0);
        EXPECT_EQ(FindSet(), -1);
        EXPECT_EQ(FindSegment(), -1);
    }
}

TEST_F(ForksTest, ChildThatUsesNothingTakesNothingBack) {
    const auto whole = [](LoadedLibrary& library) {
        Child exits([]() -> int { std::exit(0); });
        EXPECT_EQ(exits.Wait(), 0);
        Child unloads([&] {
            library.Unload();
            return 0;
        });
        EXPECT_EQ(unloads.Wait(), 0);
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
        EXPECT_NE(FindSegment(), -1);
        return library.SetOutputBit(3, 1) == 1 ? 0 : 1;
    };
    EXPECT_EQ(RunLoaded(whole), 0);
}

TEST_F(ForksTest, ProgramThatAChildRunsIsNoUser) {
    const InSharedMemory<std::atomic<pid_t>> program;
    const auto whole = [&](LoadedLibrary& library) {
        const pid_t forked = fork();
        if (forked == 0) {
            prctl(PR_SET_PDEATHSIG, 0);
            alarm(60);  // nobody collects it if the test fails
            execl("/bin/sleep", "sleep", "60", nullptr);
            _exit(126);
        }
        *program = forked;
        // Its memory is its own once the program runs, and the segment no longer in it.
        EXPECT_TRUE(Await([] {
            shmid_ds state = {};
            return shmctl(FindSegment(), IPC_STAT, &state) == 0 && state.shm_nattch == 1;
        }));
        EXPECT_EQ(RegisteredUsers(), 1);
        EXPECT_EQ(library.SetOutputBit(3, 1), 1);
        return 0;
    };
    EXPECT_EQ(RunLoaded(whole), 0);
    EXPECT_EQ(kill(*program, 0), 0) << "it still runs";
    EXPECT_EQ(FindSet(), -1);
    EXPECT_EQ(FindSegment(), -1);
    kill(*program, SIGKILL);
}

TEST_F(ForksTest, ChildMayOutliveItsParent) {
    for (const bool kills : {false, true}) {
        const InSharedMemory<Steps> steps;
        const InSharedMemory<std::atomic<int>> result;
        const auto whole = [&](LoadedLibrary& library) {
            const pid_t forked = fork();
            if (forked == 0) {
                prctl(PR_SET_PDEATHSIG, 0);
                alarm(60);
                library.SetOutputBit(1, 1);
                steps->Reach(1);
                steps->Await(2);
                *result = library.SetOutputBit(2, 1);
                steps->Reach(3);
                library.Unload();
                steps->Reach(4);
                _exit(0);
            }
            steps->Await(1);
            if (kills) raise(SIGKILL);
            return 0;
        };
        EXPECT_EQ(RunLoaded(whole), kills ? 128 + SIGKILL : 0);
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(kills ? 2 : 1));
        EXPECT_EQ(OnCopy(0)[0], 2);
        steps->Reach(2);
        steps->Await(4);
        EXPECT_EQ(*result, 1);
        EXPECT_EQ(FindSegment(), -1);
        EXPECT_EQ(SemaphoreValues(FindSet()), kills ? Semaphores(1) : std::vector<int>());
        Sweep();
    }
}

TEST_F(ForksTest, GenerationsAreCountedOneByOne) {
    const auto whole = [](LoadedLibrary& library) {
        Child forked([&] {
            EXPECT_EQ(library.SetOutputBit(1, 1), 1);
            EXPECT_EQ(RegisteredUsers(), 2);
            Child grandchild([&] {
                EXPECT_EQ(RegisteredUsers(), 2);
                EXPECT_EQ(library.SetOutputBit(2, 1), 1);
                EXPECT_EQ(library.SetOutputBit(3, 1), 1);
                EXPECT_EQ(RegisteredUsers(), 3);
                return ::testing::Test::HasFailure() ? 1 : 0;
            });
            EXPECT_EQ(grandchild.Wait(), 0);
            EXPECT_EQ(RegisteredUsers(), 2);
            EXPECT_EQ(library.SetOutputBit(4, 1), 1);
            return ::testing::Test::HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(forked.Wait(), 0);
        EXPECT_EQ(RegisteredUsers(), 1);
        EXPECT_EQ(OnCopy(0)[0], 0x1E);
        return 0;
    };
    EXPECT_EQ(RunLoaded(whole), 0);
}

TEST_F(ForksTest, ForkBesideWorkingThreadsLeavesBothAtWork) {
    const auto whole = [](LoadedLibrary& library) {
        std::atomic<bool> finish = false;
        std::atomic<int> failures = 0;
        std::vector<std::thread> threads;
        for (unsigned number = 0; number < 2; ++number) {
            threads.emplace_back([&, number] {
                while (!finish)
                    failures += library.SetOutputBit(number, 1) != 1;
            });
        }
        for (int round = 0; round < 50; ++round) {
            Child forked([&] {
                // At the fork the other threads held locks, or joined, or were about to.
                const int served = library.SetOutputBit(5, 1) + library.SetOutputBit(6, 1);
                if (served != 2) return 1;
                std::exit(0);
            });
            EXPECT_EQ(forked.Wait(), 0) << "round " << round;
        }
        finish = true;
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(failures, 0);
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
        return 0;
    };
    EXPECT_EQ(RunLoaded(whole), 0);
}

TEST_F(ForksTest, ChildrenOfAJoiningThreadHoldNoKeyFileLock) {
    // A thread joins again and again while another one forks; what the children inherit must not
    // keep the lock of a parent that is killed.
    for (int round = 0; round < 20; ++round) {
        const InSharedMemory<std::atomic<int>> forked;
        const InSharedMemory<std::array<std::atomic<pid_t>, 8>> orphans;
        const auto whole = [&](LoadedLibrary& library) {
            std::thread([&] {
                for (;;) {
                    semctl(FindSet(), 0, IPC_RMID);
                    library.SetOutputBit(1, 1);
                }
            }).detach();
            for (auto& orphan : *orphans) {
                usleep(300);
                const pid_t child = fork();
                if (child == 0) {
                    prctl(PR_SET_PDEATHSIG, 0);
                    alarm(60);
                    for (;;)
                        pause();
                }
                orphan = child;
            }
            raise(SIGKILL);
            return 0;
        };
        EXPECT_EQ(RunLoaded(whole), 128 + SIGKILL);
        // A child that has just come into being closes its copy as soon as it runs.
        EXPECT_TRUE(Await([] { return !KeyFileIsLocked(); })) << "round " << round;
        for (const auto& orphan : *orphans)
            kill(orphan, SIGKILL);
        EXPECT_TRUE(Await([&] {
            shmid_ds state = {};
            return shmctl(FindSegment(), IPC_STAT, &state) != 0 || state.shm_nattch == 0;
        }));
        Sweep();
    }
}

// Signals

void HandleNothing(int) {}

void InterruptEveryMillisecond() {
    struct sigaction action = {};
    action.sa_handler = HandleNothing;  // without SA_RESTART, which semop ignores anyway
    sigaction(SIGALRM, &action, nullptr);
    const itimerval timer = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

TEST_F(ForksTest, SignalsDoNotEndTheWaitForALock) {
    const InSharedMemory<Steps> steps;
    Child holder([&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 1;
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            steps->Reach(1);
            steps->Await(2);
            usleep(30000);
            steps->Reach(3);
            return {};
        });
        return library.SetOutputBit(0, 1) == 1 ? 0 : 2;
    });
    Child waiter([&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 1;
        bool sentTooEarly = false;
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            sentTooEarly = OnCopy(0)[0] != 3 || steps->Reached() < 3;
            return {};
        });
        steps->Await(1);
        InterruptEveryMillisecond();
        system_calls::Count();
        steps->Reach(2);
        if (library.SetOutputBit(1, 1) != 1) return 2;
        if (sentTooEarly) return 3;
        return system_calls::Interrupted() >= 5 ? 0 : 4;
    });
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_EQ(holder.Wait(), 0);
}

TEST_F(ForksTest, SignalsAtWorkNeitherLoseNorDoubleALock) {
    const InSharedMemory<Barrier> barrier;
    std::vector<Child> children;
    for (unsigned number = 0; number < 3; ++number) {
        children.emplace_back([&, number] {
            AddAcceptingBoard();
            InterruptEveryMillisecond();
            LoadedLibrary library;
            if (library.InitPort(0) != 1) return 1;
            barrier->Arrive(3);
            for (unsigned round = 0; round < 3000; ++round) {
                if (library.SetOutputBit(3 * (round % 12) + number, round >= 1500) != 1) return 2;
            }
            barrier->Arrive(3);
            const bool quiet = SemaphoreValues(FindSet()) == Semaphores(3);
            const bool all = OnCopy(0) == ByteString({255, 255, 255, 255, 15});
            barrier->Arrive(3);
            return (quiet ? 0 : 4) + (all ? 0 : 8);
        });
    }
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
