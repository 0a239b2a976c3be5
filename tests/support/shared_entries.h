/**
 * @file shared_entries.h
 * @brief The per-board entries in the shared segment, as another program sees and writes them.
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

/** Value of a semaphore: 0 counts the users, 1 guards the arena, 2 to 5 the objects; -1: none. */
inline int SharedSemaphore(int number) {
    return semctl(semget(ftok("/tmp/Sem_K40Mutex", 1), 0, 0), number, GETVAL);
}

/** All 16 entries of one shared object, in a segment that this library created. */
class SharedEntries {
public:
    /** The segment offset of entry 0, and the size of an entry. */
    SharedEntries(std::size_t firstEntry, std::size_t size) : size_(size) {
        void* segment = shmat(shmget(ftok("/tmp/K40SharedMemory", 1), 0, 0), nullptr, 0);
        if (segment == reinterpret_cast<void*>(-1)) throw std::runtime_error("no shared segment");
        segment_ = static_cast<std::uint8_t*>(segment);
        entries_ = segment_ + firstEntry;
    }
    SharedEntries(const SharedEntries&) = delete;
    SharedEntries& operator=(const SharedEntries&) = delete;
    ~SharedEntries() { shmdt(segment_); }

    static SharedEntries OfEeproms() { return {5000 + 128, 8}; }
    static SharedEntries OfReceivedBytes() { return {136 + 128, 260}; }

    /** The first `count` bytes of a board's entry. */
    [[nodiscard]] std::vector<std::uint8_t> Get(std::size_t deviceNo, std::size_t count) const {
        return {At(deviceNo), At(deviceNo) + count};
    }
    /** Overwrites the start of a board's entry. */
    void Set(std::size_t deviceNo, const std::vector<std::uint8_t>& bytes) {
        std::copy(bytes.begin(), bytes.end(), At(deviceNo));
    }
    /** All boards' entries as in a new segment. */
    void Clear() { std::fill_n(entries_, 16 * size_, std::uint8_t{0}); }

private:
    [[nodiscard]] std::uint8_t* At(std::size_t deviceNo) const {
        return entries_ + deviceNo * size_;
    }

    std::size_t size_;
    std::uint8_t* segment_;
    std::uint8_t* entries_;
};

#endif  // SHARED_ENTRIES_H
