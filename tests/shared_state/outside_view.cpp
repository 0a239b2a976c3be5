/**
 * @file outside_view.cpp
 * @brief The shared state as anybody sees it who knows its keys.
 */
#include "outside_view.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace {

const SharedObject kObjects[] = {kBuffers, kOnPatterns, kOffPatterns, kEepromParts};

key_t MakeKeyFileAndKey(const char* path) {
    std::fclose(std::fopen(path, "a"));
    return ftok(path, 1);
}

void PutText(ByteString& bytes, std::size_t offset, const char* text) {
    std::memcpy(bytes.data() + offset, text, std::strlen(text));
}

}  // namespace

unsigned long Attachments() {
    shmid_ds state = {};
    return shmctl(FindSegment(), IPC_STAT, &state) == 0 ? state.shm_nattch : 0;
}

std::vector<int> SemaphoreValues(int set) {
    semid_ds state = {};
    if (semctl(set, 0, IPC_STAT, &state) != 0) return {};
    std::vector<unsigned short> values(state.sem_nsems);
    if (semctl(set, 0, GETALL, values.data()) != 0) return {};
    return {values.begin(), values.end()};
}

std::vector<int> Semaphores(int users) {
    if (users == 0) return {};
    return {users, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
}

void RemoveSet() {
    semctl(FindSet(), 0, IPC_RMID);
}

int MakeSet(const std::vector<int>& values, bool used) {
    const int set = semget(MakeKeyFileAndKey(kSetKeyFile), static_cast<int>(values.size()),
                           IPC_CREAT | IPC_EXCL | 0666);
    for (std::size_t i = 0; i < values.size(); ++i)
        semctl(set, static_cast<int>(i), SETVAL, values[i]);
    sembuf operations[] = {{0, 1, 0}, {0, -1, 0}};
    if (used) semop(set, operations, 2);
    return set;
}

int MakeSegment(const ByteString& content) {
    const int segment =
        shmget(MakeKeyFileAndKey(kSegmentKeyFile), content.size(), IPC_CREAT | IPC_EXCL | 0666);
    std::memcpy(SegmentView(segment).bytes, content.data(), content.size());
    return segment;
}

void PutNumber(ByteString& bytes, std::size_t offset, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i)
        bytes[offset + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
}

void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              std::size_t units) {
    const std::size_t block = SharedObject{name, unit, units, 0}.Header();
    PutText(bytes, block, name);
    PutNumber(bytes, block + 108, 1, 4);  // count of the default lock identity
    PutNumber(bytes, block + 116, useCount, 4);
    PutNumber(bytes, block + 120, units, 8);
}

ByteString FreshSegment() {
    ByteString bytes(65536, 0);
    PutText(bytes, 0, "K40SharedMemory");
    PutText(bytes, 56, "K40Mutex");
    PutNumber(bytes, 108, 10, 4);     // count of the arena lock
    PutNumber(bytes, 116, 65536, 4);  // size
    PutNumber(bytes, 120, 1, 4);      // initCount
    PutNumber(bytes, 128, 509, 8);    // unitCount
    PutBlock(bytes, 0, "", 0, 509);
    return bytes;
}

ByteString SegmentInUse(unsigned useCount) {
    ByteString bytes = FreshSegment();
    for (const SharedObject& object : kObjects)
        PutBlock(bytes, object.unit, object.name, useCount, object.units);
    PutNumber(bytes, SharedObject{"", 40, 0, 0}.Header() + 120, 509 - 40, 8);
    return bytes;
}

std::string FirstDifference(const ByteString& found, const ByteString& wanted) {
    if (found.size() != wanted.size()) return "sizes differ";
    const auto [one, other] = std::mismatch(found.begin(), found.end(), wanted.begin());
    if (one == found.end()) return "";
    return "offset " + std::to_string(one - found.begin()) + ": " + std::to_string(*one) +
           ", not " + std::to_string(*other);
}

std::string HeaderDifference() {
    ByteString bytes = SegmentView().All();
    for (const SharedObject& object : kObjects) {
        PutNumber(bytes, object.Header() + 116, 1, 4);
        std::memset(bytes.data() + object.Entries(), 0, 16 * object.entrySize);
    }
    return FirstDifference(bytes, SegmentInUse(1));
}

bool KeyFileIsLocked() {
    return std::any_of(std::begin(kKeyFiles), std::end(kKeyFiles), [](const char* path) {
        const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        const bool locked = file >= 0 && flock(file, LOCK_EX | LOCK_NB) != 0;
        close(file);
        return locked;
    });
}

void SharedStateTest::SetUp() {
    Sweep();
    SweepKeyFiles();
    descriptorsBefore = OpenDescriptors();
}

void SharedStateTest::TearDown() {
    ExpectNothingIsLeft();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    EXPECT_FALSE(KeyFileIsLocked());
    EXPECT_EQ(OpenDescriptors(), descriptorsBefore);
    Sweep();
}

void SharedStateTest::ExpectNothingIsLeft() {
    const auto [sets, segments] = led_key_files::FindObjects();
    EXPECT_EQ(segments, std::vector<int>()) << "a segment is left";
    EXPECT_EQ(sets, std::vector<int>()) << "a semaphore set is left";
}

void SharedStateTest::SweepKeyFiles() {
    for (const char* path : kKeyFiles) {
        unlink(path);
        rmdir(path);
    }
}

std::ptrdiff_t SharedStateTest::OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}
