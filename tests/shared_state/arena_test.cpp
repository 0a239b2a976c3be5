/**
 * @file arena_test.cpp
 * @brief Arenas from inside: layout, allocation, search, and segments that make no sense.
 */
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "children.h"
#include "kbase_shared_implementation.h"
#include "kbase_shared_serial_impl.h"
#include "outside_view.h"
#include "own_world.h"
#include "sharedimp.h"

namespace {

using Element = SharedMemoryLocalListElement;

/** An arena in memory of this process only, with a margin that must stay untouched. */
class ArenaInMemory {
public:
    explicit ArenaInMemory(unsigned long size = 65536)
        : bytes(static_cast<unsigned char*>(
              mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        ::new (bytes) SharedMemoryArenaHeader(
            SharedMemoryArenaID("Arena", 0, MutexID("Locks", 0, 10), static_cast<int>(size)), size);
        mprotect(bytes + 65536, kMapped - 65536, PROT_NONE);
    }
    ArenaInMemory(const ArenaInMemory&) = delete;
    ArenaInMemory& operator=(const ArenaInMemory&) = delete;
    ~ArenaInMemory() { munmap(bytes, kMapped); }

    [[nodiscard]] SharedMemoryArenaHeader& Header() const {
        return *reinterpret_cast<SharedMemoryArenaHeader*>(bytes);
    }
    /** First unit of the block that is allocated, or -1. */
    [[nodiscard]] long Allocate(unsigned long size) const {
        return UnitOf(Header().AllocateBlock(size));
    }
    [[nodiscard]] long AllocateNamed(unsigned long size, const char* name) const {
        SharedMemoryBlockHeader* block = Header().AllocateBlock(size);
        if (block != nullptr) block->Publish(SharedMemoryObjectID(name, 0));
        return UnitOf(block);
    }
    [[nodiscard]] long Find(const char* name, int id = 0) const {
        SharedMemoryObjectID wanted(name, id);
        return UnitOf(Element::FindSharedMemoryObject(&Header(), wanted));
    }
    [[nodiscard]] SharedMemoryBlockHeader& Block(unsigned long unit) const {
        return *reinterpret_cast<SharedMemoryBlockHeader*>(bytes + kFirstBlock + 128 * unit);
    }

    unsigned char* bytes;

private:
    static constexpr std::size_t kMapped = 131072;

    long UnitOf(const SharedMemoryBlockHeader* block) const {
        if (block == nullptr) return -1;
        return (reinterpret_cast<const unsigned char*>(block) - bytes -
                static_cast<long>(kFirstBlock)) /
               128;
    }
};

class ArenaTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (NoOwnWorld() != nullptr) GTEST_SKIP() << NoOwnWorld();
    }
    void TearDown() override {
        shmctl(FindOurSegment(), IPC_RMID, nullptr);
        unlink("/tmp/Arena");
        EXPECT_EQ(Element::SearchForSharedMemoryArenaHeader(arena), nullptr);
    }

    static int FindOurSegment() {
        const key_t key = ftok("/tmp/Arena", 1);
        return key == -1 ? -1 : shmget(key, 0, 0);
    }
    static int MakeSegment(const ByteString& content) {
        std::fclose(std::fopen("/tmp/Arena", "a"));
        const int segment =
            shmget(ftok("/tmp/Arena", 1), content.size(), IPC_CREAT | IPC_EXCL | 0666);
        const SegmentView view(segment);
        std::memcpy(view.bytes, content.data(), content.size());
        return segment;
    }
    static void Release(Element* element) {
        element->memory->refCount = 1;
        Element::ReleaseSharedMemoryElement(element);
    }

    SharedMemoryArenaID arena{"Arena", 0, MutexID("Locks", 0, 10), 65536};
};

TEST_F(ArenaTest, FreshSegmentIsAsDescribedByteForByte) {
    Element* element = Element::GetSharedMemoryArenaHeader(arena);
    ASSERT_NE(element->header, nullptr);
    EXPECT_TRUE(element->memory->MeFirst());
    EXPECT_EQ(element->memory->GetSize(), 65536UL);
    EXPECT_EQ(Element::GetSharedMemoryArenaHeader(arena), element) << "attached once";

    shmid_ds state = {};
    ASSERT_EQ(shmctl(FindOurSegment(), IPC_STAT, &state), 0);
    EXPECT_EQ(state.shm_segsz, 65536UL);
    EXPECT_EQ(state.shm_perm.mode & 0777, 0666);
    EXPECT_EQ(state.shm_nattch, 1UL);
    EXPECT_EQ(FirstDifference(SegmentView(FindOurSegment()).Bytes(0, 65536),
                              FreshSegment("Arena", "Locks")),
              "");
    Release(element);
    EXPECT_EQ(FindOurSegment(), -1);
    EXPECT_EQ(access("/tmp/Arena", F_OK), 0) << "the key file stays";
}

