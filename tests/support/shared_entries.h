/**
 * @file shared_entries.h
 * @brief The shared set and segment, as another program sees and writes them.
 *
 * All places and sizes are written out here by hand, apart from the library's own.
 */
#ifndef SHARED_ENTRIES_H
#define SHARED_ENTRIES_H

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

using ByteString = std::vector<std::uint8_t>;

/** The semaphore set under our key, or -1. */
inline int FindSet() {
    return semget(ftok("/tmp/Sem_K40Mutex", 1), 0, 0);
}
/** The segment under our key, or -1. */
inline int FindSegment() {
    return shmget(ftok("/tmp/K40SharedMemory", 1), 0, 0);
}

/** Value of a semaphore: 0 counts the users, 1 guards the arena, 2 to 5 the objects; -1: none. */
inline int SharedSemaphore(int number) {
    return semctl(FindSet(), number, GETVAL);
}

/** All bytes of the mapped segment; throws when there is none. */
class SegmentView {
public:
    explicit SegmentView(int segment = FindSegment()) {
        void* place = shmat(segment, nullptr, 0);
        shmid_ds state = {};
        if (shmctl(segment, IPC_STAT, &state) != 0) throw std::runtime_error("no shared segment");
        bytes = static_cast<std::uint8_t*>(place);
        size = state.shm_segsz;
    }
    SegmentView(const SegmentView&) = delete;
    SegmentView& operator=(const SegmentView&) = delete;
    ~SegmentView() { shmdt(bytes); }

    [[nodiscard]] ByteString All() const { return {bytes, bytes + size}; }

    std::uint8_t* bytes;
    std::size_t size;
};

/** A named block of a segment that this library created. */
struct SharedObject {
    static constexpr std::size_t kFirstBlock = 136, kUnit = 128;

    [[nodiscard]] std::size_t Header() const { return kFirstBlock + kUnit * unit; }
    [[nodiscard]] std::size_t Entries() const { return Header() + kUnit; }

    const char* name;
    std::size_t unit, units, entrySize;
};
constexpr SharedObject kBuffers = {"K40BUFFERS", 0, 34, 260};
constexpr SharedObject kOnPatterns = {"OutOnCopies", 34, 2, 5};
constexpr SharedObject kOffPatterns = {"OutOffCopies", 36, 2, 5};
constexpr SharedObject kEepromParts = {"K40EEPROMS", 38, 2, 8};

/** All 16 entries of one of them. */
class SharedEntries {
public:
    explicit SharedEntries(const SharedObject& sharedObject) : object(sharedObject) {}
    static SharedEntries OfEeproms() { return SharedEntries(kEepromParts); }
    static SharedEntries OfReceivedBytes() { return SharedEntries(kBuffers); }

    /** The first `count` bytes of a board's entry. */
    [[nodiscard]] ByteString Get(std::size_t deviceNo, std::size_t count) const {
        return {At(deviceNo), At(deviceNo) + count};
    }
    /** Overwrites the start of a board's entry. */
    void Set(std::size_t deviceNo, const ByteString& content) {
        std::copy(content.begin(), content.end(), At(deviceNo));
    }
    /** All boards' entries as in a new segment. */
    void Clear() { std::fill_n(At(0), 16 * object.entrySize, std::uint8_t{0}); }

private:
    [[nodiscard]] std::uint8_t* At(std::size_t deviceNo) const {
        return segment.bytes + object.Entries() + deviceNo * object.entrySize;
    }

    SegmentView segment;
    SharedObject object;
};

#endif  // SHARED_ENTRIES_H
