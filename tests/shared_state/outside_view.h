/**
 * @file outside_view.h
 * @brief The shared state as anybody sees it who knows its keys: with semctl, shmctl and shmat.
 *
 * All places and sizes are written out here by hand, apart from the library's own.
 */
#ifndef OUTSIDE_VIEW_H
#define OUTSIDE_VIEW_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

constexpr char kSegmentKeyFile[] = "/tmp/K40SharedMemory";
constexpr char kSetKeyFile[] = "/tmp/Sem_K40Mutex";
constexpr std::size_t kSegmentBytes = 65536;

// Entry 0 of each object in a segment that this library created.
constexpr std::size_t kSerialEntries = 136 + 128;
constexpr std::size_t kOnEntries = 4488 + 128;
constexpr std::size_t kOffEntries = 4744 + 128;
constexpr std::size_t kEepromEntries = 5000 + 128;

using ByteString = std::vector<std::uint8_t>;

/** The semaphore set under our key, or -1. */
int FindSet();
/** The segment under our key, or -1. */
int FindSegment();
/** Values of all semaphores; empty when there is no set. */
std::vector<int> SemaphoreValues(int set);
/** Some process has changed a semaphore of it by semop. */
bool WasEverUsed(int set);
/** How many processes the set counts as users; -1 when there is none. */
int RegisteredUsers();

/** All values of the set with so many users and all locks free. */
std::vector<int> Semaphores(int users);

/** The mapped segment; the test ends with an exception when there is none. */
class SegmentView {
public:
    SegmentView() : SegmentView(FindSegment()) {}
    explicit SegmentView(int segment);
    SegmentView(const SegmentView&) = delete;
    SegmentView& operator=(const SegmentView&) = delete;
    ~SegmentView();

    [[nodiscard]] ByteString Bytes(std::size_t offset, std::size_t count) const;
    [[nodiscard]] std::string Text(std::size_t offset) const;
    template <class Number>
    [[nodiscard]] Number At(std::size_t offset) const {
        return *reinterpret_cast<const Number*>(bytes + offset);
    }
    /** Offsets of all blocks whose name is this, walking by their units. */
    [[nodiscard]] std::vector<std::size_t> BlocksNamed(const std::string& name) const;

    unsigned char* bytes;
};

// Segments written by hand. Numbers are little-endian.

constexpr std::size_t kFirstBlock = 136;

void PutNumber(ByteString& bytes, std::size_t offset, std::uint64_t value, int width);
void PutText(ByteString& bytes, std::size_t offset, const char* text);
/** The header of the block that starts at a unit. */
void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              unsigned units);
/** A fresh 65536-byte arena. */
ByteString FreshSegment(const char* name, const char* lockName);
/** The library's arena with its four objects, nothing in them yet. */
ByteString SegmentInUse(unsigned useCount);
/** Empty when there is none. */
std::string FirstDifference(const ByteString& found, const ByteString& wanted);

/** Names of the library's objects that are not in the segment exactly once. */
std::string ObjectsTwiceOrMissing();
/** A process holds the lock of one of the two key files. */
bool KeyFileIsLocked();
/** Of this process. */
std::size_t OpenDescriptors();

ByteString OnCopy(int deviceNo);
ByteString OffCopy(int deviceNo);

/** For a test of processes in this program's world: it must be empty before and afterwards. */
class SharedStateTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /** Removes all System V objects of this world, as a killed process leaves them. */
    static void Sweep();
    /** Removes the key files as well: nobody has been here yet. */
    static void SweepKeyFiles();

private:
    std::size_t descriptorsBefore = 0;
};

#endif  // OUTSIDE_VIEW_H
