/**
 * @file processes_test.cpp
 * @brief Processes that load the library and leave it: what is there meanwhile, and that nothing
 * is left.
 *
 * The environment sets MARVANE_EXITS, of processes that end under a running callback (60).
 */
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>

#include "children.h"
#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"

namespace {

class ProcessesTest : public SharedStateTest {};

TEST_F(ProcessesTest, SetAndSegmentAreAsDescribedByteForByte) {
    const mode_t mask = umask(0022);
    LoadedProcess users[3];
    EXPECT_EQ(SemaphoreValues(), Semaphores(3));
    EXPECT_EQ(FirstDifference(SegmentView().All(), SegmentInUse(3)), "");
    semid_ds set = {};
    ASSERT_EQ(semctl(FindSet(), 0, IPC_STAT, &set), 0);
    EXPECT_EQ(set.sem_perm.mode & 0777, 0666);
    shmid_ds segment = {};
    ASSERT_EQ(shmctl(FindSegment(), IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0666);
    EXPECT_EQ(segment.shm_segsz, 65536U);
    EXPECT_EQ(segment.shm_nattch, 3U);
    for (const char* path : kKeyFiles) {
        struct stat file;
        ASSERT_EQ(stat(path, &file), 0);
        EXPECT_EQ(file.st_mode, S_IFREG | 0755U) << path;
        EXPECT_EQ(file.st_size, 0) << path;
    }

    // Who leaves takes back its registration and nothing else.
    for (int left = 2; left >= 0; --left) {
        users[left].Leave();
        EXPECT_EQ(SemaphoreValues(), Semaphores(left));
        if (left == 0) break;
        EXPECT_EQ(FirstDifference(SegmentView().All(), SegmentInUse(3)), "");
    }
    ExpectNothingIsLeft();
    for (const char* path : kKeyFiles)
        EXPECT_EQ(access(path, F_OK), 0) << "key files stay";
    umask(mask);
}

TEST_F(ProcessesTest, EndsWhileACallbackSetsOutputsLeaveNothing) {
    const unsigned processes = FromEnvironment("MARVANE_EXITS", 60);
    const auto start = std::chrono::steady_clock::now();
    std::optional<LoadedProcess> other;  // from the second half on
    for (unsigned number = 0; number < processes; ++number) {
        if (number == processes / 2) other.emplace();
        const auto sometimes = [&](unsigned bit) {
            return (number >> bit & 1) == 0 ? "no" : "yes";
        };
        SCOPED_TRACE(number);
        ASSERT_EQ(StatusOf([&] {
                      return execl(MARVANE_LINKED_PROCESS, MARVANE_LINKED_PROCESS, sometimes(2),
                                   sometimes(1), sometimes(0), std::to_string(number % 20).c_str(),
                                   nullptr);
                  }),
                  0);
        ASSERT_EQ(SemaphoreValues(), Semaphores(other ? 1 : 0));
        ASSERT_EQ(Attachments(), other ? 1U : 0U);
    }
    if (other) other->Leave();
    const auto longest = processes * std::chrono::milliseconds(500);
    EXPECT_LT(std::chrono::steady_clock::now() - start, longest) << "exits wait for something";
}

TEST_F(ProcessesTest, ExitDoesNotWaitLongForABoardThatDoesNotAnswer) {
    const InSharedMemory<std::atomic<bool>> hangs;
    const auto start = std::chrono::steady_clock::now();
    RunLoaded([&](LoadedLibrary& library) {
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            for (*hangs = true;;)
                pause();
        });
        std::thread([&] { library.SetOutputBit(1, 1); }).detach();
        Await([&] { return hangs->load(); });
        std::exit(0);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    // Its end frees its locks, but it could not take back its registration.
    EXPECT_EQ(SemaphoreValues(), Semaphores(1));
    Sweep();
}

TEST_F(ProcessesTest, ExitDoesNotWaitForThreadsThatKeepCalling) {
    const auto start = std::chrono::steady_clock::now();
    RunLoaded([](LoadedLibrary& library) {
        for (int thread = 0; thread < 32; ++thread) {
            std::thread([&] {
                for (;;)
                    library.SetOutputBit(1, 1);
            }).detach();
        }
        usleep(20'000);
        std::exit(0);
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    ExpectNothingIsLeft();
}

}  // namespace
