/**
 * @file processes_test.cpp
 * @brief Processes that load and unload the library in any order: what is there meanwhile, and
 * that nothing is left.
 *
 * The environment sets MARVANE_EXITS, of processes that end under a running callback (80).
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <vector>

#include "children.h"
#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"

namespace {

class ProcessesTest : public SharedStateTest {};

/** Processes that have loaded the library and let go of it one by one. */
class Users {
public:
    void Add() {
        const int number = count++;
        users.emplace_back([this, number] {
            LoadedLibrary library;
            ++state->loaded;
            Await([&] { return state->leaving > number; });
            return 0;
        });
        EXPECT_TRUE(Await([&] { return state->loaded == count; }));
    }
    void LetNextGo() {
        const int number = state->leaving++;
        EXPECT_EQ(users[static_cast<std::size_t>(number)].Wait(), 0);
    }

private:
    struct State {
        std::atomic<int> loaded = 0, leaving = 0;
    };
    InSharedMemory<State> state;
    std::vector<Child> users;
    int count = 0;
};

TEST_F(ProcessesTest, SetAndSegmentAreAsDescribedByteForByte) {
    const mode_t mask = umask(0022);
    Users users;
    for (int count = 1; count <= 3; ++count) {
        users.Add();
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(count));
        EXPECT_EQ(FirstDifference(SegmentView().Bytes(0, kSegmentBytes),
                                  SegmentInUse(static_cast<unsigned>(count))),
                  "");
    }
    semid_ds set = {};
    ASSERT_EQ(semctl(FindSet(), 0, IPC_STAT, &set), 0);
    EXPECT_EQ(set.sem_perm.mode & 0777, 0666);
    shmid_ds segment = {};
    ASSERT_EQ(shmctl(FindSegment(), IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0666);
    EXPECT_EQ(segment.shm_segsz, 65536U);
    EXPECT_EQ(segment.shm_nattch, 3U);
    for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
        struct stat file;
        ASSERT_EQ(stat(path, &file), 0);
        EXPECT_EQ(file.st_mode, S_IFREG | 0755U) << path;
        EXPECT_EQ(file.st_size, 0) << path;
    }

    // Who leaves takes back its registration and nothing else.
    for (int left = 2; left >= 1; --left) {
        users.LetNextGo();
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(left));
        EXPECT_EQ(FirstDifference(SegmentView().Bytes(0, kSegmentBytes), SegmentInUse(3)), "");
    }
    users.LetNextGo();
    EXPECT_EQ(FindSet(), -1);
    EXPECT_EQ(FindSegment(), -1);
    EXPECT_EQ(access(kSetKeyFile, F_OK), 0);
    EXPECT_EQ(access(kSegmentKeyFile, F_OK), 0);

    users.Add();
    EXPECT_EQ(FirstDifference(SegmentView().Bytes(0, kSegmentBytes), SegmentInUse(1)), "");
    users.LetNextGo();
    umask(mask);
}

TEST_F(ProcessesTest, EntriesKeepTheirValuesUntilTheLastProcessLeaves) {
    Users users;
    users.Add();
    Child second([] {
        AddAcceptingBoard(15);
        LoadedLibrary library;
        return library.InitPort(15) == 1 && library.SetOutputBit(33, 1) == 1 &&
                       library.SetOnPeriodOutputBit(0, 7, 1) == 1
                   ? 0
                   : 1;
    });
    EXPECT_EQ(second.Wait(), 0);
    users.Add();
    EXPECT_EQ(OnCopy(15), ByteString({128, 0, 0, 0, 2}));
    EXPECT_EQ(OffCopy(15), ByteString({0, 0, 0, 0, 2}));
    // The simulated part holds the same bytes everywhere, which makes it the smallest of its class.
    EXPECT_EQ(SegmentView().Bytes(kEepromEntries + 8 * 15, 8),
              ByteString({32, 2, 0xFF, 0x0F, 0x51, 0, 1, 0}));
    users.LetNextGo();
    users.LetNextGo();
}

TEST_F(ProcessesTest, ProcessesThatLoadAtTheSameInstantMeet) {
    constexpr int kProcesses = 4;
    constexpr int kRounds = 300;
    const InSharedMemory<Barrier> barrier;
    std::vector<Child> children;
    for (int number = 0; number < kProcesses; ++number) {
        children.emplace_back([&, number] {
            const std::size_t descriptors = OpenDescriptors();
            for (int round = 0; round < kRounds; ++round) {
                barrier->Arrive(kProcesses);
                LoadedLibrary library;
                barrier->Arrive(kProcesses);
                if (number == 0) {
                    EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(kProcesses));
                    EXPECT_EQ(FirstDifference(SegmentView().Bytes(0, kSegmentBytes),
                                              SegmentInUse(kProcesses)),
                              "");
                }
                barrier->Arrive(kProcesses);
                library.Unload();
                barrier->Arrive(kProcesses);
                if (number == 0) {
                    EXPECT_EQ(FindSet(), -1);
                    EXPECT_EQ(FindSegment(), -1);
                }
                if (::testing::Test::HasFailure()) return 1;
            }
            return OpenDescriptors() == descriptors ? 0 : 2;
        });
    }
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ProcessesTest, ProcessesThatComeAndGoDisturbNobody) {
    constexpr int kVisits = 250;
    struct State {
        std::atomic<int> visiting = 3;
        std::atomic<int> operations = 0;
    };
    const InSharedMemory<State> state;
    std::vector<Child> children;
    for (int deviceNo = 0; deviceNo < 3; ++deviceNo) {
        children.emplace_back([&, deviceNo] {
            AddAcceptingBoard(deviceNo);
            int failures = 0;
            for (int visit = 0; visit < kVisits; ++visit) {
                LoadedLibrary library;
                failures += library.InitPort(deviceNo) != 1;
                failures += library.SetOutputBit(5, visit % 2 == 0) != 1;
            }
            --state->visiting;
            return failures;
        });
    }
    Child worker([&] {
        AddAcceptingBoard(3);
        LoadedLibrary library;
        int failures = library.InitPort(3) != 1;
        for (; state->visiting != 0; ++state->operations) {
            failures += library.SetOutputBit(state->operations % 38, 1) != 1;
        }
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
        EXPECT_EQ(ObjectsTwiceOrMissing(), "");
        return failures != 0 || ::testing::Test::HasFailure() ? 1 : 0;
    });
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(worker.Wait(), 0);
    EXPECT_GE(state->operations, 38);
}

