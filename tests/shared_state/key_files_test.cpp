/**
 * @file key_files_test.cpp
 * @brief Key files that are somebody else's, something else, or replaced meanwhile.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"

namespace {

constexpr uid_t kOtherUser = 65534;

/** Loads, switches an output, unloads; 0 served, 38 refused, else a fault. */
int Use() {
    AddAcceptingBoard();
    LoadedLibrary library;
    library.InitPort(0);
    InProcessDriver::Instance().ForgetSent();
    if (library.SetOutputBit(9, 1) == 1) return OnCopy(0)[1] == 2 ? 0 : 1;
    if (!InProcessDriver::Instance().Sent().empty()) return 2;
    return library.GetLastError();
}

int UseAs(uid_t user) {
    if (setresgid(user, user, user) != 0 || setresuid(user, user, user) != 0) return 120;
    return Use();
}

class KeyFilesTest : public SharedStateTest {
protected:
    void SetUp() override {
        SharedStateTest::SetUp();
        if (IsSkipped()) return;
        for (const char* path : {kSetKeyFile, kSegmentKeyFile})
            ASSERT_NE(access(path, F_OK), 0);
    }
    void TearDown() override {
        for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
            unlink(path);
            rmdir(path);
        }
        SharedStateTest::TearDown();
    }

    static bool MayBecomeAnotherUser() {
        if (geteuid() != 0) return false;
        Child child([] { return setresuid(kOtherUser, kOtherUser, kOtherUser) == 0 ? 0 : 1; });
        return child.Wait() == 0;
    }
    static void MakeFiles(mode_t mode, uid_t owner) {
        for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
            close(open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0600));
            chmod(path, mode);
            ASSERT_EQ(chown(path, owner, owner), 0);
        }
    }
    static int Run(const std::function<int()>& act) { return Child(act).Wait(); }
};

TEST_F(KeyFilesTest, FilesOfAnotherUserServeAsLongAsTheyCanBeRead) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    for (const mode_t mode : {0755, 0644, 0444, 0666}) {
        SCOPED_TRACE(mode);
        MakeFiles(mode, 0);
        EXPECT_EQ(Run([] { return UseAs(kOtherUser); }), 0);
        EXPECT_EQ(FindSet(), -1);
        EXPECT_EQ(FindSegment(), -1);
        MakeFiles(mode, kOtherUser);
        EXPECT_EQ(Run(Use), 0);
        EXPECT_EQ(FindSet(), -1);
        SweepKeyFiles();
    }
}

TEST_F(KeyFilesTest, WithoutReadingThemWhatIsFinishedIsUsedAndNothingElse) {
    if (!MayBecomeAnotherUser()) GTEST_SKIP() << "needs the right to become another user";
    MakeFiles(0600, 0);
    EXPECT_EQ(Run([] { return UseAs(kOtherUser); }), 38);
    EXPECT_EQ(FindSet(), -1);
    EXPECT_EQ(FindSegment(), -1);

    const InSharedMemory<Barrier> barrier;
    Child owner([&] {
        LoadedLibrary library;
        barrier->Arrive(2);
        barrier->Arrive(2);
        return 0;
    });
    barrier->Arrive(2);
    EXPECT_EQ(Run([] { return UseAs(kOtherUser); }), 0);
    EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1)) << "it registered and unregistered";
    EXPECT_EQ(SegmentView().At<int>(kOnEntries - 12), 2) << "uses of the object";
    barrier->Arrive(2);
    EXPECT_EQ(owner.Wait(), 0);
}

TEST_F(KeyFilesTest, OtherThingsInTheirPlaceDoNoHarm) {
    struct Case {
        const char* what;
        std::function<void(const char*)> make;
        int result;
    };
    const Case cases[] = {
        {"symbolic link to nothing",
         [](const char* path) { EXPECT_EQ(symlink("/tmp/target", path), 0); }, 38},
        {"symbolic link to itself", [](const char* path) { EXPECT_EQ(symlink(path, path), 0); },
         38},
        {"named pipe", [](const char* path) { EXPECT_EQ(mkfifo(path, 0666), 0); }, 0},
        {"directory", [](const char* path) { EXPECT_EQ(mkdir(path, 0777), 0); }, 0},
    };
    for (const Case& c : cases) {
        for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
            SCOPED_TRACE(std::string(c.what) + " at " + path);
            c.make(path);
            EXPECT_EQ(Run(Use), c.result);
            EXPECT_NE(access("/tmp/target", F_OK), 0) << "the link's target was created";
            EXPECT_EQ(FindSet(), -1);
            EXPECT_EQ(FindSegment(), -1);
            rmdir(path);
            SweepKeyFiles();
        }
    }
}

TEST_F(KeyFilesTest, LinkToAFileThatExistsServes) {
    close(open("/tmp/target", O_CREAT | O_RDWR | O_CLOEXEC, 0644));
    for (const char* path : {kSetKeyFile, kSegmentKeyFile})
        ASSERT_EQ(symlink("/tmp/target", path), 0);
    EXPECT_EQ(Run(Use), 0);
    unlink("/tmp/target");
}

TEST_F(KeyFilesTest, ModeIsWhatTheUmaskLeaves) {
    for (const mode_t mask : {0022, 0077, 0}) {
        EXPECT_EQ(Run([mask] {
                      umask(mask);
                      return Use();
                  }),
                  0);
        for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
            struct stat file;
            ASSERT_EQ(stat(path, &file), 0);
            EXPECT_EQ(file.st_mode & 0777, 0777U & ~mask);
        }
        SweepKeyFiles();
    }
}

TEST_F(KeyFilesTest, FileThatIsReplacedDuringTheWaitIsOpenedAnew) {
    for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
        SCOPED_TRACE(path);
        const int held = open(path, O_CREAT | O_RDWR | O_CLOEXEC, 0666);
        ASSERT_EQ(flock(held, LOCK_EX), 0);
        const InSharedMemory<Barrier> barrier;
        const auto load = [&] {
            // The descriptor above would keep its lock.
            close(held);
            LoadedLibrary library;
            barrier->Arrive(3);
            barrier->Arrive(3);
            return 0;
        };
        Child waiting(load);
        ASSERT_TRUE(Await([&] { return waiting.WaitsIn(SYS_flock); }));
        unlink(path);
        Child later(load);
        usleep(20000);  // later has a new file to itself, whatever it does there
        flock(held, LOCK_UN);
        close(held);
        barrier->Arrive(3);
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(2));
        EXPECT_EQ(ObjectsTwiceOrMissing(), "");
        barrier->Arrive(3);
        EXPECT_EQ(waiting.Wait(), 0);
        EXPECT_EQ(later.Wait(), 0);
    }
}

TEST_F(KeyFilesTest, FileThatIsReplacedOverAndOverHoldsNobodyUp) {
    const InSharedMemory<std::atomic<bool>> finish;
    Child cleaner([&] {
        while (!*finish) {
            unlink(kSetKeyFile);
            unlink(kSegmentKeyFile);
            usleep(50);
        }
        return 0;
    });
    // Whatever the path leads to by then, the set and the segment are found under the same key
    // and removed at the end.
    EXPECT_EQ(Run([] {
                  AddAcceptingBoard();
                  int failures = 0;
                  for (int visit = 0; visit < 400; ++visit) {
                      LoadedLibrary library;
                      failures += library.InitPort(0) != 1 || library.SetOutputBit(1, 1) != 1;
                  }
                  return failures;
              }),
              0);
    *finish = true;
    EXPECT_EQ(cleaner.Wait(), 0);
}

}  // namespace
