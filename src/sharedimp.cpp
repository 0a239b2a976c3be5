/**
 * @file sharedimp.cpp
 * @brief Shared-memory arenas: blocks and objects, and the life of the segment in this process.
 */
#include "sharedimp.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "chain.h"
#include "open_file.h"

namespace {

constexpr unsigned long kUnit = SharedMemoryArenaHeader::kUnit;
constexpr int kPermissions = 0666;
// How often a segment may vanish before we believe that somebody means it.
constexpr int kMostLooks = 100;

std::uint64_t UnitsIn(unsigned long segmentSize) {
    return segmentSize < sizeof(SharedMemoryArenaHeader)
               ? 0
               : (segmentSize - sizeof(SharedMemoryArenaHeader)) / kUnit;
}

/** Reads a number that another process may be writing, once. */
template <class Number>
Number Read(Number& shared) {
    return std::atomic_ref<Number>(shared).load(std::memory_order_acquire);
}

template <class Number>
void Write(Number& shared, Number value) {
    std::atomic_ref<Number>(shared).store(value, std::memory_order_release);
}

/** The units of an arena, or 0 when it claims more than it can have. */
std::uint64_t BelievedUnitCount(SharedMemoryArenaHeader& header, std::uint64_t limit) {
    const std::uint64_t claimed = Read(header.unitCount);
    return claimed <= limit ? claimed : 0;
}

/** How many units an attached arena has room for. */
std::uint64_t UnitLimitOf(const SharedMemoryArenaHeader& header) {
    for (auto* element = SharedMemoryLocalListElement::SharedMemoryLocalListStart;
         element != nullptr; element = element->next) {
        if (element->header == &header) return element->memory->unitLimit;
    }
    return 0;
}

/** Goes from block to block, and ends at one that makes no sense. */
class BlockWalk {
public:
    explicit BlockWalk(SharedMemoryArenaHeader& header) : BlockWalk(header, UnitLimitOf(header)) {}
    BlockWalk(SharedMemoryArenaHeader& header, std::uint64_t limit)
        : first_(reinterpret_cast<char*>(&header.firstBlock)),
          unitCount_(BelievedUnitCount(header, limit)) {
        ReadUnits();
    }

    [[nodiscard]] bool AtEnd() const { return units_ == 0; }
    [[nodiscard]] SharedMemoryBlockHeader& Block() const { return BlockAt(position_); }
    /** Units of the block, within the arena. */
    [[nodiscard]] std::uint64_t Units() const { return units_; }
    /** The header that stands, or will stand, this many units into the block. */
    [[nodiscard]] SharedMemoryBlockHeader& BlockBehind(std::uint64_t units) const {
        return BlockAt(position_ + units);
    }
    void Next() {
        position_ += units_;
        ReadUnits();
    }

private:
    [[nodiscard]] SharedMemoryBlockHeader& BlockAt(std::uint64_t unit) const {
        return *reinterpret_cast<SharedMemoryBlockHeader*>(first_ + unit * kUnit);
    }
    void ReadUnits() {
        const std::uint64_t room = unitCount_ - position_;
        units_ = room == 0 ? 0 : Read(Block().units);
        if (units_ > room) units_ = 0;
    }

    char* first_;
    std::uint64_t unitCount_;
    std::uint64_t position_ = 0;
    std::uint64_t units_ = 0;
};

/** Free, or allocated by a process that died before it gave the block its name. */
bool CanBeTaken(SharedMemoryBlockHeader& block) {
    return Read(block.useCount) == 0 || Read(block.objectId.name[0]) == '\0';
}

/**
 * No other copy of the library is at work in this process, or has left something in it: nothing
 * else here maps a segment as large as ours.
 */
bool IsOnlyAttachment(const SharedMemory& memory) {
    const OpenFile maps = OpenToRead("/proc/self/maps");
    if (!maps) return false;
    char line[512];
    while (std::fgets(line, sizeof line, maps.get()) != nullptr) {
        std::uintptr_t start = 0;
        std::uintptr_t end = 0;
        if (std::sscanf(line, "%lx-%lx", &start, &end) != 2 || end - start != memory.size) continue;
        const bool isOwn = start == reinterpret_cast<std::uintptr_t>(memory.address);
        if (!isOwn && std::strstr(line, "/SYSV") != nullptr) return false;
    }
    return true;
}

void CopyName(char (&target)[MutexID::kNameRoom], const char* name) {
    std::snprintf(target, sizeof target, "%.*s", MutexID::kNameRoom - 1, name);
}

}  // namespace

