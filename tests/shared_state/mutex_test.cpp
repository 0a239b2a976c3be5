/**
 * @file mutex_test.cpp
 * @brief Named locks from inside: identities, reference counts, and the life of a set.
 */
#include "mutex.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "outside_view.h"
#include "own_world.h"

namespace {

constexpr char kKeyFile[] = "/tmp/Sem_Locks";

int FindOurSet(int projectId = 1) {
    const key_t key = ftok(kKeyFile, projectId);
    return key == -1 ? -1 : semget(key, 0, 0);
}

int MakeSet(int semaphores, const std::vector<int>& values = {}) {
    std::fclose(std::fopen(kKeyFile, "a"));
    const int set = semget(ftok(kKeyFile, 1), semaphores, IPC_CREAT | IPC_EXCL | 0666);
    int semaphore = 0;
    for (const int value : values)
        semctl(set, semaphore++, SETVAL, value);
    return set;
}

/** As a user leaves it: semaphores have been operated on. */
int MakeUsedSet(int semaphores, const std::vector<int>& values) {
    const int set = MakeSet(semaphores, values);
    sembuf operations[] = {{0, 1, 0}, {0, -1, 0}};
    semop(set, operations, 2);
    return set;
}

void RemoveSet(int set) {
    semctl(set, 0, IPC_RMID);
}

class MutexTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (NoOwnWorld() != nullptr) GTEST_SKIP() << NoOwnWorld();
    }
    void TearDown() override {
        RemoveSet(FindOurSet());
        unlink(kKeyFile);
    }

    MutexID first{"Locks", 0, 3};
    MutexID second{"Locks", 1, 1};
};

TEST(MutexIdentity, HasTheLayoutThatSegmentsHold) {
    const MutexID id("K40Mutex", 0x01020304, 0x0A0B0C0D);
    unsigned char bytes[60];
    std::memcpy(bytes, &id, sizeof bytes);
    EXPECT_EQ(std::memcmp(bytes, "K40Mutex", 9), 0);
    for (int i = 8; i < 50; ++i)
        EXPECT_EQ(bytes[i], 0) << i;
    const unsigned char numbers[] = {0x0D, 0x0C, 0x0B, 0x0A, 4, 3, 2, 1};
    EXPECT_EQ(std::memcmp(bytes + 52, numbers, sizeof numbers), 0) << "count, then index";
}

TEST(MutexIdentity, IsNameAndIndexUpTo49Characters) {
    const std::string long49(49, 'x');
    struct Case {
        std::string name;
        int index, count;
        bool sameName, sameLock;
    };
    const Case cases[] = {
        {long49, 2, 5, true, true},
        {long49, 2, 6, true, true},
        {long49 + "y", 2, 5, true, true},
        {long49, 3, 5, true, false},
        {long49.substr(1), 2, 5, false, false},
    };
    const MutexID id((long49 + "tail").c_str(), 2, 5);
    EXPECT_EQ(id.name[49], '\0');
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const MutexID other(c.name.c_str(), c.index, c.count);
        EXPECT_EQ(id.SameName(other), c.sameName);
        EXPECT_EQ(id.SameLock(other), c.sameLock);
    }
}

TEST_F(MutexTest, OneObjectPerLockLivesAsLongAsItHasHolders) {
    Mutex* lock = Mutex::GetLocalMutex(first);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->refCount, 1);
    MutexID otherCount("Locks", 0, 9);
    EXPECT_EQ(Mutex::GetLocalMutex(otherCount), lock);
    EXPECT_EQ(lock->refCount, 2);
    Mutex* other = Mutex::GetLocalMutex(second);
    EXPECT_NE(other, lock);
    EXPECT_EQ(Mutex::FindMutex(first), lock);

    Mutex::ReleaseLocalMutex(lock);
    EXPECT_EQ(Mutex::FindMutex(first), lock);
    EXPECT_EQ(lock->refCount, 1);
    Mutex::ReleaseLocalMutex(lock);
    EXPECT_EQ(Mutex::FindMutex(first), nullptr);
    EXPECT_EQ(Mutex::FindMutex(second), other);
    EXPECT_NE(FindOurSet(), -1) << "the other lock still uses it";
    Mutex::ReleaseLocalMutex(other);
    EXPECT_EQ(Mutex::FindMutex(second), nullptr);
    EXPECT_EQ(FindOurSet(), -1);
    EXPECT_EQ(access(kKeyFile, F_OK), 0) << "the key file stays";
}

