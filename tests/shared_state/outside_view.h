/**
 * @file outside_view.h
 * @brief The shared state as anybody sees it who knows its keys: with semctl, shmctl and shmat.
 *
 * All places and sizes are written out here by hand, apart from the library's own.
 */
#ifndef OUTSIDE_VIEW_H
#define OUTSIDE_VIEW_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "led_key_files.h"

inline const char* const kSegmentKeyFile = led_key_files::Lead("/tmp/K40SharedMemory");
inline const char* const kSetKeyFile = led_key_files::Lead("/tmp/Sem_K40Mutex");
inline const char* const kKeyFiles[] = {kSetKeyFile, kSegmentKeyFile};
constexpr std::size_t kSegmentBytes = 65536;

using ByteString = std::vector<std::uint8_t>;

/** The semaphore set under our key, or -1. */
int FindSet();
/** The segment under our key, or -1. */
int FindSegment();
/** Processes that have it attached; 0 when there is none. */
unsigned long Attachments();
/** Values of all semaphores; empty when there is no set. */
std::vector<int> SemaphoreValues(int set);
/** How many processes the set counts as users; -1 when there is none. */
int RegisteredUsers();
/** All values of the set with so many users and all locks free; of 0 users: there is no set. */
std::vector<int> Semaphores(int users);
void RemoveSet();

/** All bytes of the mapped segment; the test ends with an exception when there is none. */
class SegmentView {
public:
    explicit SegmentView(int segment = FindSegment());
    SegmentView(const SegmentView&) = delete;
    SegmentView& operator=(const SegmentView&) = delete;
    ~SegmentView();

    [[nodiscard]] ByteString Bytes(std::size_t offset, std::size_t count) const {
        return {bytes + offset, bytes + offset + count};
    }
    [[nodiscard]] ByteString All() const { return Bytes(0, size); }

    unsigned char* bytes;
    std::size_t size;
};

// A board's entries
ByteString OnCopy(int deviceNo);
ByteString OffCopy(int deviceNo);
ByteString EepromEntry(int deviceNo);

// Sets and segments made by hand. Numbers are little-endian.

int MakeSet(const std::vector<int>& values, bool used);
int MakeSegment(const ByteString& content);
void PutNumber(ByteString& bytes, std::size_t offset, std::uint64_t value, int width);
void PutText(ByteString& bytes, std::size_t offset, const char* text);
/** The header of the block that starts at a unit. */
void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              unsigned units);
/** The library's arena without any object. */
ByteString FreshSegment();
/** The library's arena with its four objects, nothing in them yet. */
ByteString SegmentInUse(unsigned useCount);
/** Empty when there is none. */
std::string FirstDifference(const ByteString& found, const ByteString& wanted);
/** Of the segment's headers, use counts aside, from those of SegmentInUse. */
std::string HeaderDifference();

/** A process holds the lock of one of the two key files. */
bool KeyFileIsLocked();

/** For a test of processes: nobody uses this program's key files before and afterwards. */
class SharedStateTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static void ExpectNothingIsLeft();
    /** Removes all System V objects, as a killed process leaves them. */
    static void Sweep();
    /** Removes the key files as well: nobody has been here yet. */
    static void SweepKeyFiles();

private:
    static std::size_t OpenDescriptors();
    std::size_t descriptorsBefore = 0;
};

#endif  // OUTSIDE_VIEW_H
