/**
 * @file kbase_shared_implementation.h
 * @brief The per-board state that all processes share: handles, and access under a lock.
 *
 * Each object is an array of 16 entries, one per device number, with a lock of its own. A handle
 * attaches its object while the library is loaded; an accessor holds the lock for the length of
 * one operation, board command included. Lock order: "OutOnCopies" before "OutOffCopies"; no
 * other operation holds two, and the arena lock is never taken inside.
 *
 * Where the object or its lock cannot be had, the accessor finds no entry, and the operation fails
 * with USB_ERR_NOT_CONFIGURED after every check that needs no entry.
 */
#ifndef KBASE_SHARED_IMPLEMENTATION_H
#define KBASE_SHARED_IMPLEMENTATION_H

#include <cstddef>
#include <cstdint>

#include "board_limits.h"
#include "failure.h"
#include "marvaneusb.h"
#include "mutex.h"
#include "shared_use.h"
#include "sharedimp.h"

/** What "K40EEPROMS" holds of a board. */
struct EEPROM_MAP {
    K40EEPROM eeprom;
    std::uint8_t configured;  // 1 once the board's EEPROM has been configured
};
static_assert(sizeof(EEPROM_MAP) == 8);
static_assert(offsetof(EEPROM_MAP, configured) == 6);

/** The objects' lock indices; the arena lock has index 0. */
constexpr int kOutOnLock = 1;
constexpr int kOutOffLock = 2;
constexpr int kEepromLock = 3;
constexpr int kSerialLock = 4;

/** The identities of the one arena and its locks. */
SharedMemoryArenaID SharedArenaID();
MutexID SharedObjectLock(int index);

/** A handle, but for the type of its entries. */
class SharedObject {
public:
    SharedObject(SharedMemoryArenaID& arena, const char* objectName, MutexID lock,
                 unsigned long bytes);
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    ~SharedObject();

    /** Takes the lock; yields where it is held, or none. */
    [[nodiscard]] OnSet Take() const {
        return mutex == nullptr ? OnSet{} : static_cast<LinuxMutex*>(mutex)->Take();
    }
    /** Why an operation could not have the object or its lock; for an operation that holds. */
    [[nodiscard]] Absence WhyAbsent() const;
    void GiveBack(OnSet takenOn) const { static_cast<LinuxMutex*>(mutex)->GiveBack(takenOn); }

    SharedMemoryBlockHeader* object = nullptr;  // in the segment; null: there is none
    Mutex* mutex = nullptr;
    SharedMemoryLocalListElement* element = nullptr;

private:
    [[nodiscard]] SharedMemoryBlockHeader* Allocate(const SharedMemoryObjectID& objectId,
                                                    unsigned long bytes) const;
    [[nodiscard]] bool IsWithinArena(unsigned long bytes) const;

    const char* name_;
    Trouble trouble_;  // why there is no object, though there is a segment
};

template <class Entries>
class Shared;

/** Process-local handle of an array of entries. */
template <class Entry, std::size_t kCount>
class Shared<Entry[kCount]> : public SharedObject {
public:
    Shared(SharedMemoryArenaID& arena, const char* name, int lockIndex)
        : SharedObject(arena, name, SharedObjectLock(lockIndex),
                       sizeof(SharedMemoryBlockHeader) + sizeof(Entry[kCount])) {}

    /** The entry of a board, for whoever holds the lock; null when there is no such number. */
    Entry* Find(int deviceNo) const {
        const bool known = deviceNo >= 0 && static_cast<std::size_t>(deviceNo) < kCount;
        return known ? reinterpret_cast<Entry*>(object + 1) + deviceNo : nullptr;
    }
};

/** Holds the lock of a handle's object from construction to destruction, if it can be had. */
class SharedHold {
public:
    explicit SharedHold(const SharedObject& handle)
        : handle_(handle),
          use_(SharedUse::Begin()),
          takenOn_(use_.granted ? handle.Take() : OnSet{}) {}
    SharedHold(const SharedHold&) = delete;
    SharedHold& operator=(const SharedHold&) = delete;
    ~SharedHold() {
        if (!takenOn_.IsNone()) handle_.GiveBack(takenOn_);
        SharedUse::End(use_);
    }

    [[nodiscard]] bool Holds() const { return !takenOn_.IsNone(); }

private:
    const SharedObject& handle_;
    SharedUse::Ticket use_;
    OnSet takenOn_;
};

template <class Entries>
class SharedProxy;

/** Scoped access to an array of entries; holds the lock from construction to destruction. */
template <class Entry, std::size_t kCount>
class SharedProxy<Entry[kCount]> {
public:
    explicit SharedProxy(Shared<Entry[kCount]>& handle) : shared(handle), hold_(handle) {}

    /** The entry of a board; null without the lock, the object, or such a number. */
    Entry* Find(int deviceNo) const { return hold_.Holds() ? shared.Find(deviceNo) : nullptr; }

private:
    Shared<Entry[kCount]>& shared;
    SharedHold hold_;
};

extern Shared<usbOutput[kDeviceCount]> SharedOutOnCopy;
extern Shared<usbOutput[kDeviceCount]> SharedOutOffCopy;
extern Shared<EEPROM_MAP[kDeviceCount]> SharedcurrentEEPROM;

#endif  // KBASE_SHARED_IMPLEMENTATION_H
