/**
 * @file sharedimp.h
 * @brief Shared-memory arenas: a System V segment in which named objects live in 128-byte units.
 *
 * The segment is writable by every process, so nothing in it is believed: a number is copied,
 * bounded and then used, and a walk over blocks ends at the first block that makes no sense. What
 * this process knows of an arena (its identity, its size) it keeps for itself.
 *
 * Creating, clearing, finishing, searching, allocating and removing run under the lock of the
 * arena's key file. A creator that dies half-way leaves a segment whose unitCount is 0, for that
 * is stored last; the next process finishes it, if the segment has our size, every byte of its
 * header is zero or ours, all behind is zero and nobody else is attached. Any other segment
 * without our identity is a stranger's whose key meets ours: it stays as it is, and the arena
 * counts as missing.
 *
 * An allocation that dies half-way leaves a free block, or a block without a name, which the next
 * allocation takes up: the first byte of a name is stored last.
 *
 * A segment that is removed while processes use it is not looked for again, for that would cost
 * every operation a system call: they go on together on theirs, later processes share a new one.
 * One that is found removed when it is attached is let go and looked for anew.
 *
 * Removing needs the owner's rights. A last user without them leaves the segment behind, with its
 * objects and nothing in them.
 */
#ifndef SHAREDIMP_H
#define SHAREDIMP_H

#include <cstddef>
#include <cstdint>

#include "key_file.h"
#include "mutex.h"
#include "shared_trouble.h"

/** Identity of an object in an arena. Also stored in the segment. */
struct SharedMemoryObjectID {
    SharedMemoryObjectID(const char* objectName, int objectId);

    char name[MutexID::kNameRoom];
    char padding[2] = {};
    int id;
};
static_assert(sizeof(SharedMemoryObjectID) == 56);

/** Identity of an arena. Also stored in the segment. */
struct SharedMemoryArenaID {
    SharedMemoryArenaID(const char* arenaName, int arenaId, const MutexID& arenaMutex,
                        int arenaSize);

    /** Size and the lock's count are not compared. */
    [[nodiscard]] bool SameArena(const SharedMemoryArenaID& other) const;

    char name[MutexID::kNameRoom];
    char padding[2] = {};
    int id;
    MutexID mutex;
    int size;  // of the segment, in bytes
};
static_assert(sizeof(SharedMemoryArenaID) == 120);

struct SharedMemoryArenaHeader;

/** Stands at the start of every block; the object's data follow it. */
struct SharedMemoryBlockHeader {
    SharedMemoryBlockHeader();

    /** Storage in the arena, or null when there is no room. Nothing in it is initialised. */
    static void* operator new(unsigned long bytes, SharedMemoryArenaHeader& arena) noexcept;

    /** Gives an allocated block its identity; only then it can be found. */
    void Publish(const SharedMemoryObjectID& object);

    SharedMemoryObjectID objectId;
    MutexID mutexId;  // always the default: a lock's identity is known to the code that uses it
    int useCount;     // 0: free
    std::uint64_t units;
};
static_assert(sizeof(SharedMemoryBlockHeader) == 128);

/** The start of the segment. Unit k of the arena begins 128 * k bytes behind firstBlock. */
struct SharedMemoryArenaHeader {
    static constexpr unsigned long kUnit = sizeof(SharedMemoryBlockHeader);

    /** Built in place in a cleared segment of `size` bytes. */
    SharedMemoryArenaHeader(const SharedMemoryArenaID& arenaId, unsigned long size);

    /** First fit; null when there is no room. The caller publishes the block. */
    SharedMemoryBlockHeader* AllocateBlock(unsigned long bytes);
    /** Zeroes the data of every object in so many units at most; the objects stay. */
    void ClearObjects(std::uint64_t unitLimit);

    SharedMemoryArenaID id;
    std::uint32_t initCount;
    std::uint32_t padding = 0;
    std::uint64_t unitCount;
    SharedMemoryBlockHeader firstBlock;
};
static_assert(sizeof(SharedMemoryArenaHeader) == 264);
static_assert(offsetof(SharedMemoryArenaHeader, unitCount) == 128);
static_assert(offsetof(SharedMemoryArenaHeader, firstBlock) == 136);

class SharedMemory {
public:
    explicit SharedMemory(const SharedMemoryArenaID& arenaId);
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    virtual ~SharedMemory() = default;
    /** Attaches the segment, creating it when there is none. */
    virtual bool Create() = 0;
    /** Detaches it, and removes it when no process is attached. */
    virtual bool Delete() = 0;
    virtual unsigned long GetSize() { return size; }
    virtual bool Lock() = 0;
    virtual bool UnLock() = 0;
    /** This process created the segment, or finished it, and built its header. */
    virtual bool MeFirst() = 0;

    int refCount = 0;  // users of the arena in this process
    Mutex* mutex = nullptr;
    void* address = nullptr;  // null: not attached
    unsigned long size;       // from the identity
    SharedMemoryArenaID id;
    std::uint64_t unitLimit = 0;  // units that the attached segment has room for
};

class LinuxSharedMemory : public SharedMemory {
public:
    explicit LinuxSharedMemory(const SharedMemoryArenaID& arenaId);
    ~LinuxSharedMemory() override;

    bool Create() override;
    bool Delete() override;
    bool Lock() override;
    bool UnLock() override;
    bool MeFirst() override;

    /** Why it is not attached. */
    [[nodiscard]] Trouble WhyNot() const { return trouble; }

private:
    static constexpr int kNoSegment = -1;
    enum class Found { kOurs, kGone, kNone };

    Found FindOrCreate(const KeyFileLock& file);
    /** Sees to it that the attached segment is our arena with its header. */
    Found Prepare(const KeyFileLock& file);
    [[nodiscard]] bool IsUnfinished(unsigned long segmentSize, unsigned long attachments) const;
    Found Fail(Trouble why);
    Found FailWith(int error);
    void RemoveOrClear();
    void Detach();

    int shmid = kNoSegment;
    bool creator = false;
    Trouble trouble;
};

/** An arena that this process has attached, or tried to. */
class SharedMemoryLocalListElement {
public:
    /** Yields the arena's element, not its header; attaches it if need be. Null: no memory. */
    static SharedMemoryLocalListElement* GetSharedMemoryArenaHeader(SharedMemoryArenaID& id);
    /** The arena's element, if it has one already. */
    static SharedMemoryLocalListElement* SearchForSharedMemoryArenaHeader(SharedMemoryArenaID& id);
    static void ReleaseSharedMemoryElement(SharedMemoryLocalListElement* element);
    static SharedMemoryBlockHeader* FindSharedMemoryObject(SharedMemoryArenaHeader* header,
                                                           SharedMemoryObjectID& objectId);

    static SharedMemoryLocalListElement* SharedMemoryLocalListStart;

    SharedMemoryLocalListElement* next = nullptr;
    SharedMemoryArenaHeader* header = nullptr;  // null: there is no segment
    SharedMemory* memory = nullptr;
};

#endif  // SHAREDIMP_H
