/**
 * @file kbase_shared_implementation.cpp
 * @brief Handles of the shared objects, and their life from load to unload.
 */
#include "kbase_shared_implementation.h"

#include <atomic>
#include <cstdio>

#include "failure.h"
#include "key_file.h"
#include "shared_order.h"

namespace {

constexpr int kArenaLock = 0;
constexpr int kArenaLocks = 10;
constexpr int kArenaSize = 65536;

/** Lives last of all handles, so that it is destroyed first. */
class LastUse {
public:
    LastUse() = default;
    LastUse(const LastUse&) = delete;
    LastUse& operator=(const LastUse&) = delete;
    ~LastUse() { SharedUse::Finish(); }
};

}  // namespace

SharedMemoryArenaID SharedArenaID() {
    return {"K40SharedMemory", 0, MutexID("K40Mutex", kArenaLock, kArenaLocks), kArenaSize};
}

MutexID SharedObjectLock(int index) {
    return {"K40Mutex", index, 1};
}

SharedObject::SharedObject(SharedMemoryArenaID& arena, const char* objectName, MutexID lock,
                           unsigned long bytes)
    : element(SharedMemoryLocalListElement::GetSharedMemoryArenaHeader(arena)), name_(objectName) {
    if (element == nullptr) return;
    // Before the key file is locked, for meanwhile no signal could end a wait.
    const bool locked = element->memory->Lock();
    ++element->memory->refCount;
    if (locked) element->memory->UnLock();
    {
        SharedMemoryObjectID objectId(name_, 0);
        const KeyFileLock file(KeyPath::OfArena(arena.name));
        object = SharedMemoryLocalListElement::FindSharedMemoryObject(element->header, objectId);
        if (object != nullptr) {
            std::atomic_ref<int>(object->useCount).fetch_add(1);
        } else if (!file.Held()) {
            trouble_ = Trouble::WithoutLock(file);
        } else if (element->header != nullptr) {
            object = Allocate(objectId, bytes);
        }
    }
    if (object != nullptr && !IsWithinArena(bytes)) object = nullptr;
    if (object != nullptr) mutex = Mutex::GetLocalMutex(lock);
}

SharedObject::~SharedObject() {
    if (SharedUse::IsAbandoned() || element == nullptr) return;
    if (mutex != nullptr) Mutex::ReleaseLocalMutex(mutex);
    SharedMemoryLocalListElement::ReleaseSharedMemoryElement(element);
}

SharedMemoryBlockHeader* SharedObject::Allocate(const SharedMemoryObjectID& objectId,
                                                unsigned long bytes) const {
    auto* block = static_cast<SharedMemoryBlockHeader*>(
        SharedMemoryBlockHeader::operator new(bytes, *element->header));
    if (block != nullptr) block->Publish(objectId);
    return block;
}

bool SharedObject::IsWithinArena(unsigned long bytes) const {
    // A damaged header may claim less than the entries need.
    const auto offset = reinterpret_cast<const char*>(object) -
                        reinterpret_cast<const char*>(&element->header->firstBlock);
    const std::uint64_t end = static_cast<std::uint64_t>(offset) + bytes;
    constexpr std::uint64_t kUnit = SharedMemoryArenaHeader::kUnit;
    return object->units * kUnit >= bytes && end <= element->memory->unitLimit * kUnit;
}

void SharedObject::DescribeAbsence(TextLine& line) const {
    if (!SharedUse::IsOpen()) {
        line.Add("the process is ending, and has let go of its shared state");
        return;
    }
    MutexID anyLock = SharedObjectLock(0);
    const SharedMemoryArenaID arena = SharedArenaID();
    const LinuxMutexSet* set = LinuxMutexSet::SearchForMutexSet(anyLock);
    const KeyPath arenaFile = KeyPath::OfArena(arena.name);
    if (element == nullptr || element->header == nullptr) {
        const auto* memory =
            element == nullptr ? nullptr : static_cast<LinuxSharedMemory*>(element->memory);
        const Trouble why = memory == nullptr ? Trouble{} : memory->WhyNot();
        why.Describe(line, "shared-memory segment", arenaFile);
    } else if (object == nullptr && trouble_.kind != Trouble::Kind::kNone) {
        char what[64];
        std::snprintf(what, sizeof what, "object \"%s\" in the shared-memory segment", name_);
        trouble_.Describe(line, what, arenaFile);
    } else if (object == nullptr) {
        line.Add("no object \"%s\" in the shared-memory segment, which is full or damaged", name_);
    } else {
        const Trouble why = set == nullptr ? Trouble{} : set->WhyNone();
        why.Describe(line, "semaphore set", KeyPath::OfSet(anyLock.name));
    }
}

MARVANE_INIT_MAIN_HANDLES SharedMemoryArenaID sharedBlock = SharedArenaID();
MARVANE_INIT_MAIN_HANDLES Shared<usbOutput[kDeviceCount]> SharedOutOnCopy(sharedBlock,
                                                                          "OutOnCopies",
                                                                          kOutOnLock);
MARVANE_INIT_MAIN_HANDLES Shared<usbOutput[kDeviceCount]> SharedOutOffCopy(sharedBlock,
                                                                           "OutOffCopies",
                                                                           kOutOffLock);
MARVANE_INIT_MAIN_HANDLES Shared<EEPROM_MAP[kDeviceCount]> SharedcurrentEEPROM(sharedBlock,
                                                                               "K40EEPROMS",
                                                                               kEepromLock);

namespace {
MARVANE_INIT_MAIN_HANDLES LastUse lastUse;
}  // namespace
