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
#include <stdexcept>

namespace {

constexpr std::size_t kFirstBlock = 136;
constexpr std::size_t kUnit = 128;

struct Object {
    const char* name;
    unsigned unit, units;
    std::size_t entrySize;

    [[nodiscard]] std::size_t Block() const { return kFirstBlock + kUnit * unit; }
    [[nodiscard]] ByteString Entry(int deviceNo) const {
        const std::size_t offset = entrySize * static_cast<std::size_t>(deviceNo);
        return SegmentView().Bytes(Block() + kUnit + offset, entrySize);
    }
};
// In a segment that this library created.
constexpr Object kBuffers = {"K40BUFFERS", 0, 34, 260};
constexpr Object kOn = {"OutOnCopies", 34, 2, 5};
constexpr Object kOff = {"OutOffCopies", 36, 2, 5};
constexpr Object kEeproms = {"K40EEPROMS", 38, 2, 8};
constexpr Object kObjects[] = {kBuffers, kOn, kOff, kEeproms};

union SemaphoreArgument {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

key_t MakeKeyFileAndKey(const char* path) {
    std::fclose(std::fopen(path, "a"));
    return ftok(path, 1);
}

}  // namespace

int FindSet() {
    const key_t key = ftok(kSetKeyFile, 1);
    return key == -1 ? -1 : semget(key, 0, 0);
}

int FindSegment() {
    const key_t key = ftok(kSegmentKeyFile, 1);
    return key == -1 ? -1 : shmget(key, 0, 0);
}

unsigned long Attachments() {
    shmid_ds state = {};
    return shmctl(FindSegment(), IPC_STAT, &state) == 0 ? state.shm_nattch : 0;
}

std::vector<int> SemaphoreValues(int set) {
    semid_ds state = {};
    SemaphoreArgument argument = {};
    argument.buf = &state;
    if (semctl(set, 0, IPC_STAT, argument) != 0) return {};
    std::vector<unsigned short> values(state.sem_nsems);
    argument.array = values.data();
    if (semctl(set, 0, GETALL, argument) != 0) return {};
    return {values.begin(), values.end()};
}

int RegisteredUsers() {
    const std::vector<int> values = SemaphoreValues(FindSet());
    return values.empty() ? -1 : values[0];
}

std::vector<int> Semaphores(int users) {
    if (users == 0) return {};
    return {users, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
}

void RemoveSet() {
    semctl(FindSet(), 0, IPC_RMID);
}

SegmentView::SegmentView(int segment)
    : bytes(static_cast<unsigned char*>(shmat(segment, nullptr, 0))) {
    shmid_ds state = {};
    if (bytes == reinterpret_cast<unsigned char*>(-1) || shmctl(segment, IPC_STAT, &state) != 0)
        throw std::runtime_error("no segment");
    size = state.shm_segsz;
}

SegmentView::~SegmentView() {
    shmdt(bytes);
}

ByteString OnCopy(int deviceNo) {
    return kOn.Entry(deviceNo);
}

ByteString OffCopy(int deviceNo) {
    return kOff.Entry(deviceNo);
}

ByteString EepromEntry(int deviceNo) {
    return kEeproms.Entry(deviceNo);
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

void PutText(ByteString& bytes, std::size_t offset, const char* text) {
    std::memcpy(bytes.data() + offset, text, std::strlen(text));
}

void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              unsigned units) {
    const std::size_t block = kFirstBlock + kUnit * unit;
    PutText(bytes, block, name);
    PutNumber(bytes, block + 108, 1, 4);  // count of the default lock identity
    PutNumber(bytes, block + 116, useCount, 4);
    PutNumber(bytes, block + 120, units, 8);
}

ByteString FreshSegment() {
    ByteString bytes(kSegmentBytes, 0);
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
    for (const Object& object : kObjects)
        PutBlock(bytes, object.unit, object.name, useCount, object.units);
    PutNumber(bytes, kFirstBlock + kUnit * 40 + 120, 509 - 40, 8);
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
    for (const Object& object : kObjects) {
        PutNumber(bytes, object.Block() + 116, 1, 4);
        std::memset(bytes.data() + object.Block() + kUnit, 0, 16 * object.entrySize);
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

void SharedStateTest::Sweep() {
    led_key_files::RemoveObjects();
}

void SharedStateTest::SweepKeyFiles() {
    for (const char* path : kKeyFiles) {
        unlink(path);
        rmdir(path);
    }
}

std::size_t SharedStateTest::OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}
