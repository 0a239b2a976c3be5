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

Absence SharedObject::WhyAbsent() const {
    if (!SharedUse::IsOpen()) return {Absence::Of::kProcess, name_, {}};
    if (element == nullptr) return {Absence::Of::kSegment, name_, {}};
    if (element->header == nullptr) {
        const auto* memory = static_cast<const LinuxSharedMemory*>(element->memory);
        return {Absence::Of::kSegment, name_, memory->WhyNot()};
    }
    if (object == nullptr) return {Absence::Of::kObject, name_, trouble_};
    const bool hasLock = mutex != nullptr;
    return {Absence::Of::kSet, name_,
            hasLock ? static_cast<LinuxMutex*>(mutex)->set.WhyNone() : Trouble{}};
}

void Absence::Describe(TextLine& line) const {
    const SharedMemoryArenaID arena = SharedArenaID();
    const KeyPath arenaFile = KeyPath::OfArena(arena.name);
    char what[64];
    switch (of) {
        case Of::kProcess:
            line.Add("the process is ending, and has let go of its shared state");
            return;
        case Of::kSegment:
            return why.Describe(line, "shared-memory segment", arenaFile);
        case Of::kObject:
            std::snprintf(what, sizeof what, "object \"%s\" in the shared-memory segment", object);
            if (why.kind != Trouble::Kind::kNone) return why.Describe(line, what, arenaFile);
            line.Add("no %s, which is full or damaged", what);
            return;
        case Of::kSet:
            return why.Describe(line, "semaphore set", KeyPath::OfSet(arena.mutex.name));
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
