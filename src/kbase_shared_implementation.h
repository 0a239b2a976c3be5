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
 *
 * At exit the handles wait until no operation of this process holds one, at most a second: a
 * thread may still be running. Operations that begin later find no entry. Where the second does
 * not suffice, the mapping stays and the process ends.
 */
#ifndef KBASE_SHARED_IMPLEMENTATION_H
#define KBASE_SHARED_IMPLEMENTATION_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "board_limits.h"
#include "marvaneusb.h"
#include "mutex.h"
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

/** Between operations and the end of the process: counts those that hold an object. */
class SharedUse {
public:
    /** False once the handles are being let go. */
    static bool Begin() {
        operations.fetch_add(1);
        if (!finishing.load()) return true;
        End();
        return false;
    }
    static void End() { operations.fetch_sub(1); }

    /** Refuses new operations and waits for those that run; false when they take too long. */
    static bool Finish();
    /** In a forked child: the operations that ran at the fork run in the parent. */
    static void ForgetOperations() { operations.store(0); }

private:
    static std::atomic<int> operations;
    static std::atomic<bool> finishing;
};

/** A handle, but for the type of its entries. */
class SharedObject {
public:
    SharedObject(SharedMemoryArenaID& arena, SharedMemoryObjectID objectId, MutexID lock,
                 unsigned long bytes);
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    ~SharedObject();

    /** Takes the lock; yields the set on which it is held, or LinuxMutex::kNoSet. */
    [[nodiscard]] int Take() const {
        return mutex == nullptr ? LinuxMutex::kNoSet : static_cast<LinuxMutex*>(mutex)->Take();
    }
    void GiveBack(int takenOn) const { static_cast<LinuxMutex*>(mutex)->GiveBack(takenOn); }

    SharedMemoryBlockHeader* object = nullptr;  // in the segment; null: there is none
    Mutex* mutex = nullptr;
    SharedMemoryLocalListElement* element = nullptr;

private:
    [[nodiscard]] SharedMemoryBlockHeader* Allocate(const SharedMemoryObjectID& objectId,
                                                    unsigned long bytes) const;
    [[nodiscard]] bool IsWithinArena(unsigned long bytes) const;
};

template <class Entries>
class Shared;

/** Process-local handle of an array of entries. */
template <class Entry, std::size_t kCount>
class Shared<Entry[kCount]> : public SharedObject {
public:
    Shared(SharedMemoryArenaID& arena, const char* name, int lockIndex)
        : SharedObject(arena, SharedMemoryObjectID(name, 0), SharedObjectLock(lockIndex),
                       sizeof(SharedMemoryBlockHeader) + sizeof(Entry[kCount])) {}

    Entry* Entries() const { return reinterpret_cast<Entry*>(object + 1); }
};

template <class Entries>
class SharedProxy;

/** Scoped access to an array of entries; holds the lock from construction to destruction. */
template <class Entry, std::size_t kCount>
class SharedProxy<Entry[kCount]> {
public:
    using Handle = Shared<Entry[kCount]>;

    explicit SharedProxy(Handle& handle)
        : shared(handle),
          counted_(SharedUse::Begin()),
          takenOn_(counted_ ? handle.Take() : kNone) {}

    /**
     * The second lock of an operation that holds a first one. When it is found on another set,
     * because the first one's has been removed, both are taken anew, in order.
     */
    SharedProxy(Handle& handle, SharedProxy& first)
        : shared(handle), counted_(false), takenOn_(kNone) {
        while (first.takenOn_ != kNone) {
            takenOn_ = handle.Take();
            if (takenOn_ == kNone || takenOn_ == first.takenOn_) return;
            GiveBack();
            first.GiveBack();
            if (!TakeFirstAgain(first)) return;
        }
    }
    SharedProxy(const SharedProxy&) = delete;
    SharedProxy& operator=(const SharedProxy&) = delete;

    ~SharedProxy() {
        // In a child that was forked in mid-operation, by a signal handler, it is the parent's.
        if (forks_ != LinuxMutex::Forks()) return;
        GiveBack();
        if (counted_) SharedUse::End();
    }

    /** The entry of a board; null without the lock, the object, or such a number. */
    Entry* Find(int deviceNo) const {
        const bool known = deviceNo >= 0 && static_cast<std::size_t>(deviceNo) < kCount;
        return takenOn_ != kNone && known ? shared.Entries() + deviceNo : nullptr;
    }

private:
    static constexpr int kNone = LinuxMutex::kNoSet;

    bool TakeFirstAgain(SharedProxy& first) {
        first.takenOn_ = first.shared.Take();
        return first.takenOn_ != kNone;
    }
    void GiveBack() {
        if (takenOn_ != kNone) shared.GiveBack(takenOn_);
        takenOn_ = kNone;
    }

    Handle& shared;
    bool counted_;
    int takenOn_;  // the set on which the lock is held
    int forks_ = LinuxMutex::Forks();
};

extern Shared<usbOutput[kDeviceCount]> SharedOutOnCopy;
extern Shared<usbOutput[kDeviceCount]> SharedOutOffCopy;
extern Shared<EEPROM_MAP[kDeviceCount]> SharedcurrentEEPROM;

#endif  // KBASE_SHARED_IMPLEMENTATION_H