TEST(Arena, UnitsAreRoundedUpAndTakenFromTheFirstFit) {
    struct Case {
        unsigned long bytes;
        long units;
    };
    const Case cases[] = {{1, 1},           {127, 1},           {128, 1}, {129, 2},
                          {208, 2},         {256, 2},           {257, 3}, {4288, 34},
                          {509 * 128, 509}, {509 * 128 + 1, 0}, {~0UL, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        const ArenaInMemory fresh;
        EXPECT_EQ(fresh.AllocateNamed(c.bytes, "first"), c.units == 0 ? -1 : 0);
        if (c.units == 0) continue;
        EXPECT_EQ(fresh.Block(0).units, static_cast<unsigned long>(c.units));
        EXPECT_EQ(fresh.Block(0).useCount, 1);
        if (c.units == 509) continue;
        EXPECT_EQ(fresh.Block(static_cast<unsigned long>(c.units)).units,
                  static_cast<unsigned long>(509 - c.units));
        EXPECT_EQ(fresh.AllocateNamed(1, "second"), c.units);
    }
}

TEST(Arena, FullOneGivesNothingMore) {
    const ArenaInMemory small(264 + 3 * 128 + 127);  // three units
    EXPECT_EQ(small.Header().unitCount, 3UL);
    EXPECT_EQ(small.AllocateNamed(129, "two"), 0);
    EXPECT_EQ(small.AllocateNamed(129, "too large"), -1);
    EXPECT_EQ(small.AllocateNamed(128, "one"), 2);
    EXPECT_EQ(small.Allocate(1), -1);
    EXPECT_EQ(small.Find("two"), 0);
    EXPECT_EQ(small.Find("one"), 2);

    const ArenaInMemory none(264 + 127);
    EXPECT_EQ(none.Allocate(1), -1);
    EXPECT_EQ(none.Find(""), -1);
}

TEST(Arena, FreeBlocksAmongOthersAreFilledFromTheFront) {
    const ArenaInMemory memory;
    for (const char* name : {"a", "b", "c", "d"})
        EXPECT_GE(memory.AllocateNamed(512, name), 0);
    memory.Block(4).useCount = 0;  // "b", four units
    memory.Block(12).useCount = 0;
    EXPECT_EQ(memory.AllocateNamed(5 * 128, "e"), 16);
    EXPECT_EQ(memory.AllocateNamed(3 * 128, "f"), 4);
    EXPECT_EQ(memory.AllocateNamed(4 * 128, "g"), 12);
    EXPECT_EQ(memory.AllocateNamed(1, "h"), 7);
    EXPECT_EQ(memory.AllocateNamed(1, "i"), 21);
}

TEST(Arena, ObjectsAreFoundByWholeNameAndId) {
    const ArenaInMemory memory;
    const std::string long49(49, 'x');
    EXPECT_EQ(memory.AllocateNamed(1, "Out"), 0);
    EXPECT_EQ(memory.AllocateNamed(1, long49.c_str()), 1);
    EXPECT_EQ(memory.AllocateNamed(1, "Other"), 2);
    EXPECT_EQ(memory.AllocateNamed(1, "Out"), 3);
    memory.Block(2).objectId.id = -5;
    memory.Block(2).useCount = 0;  // not looked at
    EXPECT_EQ(memory.Find("Out"), 0) << "the first of a name";
    EXPECT_EQ(memory.Find("Ou"), -1);
    EXPECT_EQ(memory.Find("Out", 1), -1);
    EXPECT_EQ(memory.Find("Other"), -1);
    EXPECT_EQ(memory.Find("Other", -5), 2);
    EXPECT_EQ(memory.Find((long49 + "y").c_str()), 1);

    // A name that never ends is compared within its 50 bytes.
    std::memset(memory.Block(1).objectId.name, 'x', 50);
    EXPECT_EQ(memory.Find(long49.c_str()), -1);
    SharedMemoryObjectID object("Out", 0);
    EXPECT_EQ(Element::FindSharedMemoryObject(nullptr, object), nullptr);
}

TEST(Arena, WalksEndAtABlockThatMakesNoSense) {
    for (const unsigned long units : {0UL, 506UL, 509UL, 1UL << 57, 1UL << 63, ~0UL}) {
        SCOPED_TRACE(units);
        const ArenaInMemory memory;
        EXPECT_EQ(memory.AllocateNamed(4 * 128, "before"), 0);
        EXPECT_EQ(memory.AllocateNamed(128, "damaged"), 4);
        EXPECT_EQ(memory.AllocateNamed(128, "behind"), 5);
        memory.Block(4).units = units;
        EXPECT_EQ(memory.Find("before"), 0);
        EXPECT_EQ(memory.Find("damaged"), -1);
        EXPECT_EQ(memory.Find("behind"), -1);
        EXPECT_EQ(memory.Allocate(128), -1);
        EXPECT_EQ(memory.Block(4).units, units) << "left alone";
    }
}

TEST(Arena, CountBeyondItsSizeIsNotBelieved) {
    for (const unsigned long unitCount : {510UL, 1UL << 32, 1UL << 57, ~0UL}) {
        SCOPED_TRACE(unitCount);
        const ArenaInMemory memory;
        EXPECT_EQ(memory.AllocateNamed(128, "there"), 0);
        memory.Header().unitCount = unitCount;
        EXPECT_EQ(memory.Find("there"), -1);
        EXPECT_EQ(memory.Allocate(128), -1);
    }
}

TEST(Arena, BlockWhoseAllocatorDiedIsTakenUpAgain) {
    const ArenaInMemory memory;
    EXPECT_EQ(memory.AllocateNamed(128, "kept"), 0);
    for (int death = 0; death < 20; ++death)
        EXPECT_EQ(memory.Allocate(256), 1) << death;
    EXPECT_EQ(memory.Allocate(1024), 3) << "larger than what was left";
    EXPECT_EQ(memory.AllocateNamed(256, "new"), 1);
    EXPECT_EQ(memory.AllocateNamed(1024, "larger"), 3);
    EXPECT_EQ(memory.Find("kept"), 0);
}

/**
 * Runs a function in a process that is stopped after every instruction; calls back whenever that
 * has changed the arena. False where processes may not be traced.
 */
bool StepThrough(const ArenaInMemory& memory, const std::function<void()>& act,
                 const std::function<void(const ByteString&)>& afterChange) {
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
        raise(SIGSTOP);
        act();
        _exit(0);
    }
    ByteString last(memory.bytes, memory.bytes + 65536);
    int status = 0;
    while (waitpid(process, &status, 0) == process && WIFSTOPPED(status)) {
        if (std::memcmp(last.data(), memory.bytes, last.size()) != 0) {
            last.assign(memory.bytes, memory.bytes + 65536);
            afterChange(last);
        }
        if (ptrace(PTRACE_SINGLESTEP, process, nullptr, nullptr) != 0) break;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(Arena, DeathBetweenAnyTwoStoresOfAnAllocationLeavesItSound) {
    const ArenaInMemory memory;
    EXPECT_EQ(memory.AllocateNamed(300, "old"), 0);
    EXPECT_EQ(memory.Allocate(256), 3) << "left by somebody else who died";
    int states = 0;
    const bool traced = StepThrough(
        memory, [&] { static_cast<void>(memory.AllocateNamed(128, "new")); },
        [&](const ByteString& state) {
            ++states;
            const ArenaInMemory copy;
            std::memcpy(copy.bytes, state.data(), state.size());
            EXPECT_EQ(copy.Find("old"), 0);
            // Either the whole object is there, or none and there is room to make it.
            const long found = copy.Find("new");
            if (found == -1) {
                EXPECT_EQ(copy.AllocateNamed(128, "new"), 3);
            } else {
                EXPECT_EQ(found, 3);
            }
            EXPECT_EQ(copy.Block(3).units, 1UL);
            EXPECT_GE(copy.Block(3).useCount, 1);
            EXPECT_EQ(copy.Block(3).mutexId.count, 1);
            EXPECT_EQ(copy.AllocateNamed(128, "next"), 4);
            EXPECT_EQ(copy.AllocateNamed(504 * 128, "rest"), 5) << "no unit is lost";
        });
    if (!traced) GTEST_SKIP() << "processes may not be traced here";
    EXPECT_GE(states, 5);
}

TEST_F(ArenaTest, SegmentWhoseCreatorDiedIsFinished) {
    // Every state in which a creator can die: bytes of the header are there or not, from the front
    // or in any other order, but for the number of units.
    const ByteString whole = FreshSegment("Arena", "Locks");
    ByteString empty(65536, 0);
    ByteString halfIdentity = empty;
    std::copy_n(whole.begin(), 90, halfIdentity.begin());
    ByteString allButCount = whole;
    PutNumber(allButCount, 128, 0, 8);
    for (const ByteString& state : {empty, halfIdentity, allButCount}) {
        const int segment = MakeSegment(state);
        Element* element = Element::GetSharedMemoryArenaHeader(arena);
        EXPECT_NE(element->header, nullptr);
        EXPECT_EQ(FindOurSegment(), segment);
        EXPECT_EQ(FirstDifference(SegmentView(segment).Bytes(0, 65536), whole), "");
        Release(element);
        EXPECT_EQ(FindOurSegment(), -1);
    }
}

TEST_F(ArenaTest, StrangersSegmentStaysAsItIs) {
    struct Case {
        const char* what;
        std::function<void(ByteString&)> change;
    };
    const Case cases[] = {
        {"other name", [](ByteString& s) { s[0] = 'B'; }},
        {"longer name", [](ByteString& s) { s[5] = 'x'; }},
        {"other id", [](ByteString& s) { s[52] = 1; }},
        {"other lock", [](ByteString& s) { s[56] = 'x'; }},
        {"other lock index", [](ByteString& s) { s[112] = 1; }},
        {"more units than it has", [](ByteString& s) { s[128] = 254; }},
        {"too small", [](ByteString& s) { s.resize(65535); }},
        {"no units, but data",
         [](ByteString& s) {
             PutNumber(s, 128, 0, 8);
             s[65535] = 1;
         }},
        {"no units, but larger", [](ByteString& s) { s.assign(65537, 0); }},
        {"no units, but a header of its own",
         [](ByteString& s) {
             s.assign(65536, 0);
             PutText(s, 0, "Theirs");
         }},
        {"all ones", [](ByteString& s) { s.assign(65536, 255); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ByteString content = FreshSegment("Arena", "Locks");
        c.change(content);
        const int segment = MakeSegment(content);
        Element* element = Element::GetSharedMemoryArenaHeader(arena);
        ASSERT_NE(element, nullptr);
        EXPECT_EQ(element->header, nullptr);
        EXPECT_FALSE(element->memory->MeFirst());
        EXPECT_EQ(Element::GetSharedMemoryArenaHeader(arena), element);
        Release(element);
        ASSERT_EQ(FindOurSegment(), segment) << "removed";
        EXPECT_EQ(FirstDifference(SegmentView(segment).Bytes(0, content.size()), content), "");
        shmctl(segment, IPC_RMID, nullptr);
    }
}

TEST_F(ArenaTest, ObjectThatIsTooSmallOrReachesBeyondTheSegmentIsNone) {
    struct Case {
        const char* what;
        std::size_t unit;
        unsigned units;
        bool attached;
    };
    const Case cases[] = {
        {"whole, at the end", 475, 34, true},
        {"one unit too few", 470, 33, false},
        {"one unit, the last one", 508, 1, false},
    };
    using Handle = Shared<K40BUFFER[kDeviceCount]>;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ByteString content = FreshSegment("Arena", "Locks");
        PutBlock(content, 0, "Theirs", 1, static_cast<unsigned>(c.unit));
        PutBlock(content, c.unit, "Buffers", 1, c.units);
        const std::size_t behind = c.unit + c.units;
        if (behind < 509) PutBlock(content, behind, "", 0, static_cast<unsigned>(509 - behind));
        MakeSegment(content);
        const Handle handle(arena, "Buffers", 4);
        EXPECT_EQ(handle.object != nullptr, c.attached);
        EXPECT_EQ(handle.mutex != nullptr, c.attached);
    }
}

TEST_F(ArenaTest, SegmentInUseIsJoinedAsItIs) {
    ByteString content = FreshSegment("Arena", "Locks");
    PutNumber(content, 108, 3, 4);  // count of the lock and the size are not compared
    PutNumber(content, 116, 1, 4);
    PutBlock(content, 0, "Theirs", 6, 3);
    PutNumber(content, kFirstBlock + 3 * 128 + 120, 506, 8);
    content[kFirstBlock + 128 + 5] = 99;
    const int segment = MakeSegment(content);
    Element* element = Element::GetSharedMemoryArenaHeader(arena);
    ASSERT_NE(element->header, nullptr);
    EXPECT_FALSE(element->memory->MeFirst());
    SharedMemoryObjectID theirs("Theirs", 0);
    EXPECT_EQ(Element::FindSharedMemoryObject(element->header, theirs),
              &element->header->firstBlock);
    EXPECT_EQ(FirstDifference(SegmentView(segment).Bytes(0, 65536), content), "");

    // Whatever becomes of the segment's copy, this process knows what it has attached.
    std::memset(SegmentView(segment).bytes, 0x7F, 120);
    EXPECT_EQ(Element::SearchForSharedMemoryArenaHeader(arena), element);
    EXPECT_EQ(Element::FindSharedMemoryObject(element->header, theirs),
              &element->header->firstBlock);
    Release(element);
}

}  // namespace