SharedMemoryObjectID::SharedMemoryObjectID(const char* objectName, int objectId)
    : name{}, id(objectId) {
    CopyName(name, objectName);
}

SharedMemoryArenaID::SharedMemoryArenaID(const char* arenaName, int arenaId,
                                         const MutexID& arenaMutex, int arenaSize)
    : name{}, id(arenaId), mutex(arenaMutex), size(arenaSize) {
    CopyName(name, arenaName);
}

bool SharedMemoryArenaID::SameArena(const SharedMemoryArenaID& other) const {
    return id == other.id && std::strncmp(name, other.name, sizeof name) == 0 &&
           mutex.SameLock(other.mutex);
}

SharedMemoryBlockHeader::SharedMemoryBlockHeader()
    : objectId("", 0), mutexId("", 0, 1), useCount(0), units(0) {}

void* SharedMemoryBlockHeader::operator new(unsigned long bytes,
                                            SharedMemoryArenaHeader& arena) noexcept {
    return arena.AllocateBlock(bytes);
}

void SharedMemoryBlockHeader::Publish(const SharedMemoryObjectID& object) {
    const MutexID defaultLock("", 0, 1);
    std::memcpy(&mutexId, &defaultLock, sizeof mutexId);
    objectId.id = object.id;
    std::memcpy(objectId.name + 1, object.name + 1, sizeof objectId.name - 1);
    Write(objectId.name[0], object.name[0]);
}

SharedMemoryArenaHeader::SharedMemoryArenaHeader(const SharedMemoryArenaID& arenaId,
                                                 unsigned long size)
    : id(arenaId), initCount(1), unitCount(0) {
    firstBlock.units = UnitsIn(size);
    // Last: until then the arena counts as unfinished.
    Write(unitCount, UnitsIn(size));
}

SharedMemoryBlockHeader* SharedMemoryArenaHeader::AllocateBlock(unsigned long bytes) {
    const std::uint64_t need = bytes / kUnit + (bytes % kUnit != 0 ? 1 : 0);
    for (BlockWalk walk(*this); !walk.AtEnd(); walk.Next()) {
        if (walk.Units() < need || !CanBeTaken(walk.Block())) continue;

        SharedMemoryBlockHeader& block = walk.Block();
        if (walk.Units() > need) {
            // The rest becomes a block before this one lets go of it.
            SharedMemoryBlockHeader& rest = walk.BlockBehind(need);
            rest.useCount = 0;
            Write(rest.units, walk.Units() - need);
        }
        Write(block.units, need);
        Write(block.useCount, 1);
        return &block;
    }
    return nullptr;
}

void SharedMemoryArenaHeader::ClearObjects(std::uint64_t unitLimit) {
    for (BlockWalk walk(*this, unitLimit); !walk.AtEnd(); walk.Next()) {
        void* data = &walk.Block() + 1;
        if (!CanBeTaken(walk.Block())) std::memset(data, 0, (walk.Units() - 1) * kUnit);
    }
}

SharedMemory::SharedMemory(const SharedMemoryArenaID& arenaId)
    : size(static_cast<unsigned long>(arenaId.size)), id(arenaId) {}

LinuxSharedMemory::LinuxSharedMemory(const SharedMemoryArenaID& arenaId) : SharedMemory(arenaId) {
    LinuxSharedMemory::Create();
}

