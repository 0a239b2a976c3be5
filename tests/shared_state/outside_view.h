/**
 * @file outside_view.h
 * @brief The shared state as anybody sees and makes it who knows its keys.
 */
#ifndef OUTSIDE_VIEW_H
#define OUTSIDE_VIEW_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shared_entries.h"
#include "testing/led_key_files.h"

inline const char* const kSegmentKeyFile = led_key_files::Lead("/tmp/K40SharedMemory");
inline const char* const kSetKeyFile = led_key_files::Lead("/tmp/Sem_K40Mutex");
inline const char* const kKeyFiles[] = {kSetKeyFile, kSegmentKeyFile};

/** Processes that have the segment attached; 0 when there is none. */
unsigned long Attachments();
/** Values of all semaphores; empty when there is no set. */
std::vector<int> SemaphoreValues(int set = FindSet());
/** All values of the set with so many users and all locks free; of 0 users: there is no set. */
std::vector<int> Semaphores(int users);
void RemoveSet();

// A board's entries
inline ByteString OnCopy(std::size_t deviceNo) {
    return SharedEntries(kOnPatterns).Get(deviceNo, kOnPatterns.entrySize);
}
inline ByteString OffCopy(std::size_t deviceNo) {
    return SharedEntries(kOffPatterns).Get(deviceNo, kOffPatterns.entrySize);
}
inline ByteString EepromEntry(std::size_t deviceNo) {
    return SharedEntries(kEepromParts).Get(deviceNo, kEepromParts.entrySize);
}

// Sets and segments made by hand. Numbers are little-endian.

int MakeSet(const std::vector<int>& values, bool used);
int MakeSegment(const ByteString& content);
void PutNumber(ByteString& bytes, std::size_t offset, std::uint64_t value, int width);
/** The header of the block that starts at a unit. */
void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              std::size_t units);
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
    static void Sweep() { led_key_files::RemoveObjects(); }
    /** Removes the key files as well: nobody has been here yet. */
    static void SweepKeyFiles();
    static std::ptrdiff_t OpenDescriptors();

private:
    std::ptrdiff_t descriptorsBefore = 0;
};

#endif  // OUTSIDE_VIEW_H
