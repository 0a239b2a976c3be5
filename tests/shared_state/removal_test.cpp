/**
 * @file removal_test.cpp
 * @brief The set or the segment removed under live users, and others' objects under our keys.
 */
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

class RemovalTest : public SharedStateTest {
protected:
    static int MakeKeyFileAndKey(const char* path) {
        std::fclose(std::fopen(path, "a"));
        return ftok(path, 1);
    }
    static int MakeSet(const std::vector<int>& values, bool used) {
        const int set = semget(MakeKeyFileAndKey(kSetKeyFile), static_cast<int>(values.size()),
                               IPC_CREAT | IPC_EXCL | 0666);
        for (std::size_t i = 0; i < values.size(); ++i) {
            semctl(set, static_cast<int>(i), SETVAL, values[i]);
        }
        sembuf operations[] = {{0, 1, 0}, {0, -1, 0}};
        if (used) semop(set, operations, 2);
        return set;
    }
    static int MakeSegment(const ByteString& content) {
        const int segment =
            shmget(MakeKeyFileAndKey(kSegmentKeyFile), content.size(), IPC_CREAT | IPC_EXCL | 0666);
        std::memcpy(SegmentView(segment).bytes, content.data(), content.size());
        return segment;
    }
};

TEST_F(RemovalTest, UsersOfARemovedSetMeetOnOneNewSet) {
    constexpr int kUsers = 4;
    struct State {
        std::atomic<int> working = 0;
        std::atomic<bool> finish = false;
        Barrier barrier;
    };
    const InSharedMemory<State> state;
    std::vector<Child> children;
    for (int number = 0; number < kUsers; ++number) {
        children.emplace_back([&, number] {
            AddAcceptingBoard();
            LoadedLibrary library;
            if (library.InitPort(0) != 1) return 1;
            ++state->working;
            int failures = 0;
            // Two threads, since one joins for both. They share no entry: who holds a lock of the
            // set when it is removed may meet who holds the same lock of the new one.
            std::thread other([&] {
                K40EEPROM part = UsualEeprom();
                while (!state->finish)
                    failures += library.ConfigureEEPROM(&part) != 1;
            });
            int ownFailures = 0;
            while (!state->finish) {
                ownFailures += library.SetOutputBit(static_cast<unsigned>(number), 1) != 1;
            }
            other.join();
            if (failures + ownFailures != 0) return 2;

            ownFailures += library.SetOutputBit(0, 1) != 1;
            state->barrier.Arrive(kUsers + 1);
            state->barrier.Arrive(kUsers + 1);
            return ownFailures;
        });
    }
    ASSERT_TRUE(Await([&] { return state->working == kUsers; }));
    for (int round = 0; round < 60; ++round) {
        const int set = FindSet();
        semctl(set, 0, IPC_RMID);
        ASSERT_TRUE(Await([&] { return FindSet() != -1 && FindSet() != set; }));
        for (int look = 0; look < 20; ++look) {
            const std::vector<int> values = SemaphoreValues(FindSet());
            if (values.empty()) continue;  // just being made
            EXPECT_LE(*std::max_element(values.begin() + 1, values.end()), 1);
            EXPECT_LE(values[0], kUsers);
            usleep(100);
        }
    }
    state->finish = true;
    state->barrier.Arrive(kUsers + 1);
    EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(kUsers));
    state->barrier.Arrive(kUsers + 1);
    for (Child& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

/** Removes the set as soon as the process has taken its first lock. */
void RemoveSetOnce(const char* name, long result) {
    static bool removed = false;
    if (removed || std::strcmp(name, "semop") != 0 || result != 0) return;
    removed = true;
    syscall(SYS_semctl, FindSet(), 0, IPC_RMID, 0);
}

TEST_F(RemovalTest, BothLocksOfAnOperationAreHeldOnTheSameSet) {
    Child child([] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1) return 1;
        const int old = FindSet();
        std::vector<int> atExchange;
        InProcessDriver::Instance().AnswerWith([&](const Exchange&) -> DriverAnswer {
            atExchange = SemaphoreValues(FindSet());
            return {};
        });
        system_calls::Watch(RemoveSetOnce);
        EXPECT_EQ(library.SetOutputBit(0, 1), 1);
        EXPECT_NE(FindSet(), old);
        EXPECT_EQ(atExchange, std::vector<int>({1, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1}));
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
        return HasFailure() ? 2 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(RemovalTest, UserThatNeverNoticesLeavesTheNewSetAlone) {
    const InSharedMemory<Barrier> barrier;
    Child idle([&] {
        LoadedLibrary library;
        barrier->Arrive(2);
        barrier->Arrive(2);
        return 0;
    });
    barrier->Arrive(2);
    semctl(FindSet(), 0, IPC_RMID);
    const int others = MakeSet({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, true);
    ASSERT_NE(others, -1);
    barrier->Arrive(2);
    EXPECT_EQ(idle.Wait(), 0);
    EXPECT_EQ(SemaphoreValues(others), Semaphores(1));
    Sweep();
}

TEST_F(RemovalTest, UsersOfARemovedSegmentGoOnTogetherAndLaterOnesShareANewOne) {
    const InSharedMemory<Barrier> barrier;
    const auto use = [&](unsigned output) {
        return [&barrier, output] {
            AddAcceptingBoard();
            LoadedLibrary library;
            if (library.InitPort(0) != 1) return 1;
            const SegmentView own;
            barrier->Arrive(3);
            barrier->Arrive(3);
            if (library.SetOutputBit(output, 1) != 1) return 2;
            barrier->Arrive(3);
            const bool both = own.Bytes(kOnEntries, 5) == ByteString({3, 0, 0, 0, 0});
            barrier->Arrive(3);
            return both ? 0 : 3;
        };
    };
    Child first(use(0));
    Child second(use(1));
    barrier->Arrive(3);
    const int old = FindSegment();
    shmctl(old, IPC_RMID, nullptr);
    Child later([] {
        AddAcceptingBoard();
        LoadedLibrary library;
        if (library.InitPort(0) != 1 || library.SetOutputBit(2, 1) != 1) return 1;
        return OnCopy(0) == ByteString({4, 0, 0, 0, 0}) && RegisteredUsers() == 3 ? 0 : 2;
    });
    EXPECT_EQ(later.Wait(), 0);
    EXPECT_EQ(FindSegment(), -1);
    barrier->Arrive(3);
    barrier->Arrive(3);
    barrier->Arrive(3);
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
}

// Operations without shared state

/** Calls every kind of operation; fails where one sends or reports something else than 38. */
int ExpectNothingButRefusals(bool outputs) {
    AddAcceptingBoard();
    InProcessDriver& driver = InProcessDriver::Instance();
    LoadedLibrary library;
    EXPECT_EQ(library.InitPort(0), 0);  // detecting the EEPROM needs its entry; the board stays
    EXPECT_EQ(library.GetLastError(), 38);

    usbOutput pattern = {{1, 2, 3, 4, 5}};
    unsigned char bytes[5] = {};
    K40EEPROM part = UsualEeprom();
    struct Case {
        const char* what;
        std::function<int()> call;
        int error;
    };
    std::vector<Case> cases = {
        {"configure", [&] { return library.ConfigureEEPROM(&part); }, 38},
        {"configure null", [&] { return library.ConfigureEEPROM(nullptr); }, 30},
        {"read", [&] { return library.ReadEEPROM(8, bytes, 1); }, 38},
        {"read 7", [&] { return library.ReadEEPROM(7, bytes, 1); }, 8},
        {"read to null", [&] { return library.ReadEEPROM(8, nullptr, 1); }, 38},
        {"write", [&] { return library.WriteEEPROM(65535, bytes, 1); }, 38},
        {"write 0", [&] { return library.WriteEEPROM(0, nullptr, 1); }, 8},
        {"bit 38", [&] { return library.SetOutputBit(38, 1); }, 8},
        {"masks null", [&] { return library.ModifyOutputs(nullptr, &pattern); }, 30},
        {"all null", [&] { return library.SetOutputs(nullptr); }, 30},
        {"on-period bit 6", [&] { return library.SetOnPeriodOutputBit(4, 6, 1); }, 8},
        {"off-period value", [&] { return library.SetOffPeriodOutputBit(0, 0, 2); }, 8},
    };
    if (outputs) {
        const std::vector<Case> outputCases = {
            {"bit", [&] { return library.SetOutputBit(0, 1); }, 38},
            {"masks", [&] { return library.ModifyOutputs(&pattern, &pattern); }, 38},
            {"all", [&] { return library.SetOutputs(bytes); }, 38},
            {"on-period", [&] { return library.SetOnPeriodOutputs(pattern); }, 38},
            {"on-period bit", [&] { return library.SetOnPeriodOutputBit(4, 5, 1); }, 38},
            {"off-period bit", [&] { return library.SetOffPeriodOutputBit(0, 0, 0); }, 38},
        };
        cases.insert(cases.end(), outputCases.begin(), outputCases.end());
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        driver.ForgetSent();
        library.ClearErrors();
        EXPECT_EQ(c.call(), 0);
        EXPECT_EQ(library.GetLastError(), c.error);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
    return ::testing::Test::HasFailure() ? 1 : 0;
}

TEST_F(RemovalTest, SetOfOthersIsLeftAloneAndOperationsFail) {
    struct Case {
        const char* what;
        std::vector<int> values;
        bool used;
    };
    const Case cases[] = {
        {"too few", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, true},
        {"too few, new", {0, 0}, false},
        {"never used, other values", {0, 1, 1, 9, 0, 0, 0, 0, 0, 0, 0}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const int set = MakeSet(c.values, c.used);
        Child child([] { return ExpectNothingButRefusals(true); });
        EXPECT_EQ(child.Wait(), 0);
        EXPECT_EQ(FindSet(), set);
        EXPECT_EQ(SemaphoreValues(set), c.values);
        EXPECT_EQ(FindSegment(), -1);
        semctl(set, 0, IPC_RMID);
    }
}

TEST_F(RemovalTest, SegmentOfOthersIsLeftAloneAndOperationsFail) {
    ByteString small = SegmentInUse(1);
    small.resize(65535);
    ByteString theirs(65536, 0);
    PutText(theirs, 0, "Somebody else's");
    ByteString full = FreshSegment("K40SharedMemory", "K40Mutex");
    PutBlock(full, 0, "Other", 1, 509);
    for (const ByteString& content : {small, theirs, full, ByteString(100, 0)}) {
        SCOPED_TRACE(content.size());
        const int segment = MakeSegment(content);
        // Attached by somebody, else the last user of ours may remove what is ours.
        const SegmentView view(segment);
        Child child([] { return ExpectNothingButRefusals(true); });
        EXPECT_EQ(child.Wait(), 0);
        EXPECT_EQ(FindSegment(), segment);
        EXPECT_EQ(FirstDifference(view.Bytes(0, content.size()), content), "");
        EXPECT_EQ(FindSet(), -1);
        shmctl(segment, IPC_RMID, nullptr);
    }
}

TEST_F(RemovalTest, ArenaWithRoomForSomeObjectsServesThose) {
    // 34 units for the serial buffers and 2 for the on-period copies; then one that others have.
    ByteString content = FreshSegment("K40SharedMemory", "K40Mutex");
    PutBlock(content, 0, "", 0, 36);
    PutBlock(content, 36, "Other", 1, 473);
    const SegmentView view(MakeSegment(content));
    Child child([] {
        EXPECT_EQ(ExpectNothingButRefusals(false), 0);
        AddAcceptingBoard();
        InProcessDriver& driver = InProcessDriver::Instance();
        LoadedLibrary library;
        library.InitPort(0);
        driver.ForgetSent();
        EXPECT_EQ(library.SetOutputBit(0, 1), 0) << "it needs both copies";
        EXPECT_EQ(library.GetLastError(), 38);
        EXPECT_EQ(library.SetOffPeriodOutputBit(0, 0, 1), 0);
        EXPECT_EQ(library.GetLastError(), 38);
        EXPECT_EQ(driver.Sent(), Exchanges());
        EXPECT_EQ(OnCopy(0), ByteString(5, 0));
        EXPECT_EQ(library.SetOnPeriodOutputBit(0, 3, 1), 1);
        EXPECT_EQ(OnCopy(0), ByteString({8, 0, 0, 0, 0}));
        EXPECT_EQ(SemaphoreValues(FindSet()), Semaphores(1));
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(view.BlocksNamed("OutOffCopies"), std::vector<std::size_t>());
    Sweep();
}

TEST_F(RemovalTest, NoBitOfTheHeadersMakesALoadReadOutsideOrHang) {
    ByteString whole = SegmentInUse(1);
    PutBlock(whole, 40, "Other", 1, 469);
    std::vector<std::size_t> headers = {0};
    for (const std::size_t unit : {0, 34, 36, 38, 40})
        headers.push_back(kFirstBlock + 128 * unit);

    const InSharedMemory<std::atomic<std::size_t>> place;
    for (const std::size_t header : headers) {
        Child child([&] {
            AddAcceptingBoard();
            system_calls::AttachBetweenGuards(true);
            const std::size_t length = header == 0 ? kFirstBlock : 128;
            for (std::size_t bit = 8 * header; bit < 8 * (header + length); ++bit) {
                *place = bit;
                ByteString content = whole;
                content[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
                const int segment = MakeSegment(content);
                alarm(20);
                LoadedLibrary library;
                const auto isSound = [&](int result) {
                    return result == 1 || library.GetLastError() == 38;
                };
                if (!isSound(library.InitPort(0))) return 1;
                if (!isSound(library.SetOutputBit(37, 1))) return 2;
                if (!isSound(library.SetOnPeriodOutputBit(4, 5, 1))) return 3;
                library.Unload();
                // A header that is a stranger's now stays as it is.
                shmctl(segment, IPC_RMID, nullptr);
                if (FindSet() != -1) return 4;
            }
            return 0;
        });
        ASSERT_EQ(child.Wait(), 0) << "bit " << *place % 8 << " of byte " << *place / 8;
    }
}

}  // namespace