LinuxSharedMemory::~LinuxSharedMemory() {
    LinuxSharedMemory::Delete();
}

bool LinuxSharedMemory::Create() {
    const KeyFileLock file(KeyPath::OfArena(id.name));
    Found found = Found::kGone;
    for (int look = 0; look < kMostLooks && found == Found::kGone; ++look) {
        found = FindOrCreate(file);
        if (found != Found::kOurs) Detach();
    }
    return found == Found::kOurs;
}

LinuxSharedMemory::Found LinuxSharedMemory::FindOrCreate(const KeyFileLock& file) {
    creator = false;
    const key_t key = file.Key(id.id + 1);
    if (key == KeyFileLock::kNoKey) return Fail(Trouble::WithoutLock(file));
    shmid = shmget(key, size, kPermissions);
    if (shmid == kNoSegment && errno == ENOENT) {
        if (!file.Held()) return Fail(Trouble::WithoutLock(file));
        shmid = shmget(key, size, IPC_CREAT | IPC_EXCL | kPermissions);
        creator = shmid != kNoSegment;
        if (!creator) return Fail(Trouble::Of(Trouble::Kind::kNotCreated, errno));
    }
    if (shmid == kNoSegment) return Fail(Trouble::Of(Trouble::Kind::kRefused, errno));

    void* place = shmat(shmid, nullptr, 0);
    if (place == reinterpret_cast<void*>(-1)) {
        const int error = errno;
        if (creator) shmctl(shmid, IPC_RMID, nullptr);
        return FailWith(error);
    }
    address = place;
    return Prepare(file);
}

LinuxSharedMemory::Found LinuxSharedMemory::Fail(Trouble why) {
    trouble = why;
    return why.kind == Trouble::Kind::kVanishing ? Found::kGone : Found::kNone;
}

LinuxSharedMemory::Found LinuxSharedMemory::FailWith(int error) {
    const bool gone = error == EIDRM || error == EINVAL;
    return Fail(
        Trouble::Of(gone ? Trouble::Kind::kVanishing : Trouble::Kind::kRefused, gone ? 0 : error));
}

LinuxSharedMemory::Found LinuxSharedMemory::Prepare(const KeyFileLock& file) {
    shmid_ds kernel = {};
    if (shmctl(shmid, IPC_STAT, &kernel) != 0) return FailWith(errno);
    if ((kernel.shm_perm.mode & SHM_DEST) != 0) {
        return Fail(Trouble::Of(Trouble::Kind::kVanishing));
    }

    unitLimit = UnitsIn(kernel.shm_segsz);
    auto* header = static_cast<SharedMemoryArenaHeader*>(address);
    const std::uint64_t claimed = Read(header->unitCount);
    if (claimed != 0 && claimed <= unitLimit && id.SameArena(header->id)) return Found::kOurs;

    // Somebody may be making it at this moment.
    if (claimed == 0 && !file.Held()) return Fail(Trouble::WithoutLock(file));
    if (!creator && !IsUnfinished(kernel.shm_segsz, kernel.shm_nattch)) {
        return Fail(Trouble::Of(Trouble::Kind::kStranger));
    }
    creator = true;
    std::memset(address, 0, size);
    ::new (address) SharedMemoryArenaHeader(id, size);
    return Found::kOurs;
}

bool LinuxSharedMemory::IsUnfinished(unsigned long segmentSize, unsigned long attachments) const {
    if (segmentSize != size || attachments != 1) return false;
    if (Read(static_cast<SharedMemoryArenaHeader*>(address)->unitCount) != 0) return false;

    const SharedMemoryArenaHeader finished(id, size);
    const auto* ours = reinterpret_cast<const unsigned char*>(&finished);
    const auto* bytes = static_cast<const unsigned char*>(address);
    for (std::size_t i = 0; i < size; ++i) {
        const bool canBeOurs = i < sizeof finished && bytes[i] == ours[i];
        if (bytes[i] != 0 && !canBeOurs) return false;
    }
    return true;
}

