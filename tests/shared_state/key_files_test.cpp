/**
 * @file key_files_test.cpp
 * @brief Key files that are somebody else's, something else, or replaced meanwhile.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

constexpr uid_t kOtherUser = 65534;

int BecomeAnotherUser() {
    return setresgid(kOtherUser, kOtherUser, kOtherUser) |
           setresuid(kOtherUser, kOtherUser, kOtherUser);
}

int UseAsAnotherUser() {
    return StatusOf([] { return BecomeAnotherUser() == 0 ? UseEverything() : 120; });
}

class KeyFilesTest : public SharedStateTest {
protected:
    void TearDown() override {
        SharedStateTest::TearDown();
        SweepKeyFiles();
    }

    static bool MayBecomeAnotherUser() {
        return geteuid() == 0 && StatusOf(BecomeAnotherUser) == 0;
    }
    static void MakeFiles(mode_t mode, uid_t owner) {
        for (const char* path : kKeyFiles) {
            close(open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0600));
            chmod(path, mode);
            ASSERT_EQ(chown(path, owner, owner), 0);
        }
    }
};

TEST_F(KeyFilesTest, FilesOfAnotherUserServeAsLongAsTheyCanBeRead) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    for (const mode_t mode : {0755, 0444}) {
        SCOPED_TRACE(mode);
        MakeFiles(mode, 0);
        EXPECT_EQ(UseAsAnotherUser(), kAll);
        ExpectNothingIsLeft();
        MakeFiles(mode, kOtherUser);
        EXPECT_EQ(StatusOf([] { return UseEverything(); }), kAll);
        ExpectNothingIsLeft();
        SweepKeyFiles();
    }
}

TEST_F(KeyFilesTest, WithoutReadingThemWhatIsFinishedIsUsedAndNothingElse) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    MakeFiles(0600, 0);
    EXPECT_EQ(UseAsAnotherUser(), 0);
    ExpectNothingIsLeft();

    LoadedProcess owner;
    EXPECT_EQ(UseAsAnotherUser(), kAll);
    EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1)) << "it registered and unregistered";
    owner.Leave();
}

TEST_F(KeyFilesTest, LastUserWithoutTheRightToRemoveLeavesNothingInTheObjects) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    MakeFiles(0666, 0);
    const auto serve = [](LoadedLibrary& library) {
        EXPECT_EQ(library.SetOutputBit(3, 1) + library.ConfigureEeprom(), 2);
        return BecomeAnotherUser();
    };
    EXPECT_EQ(StatusOfLoaded(serve), 0);
    EXPECT_EQ(Attachments(), 0U);
    EXPECT_EQ(FirstDifference(SegmentView().All(), SegmentInUse(1)), "") << "its entries stay";
    EXPECT_EQ(StatusOf([] { return UseEverything(); }), kAll);
    EXPECT_EQ(FindSegment(), -1) << "the owner removes what it was left";
    Sweep();

    // Not the last one: what the others have stays as it is.
    LoadedProcess other;
    EXPECT_EQ(StatusOfLoaded(serve), 0);
    EXPECT_EQ(OnCopy(0), ByteString({8, 0, 0, 0, 0}));
    other.Leave();
}

TEST_F(KeyFilesTest, WithoutTheirLockARemovedSegmentIsNotUsed) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    MakeFiles(0600, 0);
    for (const char* lastCall : {"shmget", "shmat"}) {
        LoadedProcess owner;
        const InSharedMemory<Barrier> barrier;
        Child loading([&] {
            if (BecomeAnotherUser() != 0) return 120;
            system_calls::Watch([&, done = false](const std::string& name, long, int) mutable {
                if (name != lastCall || std::exchange(done, true)) return;
                barrier->Arrive();
                barrier->Arrive();
            });
            return UseEverything(false);
        });
        barrier->Arrive();
        shmctl(FindSegment(), IPC_RMID, nullptr);
        barrier->Arrive();
        EXPECT_EQ(loading.Wait(), 0) << "served without a segment";
        owner.Leave();
    }
}

TEST_F(KeyFilesTest, WhoeverHoldsOneIsWaitedForTenSecondsAndNamed) {
    const InSharedMemory<std::atomic<bool>> holds;
    Child holder([&] {
        const int file = open(kSetKeyFile, O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        *holds = flock(file, LOCK_SH) == 0;
        return pause();
    });
    EXPECT_TRUE(Await([&] { return holds->load(); }));
    const auto load = [&] {
        AddAcceptingBoard();
        LoadedLibrary library;
        library.InitPort(0);
        EXPECT_EQ(library.SetOutputBit(3, 1), 0);
        EXPECT_EQ(library.GetLastError(), 38);
        const std::string who = "process " + std::to_string(holder.Process());
        EXPECT_NE(library.DescribeFailure().find("no semaphore set: " + who + " (processes_test"),
                  std::string::npos)
            << library.DescribeFailure();
        holder.Signal(SIGKILL);
        EXPECT_TRUE(Await([&] { return library.SetOutputBit(3, 1) == 1; }));
        return 0;
    };
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(StatusOf(load), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(10));
    EXPECT_LT(took, std::chrono::seconds(15));
}

TEST_F(KeyFilesTest, OtherThingsInTheirPlaceDoNoHarm) {
    struct Case {
        const char* what;
        std::function<int(const char*)> make;
        int served;
    };
    const std::string there = led_key_files::Folder() + "/there";
    const std::string nothing = led_key_files::Folder() + "/nothing";
    close(open(there.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644));
    const Case cases[] = {
        // clang-format off
        {"link to nothing", [](const char* path) { return symlink("nothing", path); }, 0},
        {"link to a file",  [](const char* path) { return symlink("there", path); },   kAll},
        {"named pipe",      [](const char* path) { return mkfifo(path, 0666); },       kAll},
        {"directory",       [](const char* path) { return mkdir(path, 0777); },        kAll},
        // clang-format on
    };
    for (const Case& c : cases) {
        for (const char* path : kKeyFiles) {
            SCOPED_TRACE(std::string(c.what) + " at " + path);
            EXPECT_EQ(c.make(path), 0);
            EXPECT_EQ(StatusOf([] { return UseEverything(); }), c.served);
            EXPECT_NE(access(nothing.c_str(), F_OK), 0) << "the link's target was created";
            ExpectNothingIsLeft();
            SweepKeyFiles();
        }
    }
    unlink(there.c_str());
}

TEST_F(KeyFilesTest, FileThatIsReplacedDuringTheWaitIsOpenedAnew) {
    for (const char* path : kKeyFiles) {
        SCOPED_TRACE(path);
        const int held = open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        ASSERT_EQ(flock(held, LOCK_EX), 0);
        const InSharedMemory<Barrier> barrier;
        const auto load = [&] {
            close(held);  // the copy would keep its lock
            LoadedLibrary library;
            barrier->Arrive(3);
            barrier->Arrive(3);
            return 0;
        };
        Child waiting(load);
        ASSERT_TRUE(Await([&] { return waiting.WaitsIn(SYS_clock_nanosleep); }));
        unlink(path);
        Child later(load);
        usleep(20000);  // later has a new file to itself, whatever it does there
        flock(held, LOCK_UN);
        close(held);
        barrier->Arrive(3);
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(2));
        EXPECT_EQ(HeaderDifference(), "");
        barrier->Arrive(3);
        EXPECT_EQ(waiting.Wait(), 0);
        EXPECT_EQ(later.Wait(), 0);
    }
}

}  // namespace