TEST_F(MutexTest, FirstIdentityOfANameMakesTheSet) {
    struct Case {
        MutexID id;
        int projectId;
        std::vector<int> values;
    };
    const Case cases[] = {
        {{"Locks", 0, 3}, 1, {1, 1, 1, 1}},
        {{"Locks", 0, 10}, 1, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
        {{"Locks", 4, 1}, 5, {1, 1}},
    };
    for (const Case& c : cases) {
        MutexID id = c.id;
        Mutex* lock = Mutex::GetLocalMutex(id);
        Mutex* other = Mutex::GetLocalMutex(second);
        const int set = FindOurSet(c.projectId);
        EXPECT_EQ(SemaphoreValues(set), c.values) << "one user, all locks free";
        semid_ds state = {};
        ASSERT_EQ(semctl(set, 0, IPC_STAT, &state), 0);
        EXPECT_EQ(state.sem_perm.mode & 0777, 0666);
        Mutex::ReleaseLocalMutex(lock);
        Mutex::ReleaseLocalMutex(other);
        EXPECT_EQ(FindOurSet(c.projectId), -1);
    }
}

TEST_F(MutexTest, LockTakesItsSemaphoreAndUnLockReturnsIt) {
    Mutex* lock = Mutex::GetLocalMutex(first);
    Mutex* other = Mutex::GetLocalMutex(second);
    EXPECT_TRUE(lock->Lock());
    EXPECT_EQ(SemaphoreValues(FindOurSet()), std::vector<int>({1, 0, 1, 1}));
    EXPECT_TRUE(other->Lock());
    EXPECT_TRUE(lock->UnLock());
    EXPECT_EQ(SemaphoreValues(FindOurSet()), std::vector<int>({1, 1, 0, 1}));
    EXPECT_TRUE(other->UnLock());

    MutexID beyond("Locks", 3, 1);
    Mutex* none = Mutex::GetLocalMutex(beyond);
    EXPECT_FALSE(none->Lock()) << "the set has no semaphore 4";
    EXPECT_FALSE(none->UnLock());
    EXPECT_EQ(SemaphoreValues(FindOurSet()), std::vector<int>({1, 1, 1, 1}));
    for (Mutex* mutex : {lock, other, none})
        Mutex::ReleaseLocalMutex(mutex);
}

TEST_F(MutexTest, SetInUseIsJoinedAsItIs) {
    const int set = MakeUsedSet(4, {3, 0, 1, 0});
    Mutex* lock = Mutex::GetLocalMutex(first);
    EXPECT_EQ(SemaphoreValues(set), std::vector<int>({4, 0, 1, 0}));
    Mutex::ReleaseLocalMutex(lock);
    EXPECT_EQ(SemaphoreValues(set), std::vector<int>({3, 0, 1, 0}));
}

TEST_F(MutexTest, SetWhoseCreatorDiedIsFinished) {
    const std::vector<int> states[] = {{}, {0}, {0, 1}, {0, 1, 1}, {0, 1, 1, 1}};
    for (const std::vector<int>& state : states) {
        SCOPED_TRACE(state.size());
        const int set = MakeSet(4, state);
        Mutex* lock = Mutex::GetLocalMutex(first);
        EXPECT_EQ(FindOurSet(), set);
        EXPECT_EQ(SemaphoreValues(set), std::vector<int>({1, 1, 1, 1}));
        EXPECT_TRUE(lock->Lock());
        EXPECT_TRUE(lock->UnLock());
        Mutex::ReleaseLocalMutex(lock);
        EXPECT_EQ(FindOurSet(), -1);
    }
}

TEST_F(MutexTest, SetsThatCannotBeOursStayAsTheyAre) {
    struct Case {
        const char* what;
        int semaphores;
        std::vector<int> values;
        bool used;
    };
    const Case cases[] = {
        {"too few, used", 3, {5, 1, 0}, true},
        {"too few, new", 3, {0, 0, 0}, false},
        {"more, never used", 5, {0, 1, 0, 1, 0}, false},
        {"other values, never used", 4, {7, 0, 0, 0}, false},
        {"locks set without a gap before", 4, {0, 0, 1, 0}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const int set =
            c.used ? MakeUsedSet(c.semaphores, c.values) : MakeSet(c.semaphores, c.values);
        Mutex* lock = Mutex::GetLocalMutex(first);
        EXPECT_FALSE(lock->Lock());
        EXPECT_FALSE(lock->UnLock());
        EXPECT_EQ(static_cast<LinuxMutex*>(lock)->Take(), LinuxMutex::kNoSet);
        EXPECT_EQ(SemaphoreValues(set), c.values);
        Mutex::ReleaseLocalMutex(lock);
        EXPECT_EQ(SemaphoreValues(set), c.values);
        RemoveSet(set);
    }
}

TEST_F(MutexTest, LockOfARemovedSetIsTakenOnANewOne) {
    Mutex* lock = Mutex::GetLocalMutex(first);
    Mutex* other = Mutex::GetLocalMutex(second);
    auto* linuxLock = static_cast<LinuxMutex*>(lock);
    const int old = linuxLock->Take();
    EXPECT_EQ(old, FindOurSet());
    RemoveSet(old);
    EXPECT_FALSE(other->Lock());

    const int joined = static_cast<LinuxMutex*>(other)->Take();
    EXPECT_NE(joined, old);
    EXPECT_EQ(joined, FindOurSet());
    EXPECT_EQ(SemaphoreValues(joined), std::vector<int>({1, 1, 0, 1}));
    linuxLock->GiveBack(old);
    EXPECT_EQ(SemaphoreValues(joined), std::vector<int>({1, 1, 0, 1})) << "given back on the old";
    EXPECT_EQ(linuxLock->Take(), joined);
    EXPECT_EQ(SemaphoreValues(joined), std::vector<int>({1, 0, 0, 1})) << "registered once";
    linuxLock->GiveBack(joined);
    static_cast<LinuxMutex*>(other)->GiveBack(joined);
    Mutex::ReleaseLocalMutex(lock);
    Mutex::ReleaseLocalMutex(other);
    EXPECT_EQ(FindOurSet(), -1);
}

TEST_F(MutexTest, RemovalOfTheSetEndsNobodysMembershipElsewhere) {
    Mutex* lock = Mutex::GetLocalMutex(first);
    RemoveSet(FindOurSet());
    const int others = MakeUsedSet(4, {2, 1, 1, 1});
    Mutex::ReleaseLocalMutex(lock);
    EXPECT_EQ(SemaphoreValues(others), std::vector<int>({2, 1, 1, 1}))
        << "this process was never counted there";
}

}  // namespace