void LinuxSharedMemory::Detach() {
    // Only once: by a second time something else may be mapped there.
    if (address != nullptr) shmdt(address);
    address = nullptr;
}

bool LinuxSharedMemory::Delete() {
    if (address == nullptr) return true;
    const KeyFileLock file(KeyPath::OfArena(id.name));
    if (file.Held()) RemoveOrClear();
    Detach();
    return true;
}

/** Removed while it is still attached, it goes with the last that detaches it. */
void LinuxSharedMemory::RemoveOrClear() {
    shmid_ds kernel = {};
    if (shmctl(shmid, IPC_STAT, &kernel) != 0 || kernel.shm_nattch != 1) return;
    if (shmctl(shmid, IPC_RMID, nullptr) == 0) return;
    static_cast<SharedMemoryArenaHeader*>(address)->ClearObjects(unitLimit);
}

bool LinuxSharedMemory::Lock() {
    return mutex != nullptr && mutex->Lock();
}

bool LinuxSharedMemory::UnLock() {
    return mutex != nullptr && mutex->UnLock();
}

bool LinuxSharedMemory::MeFirst() {
    return creator;
}

constinit SharedMemoryLocalListElement* SharedMemoryLocalListElement::SharedMemoryLocalListStart =
    nullptr;

SharedMemoryLocalListElement* SharedMemoryLocalListElement::GetSharedMemoryArenaHeader(
    SharedMemoryArenaID& id) {
    if (auto* found = SearchForSharedMemoryArenaHeader(id)) return found;

    auto* element = new (std::nothrow) SharedMemoryLocalListElement;
    if (element == nullptr) return nullptr;
    element->memory = new (std::nothrow) LinuxSharedMemory(id);
    if (element->memory == nullptr) {
        delete element;
        return nullptr;
    }
    SharedMemory& memory = *element->memory;
    memory.mutex = Mutex::GetLocalMutex(id.mutex);
    if (memory.mutex != nullptr && IsOnlyAttachment(memory)) {
        static_cast<LinuxMutex*>(memory.mutex)->set.GiveBackLocksOfFormerProgram();
    }
    element->header = static_cast<SharedMemoryArenaHeader*>(memory.address);
    element->next = SharedMemoryLocalListStart;
    SharedMemoryLocalListStart = element;
    return element;
}

SharedMemoryLocalListElement* SharedMemoryLocalListElement::SearchForSharedMemoryArenaHeader(
    SharedMemoryArenaID& id) {
    // By what this process knows: the copy in the segment may be anything by now.
    for (auto* element = SharedMemoryLocalListStart; element != nullptr; element = element->next) {
        if (element->memory->id.SameArena(id)) return element;
    }
    return nullptr;
}

void SharedMemoryLocalListElement::ReleaseSharedMemoryElement(
    SharedMemoryLocalListElement* element) {
    SharedMemory* memory = element->memory;
    const bool locked = memory->Lock();
    const int users = --memory->refCount;
    if (locked) memory->UnLock();
    if (users != 0) return;

    Unlink(SharedMemoryLocalListStart, &SharedMemoryLocalListElement::next, element);
    if (memory->mutex != nullptr) Mutex::ReleaseLocalMutex(memory->mutex);
    memory->Delete();
    delete memory;
    delete element;
}

SharedMemoryBlockHeader* SharedMemoryLocalListElement::FindSharedMemoryObject(
    SharedMemoryArenaHeader* header, SharedMemoryObjectID& objectId) {
    if (header == nullptr) return nullptr;
    for (BlockWalk walk(*header); !walk.AtEnd(); walk.Next()) {
        const SharedMemoryObjectID& found = walk.Block().objectId;
        if (found.id == objectId.id &&
            std::strncmp(found.name, objectId.name, sizeof found.name) == 0) {
            return &walk.Block();
        }
    }
    return nullptr;
}
