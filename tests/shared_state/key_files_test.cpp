/**
 * @file key_files_test.cpp
 * @brief Key files that others guard, that are something else, or that are replaced meanwhile.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/file.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

/** From here on the modes of files bind this process; it becomes another user where it may. */
void LosePrivileges() {
    constexpr uid_t kOtherUser = 65534;
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    if (geteuid() == 0 && setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
        setresuid(kOtherUser, kOtherUser, kOtherUser) == 0) {
        return;
    }
    if (syscall(SYS_capset, &header, none) != 0) throw std::runtime_error("capset");
}

void SetModes(mode_t mode) {
    for (const char* path : kKeyFiles) {
        close(open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        ASSERT_EQ(chmod(path, mode), 0);
    }
}

int ServedWithoutPrivileges() {
    return ServedToAnother(true, LosePrivileges);
}

class KeyFilesTest : public SharedStateTest {
protected:
    void TearDown() override {
        SharedStateTest::TearDown();
        SweepKeyFiles();
    }
};

TEST_F(KeyFilesTest, FilesServeAsLongAsTheyCanBeRead) {
    SetModes(0444);
    EXPECT_EQ(ServedWithoutPrivileges(), kAll);
    ExpectNothingIsLeft();
}

TEST_F(KeyFilesTest, WithoutReadingThemWhatIsFinishedIsUsedAndNothingElse) {
    SetModes(0000);
    EXPECT_EQ(ServedWithoutPrivileges(), 0);
    ExpectNothingIsLeft();

    SetModes(0644);
    LoadedProcess owner;
    SetModes(0000);
    EXPECT_EQ(ServedWithoutPrivileges(), kAll);
    EXPECT_EQ(SemaphoreValues(), Semaphores(1)) << "it registered and unregistered";
    SetModes(0644);
    owner.Leave();
}

TEST_F(KeyFilesTest, LastUserWithoutTheRightToRemoveLeavesNothingInTheObjects) {
    const auto serve = [](LoadedLibrary& library) {
        EXPECT_EQ(library.SetOutputBit(3, 1) + library.ConfigureEeprom(), 2);
        system_calls::RefuseRemoval();
    };
    RunLoaded(serve);
    EXPECT_EQ(Attachments(), 0U);
    EXPECT_EQ(FirstDifference(SegmentView().All(), SegmentInUse(1)), "") << "its entries stay";
    EXPECT_EQ(ServedToAnother(), kAll);
    ExpectNothingIsLeft();

    // Not the last one: what the others have stays as it is.
    LoadedProcess other;
    RunLoaded(serve);
    EXPECT_EQ(OnCopy(0), ByteString({8, 0, 0, 0, 0}));
    other.Leave();
}

TEST_F(KeyFilesTest, WithoutTheirLockARemovedSegmentIsNotUsed) {
    for (const char* lastCall : {"shmget", "shmat"}) {
        LoadedProcess owner;
        const InSharedMemory<Barrier> barrier;
        SetModes(0000);
        Child loading([&] {
            LosePrivileges();
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
        SetModes(0644);
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
    const std::string there = led_key_files::Folder() + "/there";
    const std::string nothing = led_key_files::Folder() + "/nothing";
    close(open(there.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644));
    const struct {
        const char* what;
        int (*make)(const char*);
        int served;
    } cases[] = {
        // clang-format off
        {"link to nothing", [](const char* path) { return symlink("nothing", path); }, 0},
        {"link to a file",  [](const char* path) { return symlink("there", path); },   kAll},
        {"named pipe",      [](const char* path) { return mkfifo(path, 0666); },       kAll},
        {"directory",       [](const char* path) { return mkdir(path, 0777); },        kAll},
        // clang-format on
    };
    for (const auto& c : cases) {
        for (const char* path : kKeyFiles) {
            SCOPED_TRACE(std::string(c.what) + " at " + path);
            EXPECT_EQ(c.make(path), 0);
            EXPECT_EQ(ServedToAnother(), c.served);
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
        EXPECT_EQ(SemaphoreValues(), Semaphores(2));
        EXPECT_EQ(HeaderDifference(), "");
        barrier->Arrive(3);
        EXPECT_EQ(waiting.Wait(), 0);
        EXPECT_EQ(later.Wait(), 0);
    }
}

}  // namespace