TEST_F(ProcessesTest, VisitsWithoutPauseLeaveNothing) {
    // Here the last user leaves while the next one arrives, over and over.
    std::vector<Child> children;
    for (int number = 0; number < 3; ++number) {
        children.emplace_back([number] {
            AddAcceptingBoard(number);
            int failures = 0;
            for (int visit = 0; visit < 300; ++visit) {
                LoadedLibrary library;
                if (visit % 7 != 0) continue;
                failures += library.InitPort(number) != 1;
                failures += library.SetOutputBit(1, 1) != 1;
            }
            return failures;
        });
    }
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

/** Runs `linked_process`, which has the library from its start to its end. */
Child RunLinked(const char* what, const char* end, unsigned times = 0) {
    return Child([=] {
        execl(MARVANE_LINKED_PROCESS, MARVANE_LINKED_PROCESS, what, end,
              std::to_string(times).c_str(), nullptr);
        return 126;
    });
}

TEST_F(ProcessesTest, LinkedProgramsJoinAndLeaveByThemselves) {
    for (int round = 0; round < 10; ++round) {
        std::vector<Child> children;
        for (int number = 0; number < 4; ++number)
            children.push_back(RunLinked("switch", "return"));
        for (Child& child : children)
            EXPECT_EQ(child.Wait(), 0);
        EXPECT_EQ(FindSet(), -1);
        EXPECT_EQ(FindSegment(), -1);
    }
    EXPECT_EQ(RunLinked("switch", "exit").Wait(), 0);
}

TEST_F(ProcessesTest, EndsWhileACallbackSetsOutputsLeaveNothing) {
    constexpr unsigned kBatch = 20;  // while another user waits, whose patience ends
    const unsigned processes = FromEnvironment("MARVANE_EXITS", 80);
    for (unsigned begun = 0; begun < processes; begun += kBatch) {
        const bool alone = begun / kBatch % 2 == 0;
        Users others;
        if (!alone) others.Add();
        for (unsigned number = 0; number < kBatch; ++number) {
            const char* what = number % 4 < 2 ? "callbacks" : "callbacks to the end";
            const char* end = number % 2 == 0 ? "return" : "exit";
            ASSERT_EQ(RunLinked(what, end, number).Wait(), 0) << what << ", " << end;
            ASSERT_EQ(SemaphoreValues(FindSet()), alone ? std::vector<int>() : Semaphores(1));
            ASSERT_EQ(FindSegment() == -1, alone);
        }
        if (!alone) others.LetNextGo();
    }
}

TEST_F(ProcessesTest, ProcessWithoutStandardDescriptorsIsServed) {
    Child child([] {
        for (const int descriptor : {0, 1, 2})
            close(descriptor);
        AddAcceptingBoard();
        LoadedLibrary library;
        for (const int descriptor : {0, 1, 2}) {
            if (fcntl(descriptor, F_GETFD) >= 0) return 1;
        }
        return library.InitPort(0) == 1 && library.SetOutputBit(1, 1) == 1 ? 0 : 2;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ProcessesTest, ExitBesideWorkingThreadsIsOrderly) {
    for (int round = 0; round < 20; ++round) {
        Child child([&] {
            AddAcceptingBoard();
            LoadedLibrary library;
            if (library.InitPort(0) != 1) return 1;
            std::atomic<int> done = 0;
            for (unsigned number = 0; number < 3; ++number) {
                std::thread([&, number] {
                    // After the end of the shared state they fail, until the process is gone.
                    for (;; ++done)
                        library.SetOutputBit(number, done % 2);
                }).detach();
            }
            Await([&] { return done > 100 + round; });
            std::exit(0);
        });
        EXPECT_EQ(child.Wait(), 0);
        EXPECT_EQ(FindSet(), -1);
        EXPECT_EQ(FindSegment(), -1);
    }
}

TEST_F(ProcessesTest, ExitDoesNotWaitLongForABoardThatDoesNotAnswer) {
    const InSharedMemory<std::atomic<bool>> hangs;
    const auto start = std::chrono::steady_clock::now();
    Child child([&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 1;
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            *hangs = true;
            for (;;)
                pause();
        });
        std::thread([&] { library.SetOutputBit(1, 1); }).detach();
        Await([&] { return hangs->load(); });
        std::exit(0);
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    // Its end frees its locks, but it could not take back its registration.
    EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
    Sweep();
}

}  // namespace
