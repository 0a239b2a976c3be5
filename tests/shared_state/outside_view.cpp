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

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "own_world.h"

namespace {

constexpr std::size_t kUnit = 128;

union SemaphoreArgument {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

/** Ids of all objects of this world, from the kernel's list. */
std::vector<int> ListIds(const char* path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    std::vector<int> ids;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        long key = 0;
        int id = 0;
        if (words >> key >> id) ids.push_back(id);
    }
    return ids;
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

bool WasEverUsed(int set) {
    semid_ds state = {};
    union {
        int value;
        semid_ds* state;
    } argument = {};
    argument.state = &state;
    return semctl(set, 0, IPC_STAT, argument) == 0 && state.sem_otime != 0;
}

int RegisteredUsers() {
    const std::vector<int> values = SemaphoreValues(FindSet());
    return values.empty() ? -1 : values[0];
}

std::vector<int> Semaphores(int users) {
    return {users, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
}

SegmentView::SegmentView(int segment)
    : bytes(static_cast<unsigned char*>(shmat(segment, nullptr, 0))) {
    if (bytes == reinterpret_cast<unsigned char*>(-1)) throw std::runtime_error("no segment");
}

SegmentView::~SegmentView() {
    shmdt(bytes);
}

ByteString SegmentView::Bytes(std::size_t offset, std::size_t count) const {
    return {bytes + offset, bytes + offset + count};
}

std::string SegmentView::Text(std::size_t offset) const {
    const auto* text = reinterpret_cast<const char*>(bytes + offset);
    return {text, strnlen(text, 50)};
}

std::vector<std::size_t> SegmentView::BlocksNamed(const std::string& name) const {
    std::vector<std::size_t> found;
    const auto units = At<std::uint64_t>(128);
    for (std::uint64_t unit = 0; unit < units;) {
        const std::size_t block = kFirstBlock + unit * kUnit;
        if (Text(block) == name) found.push_back(block);
        const auto length = At<std::uint64_t>(block + 120);
        if (length == 0 || length > units - unit) throw std::runtime_error("a damaged block");
        unit += length;
    }
    return found;
}

void PutNumber(ByteString& bytes, std::size_t offset, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) {
        bytes[offset + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

void PutText(ByteString& bytes, std::size_t offset, const char* text) {
    std::memcpy(bytes.data() + offset, text, std::strlen(text));
}

void PutBlock(ByteString& bytes, std::size_t unit, const char* name, unsigned useCount,
              unsigned units) {
    const std::size_t block = kFirstBlock + 128 * unit;
    PutText(bytes, block, name);
    PutNumber(bytes, block + 108, 1, 4);  // count of the default lock identity
    PutNumber(bytes, block + 116, useCount, 4);
    PutNumber(bytes, block + 120, units, 8);
}

ByteString FreshSegment(const char* name, const char* lockName) {
    ByteString bytes(65536, 0);
    PutText(bytes, 0, name);
    PutText(bytes, 56, lockName);
    PutNumber(bytes, 108, 10, 4);     // count of the arena lock
    PutNumber(bytes, 116, 65536, 4);  // size
    PutNumber(bytes, 120, 1, 4);      // initCount
    PutNumber(bytes, 128, 509, 8);    // unitCount
    PutBlock(bytes, 0, "", 0, 509);
    return bytes;
}

ByteString SegmentInUse(unsigned useCount) {
    ByteString bytes = FreshSegment("K40SharedMemory", "K40Mutex");
    PutBlock(bytes, 0, "K40BUFFERS", useCount, 34);
    PutBlock(bytes, 34, "OutOnCopies", useCount, 2);
    PutBlock(bytes, 36, "OutOffCopies", useCount, 2);
    PutBlock(bytes, 38, "K40EEPROMS", useCount, 2);
    PutNumber(bytes, kFirstBlock + 128 * 40 + 120, 509 - 40, 8);
    return bytes;
}

std::string FirstDifference(const ByteString& found, const ByteString& wanted) {
    if (found.size() != wanted.size()) return "sizes differ";
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (found[i] != wanted[i]) {
            return "offset " + std::to_string(i) + ": " + std::to_string(found[i]) + ", not " +
                   std::to_string(wanted[i]);
        }
    }
    return "";
}

std::string ObjectsTwiceOrMissing() {
    const SegmentView segment;
    std::string wrong;
    for (const char* name : {"K40BUFFERS", "OutOnCopies", "OutOffCopies", "K40EEPROMS"}) {
        const std::size_t count = segment.BlocksNamed(name).size();
        if (count != 1) wrong += std::string(name) + ": " + std::to_string(count) + " ";
    }
    return wrong;
}

bool KeyFileIsLocked() {
    bool locked = false;
    for (const char* path : {kSetKeyFile, kSegmentKeyFile}) {
        const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (file < 0) continue;
        locked = locked || flock(file, LOCK_EX | LOCK_NB) != 0;
        close(file);
    }
    return locked;
}

std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

ByteString OnCopy(int deviceNo) {
    return SegmentView().Bytes(kOnEntries + 5 * static_cast<std::size_t>(deviceNo), 5);
}

ByteString OffCopy(int deviceNo) {
    return SegmentView().Bytes(kOffEntries + 5 * static_cast<std::size_t>(deviceNo), 5);
}

void SharedStateTest::SetUp() {
    if (NoOwnWorld() != nullptr) GTEST_SKIP() << NoOwnWorld();
    Sweep();
    SweepKeyFiles();
    descriptorsBefore = OpenDescriptors();
}

void SharedStateTest::TearDown() {
    if (NoOwnWorld() != nullptr) return;
    EXPECT_EQ(ListIds("/proc/sysvipc/shm"), std::vector<int>()) << "a segment is left";
    EXPECT_EQ(ListIds("/proc/sysvipc/sem"), std::vector<int>()) << "a semaphore set is left";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    EXPECT_FALSE(KeyFileIsLocked());
    EXPECT_EQ(OpenDescriptors(), descriptorsBefore);
    Sweep();
}

void SharedStateTest::Sweep() {
    for (const int id : ListIds("/proc/sysvipc/shm"))
        shmctl(id, IPC_RMID, nullptr);
    for (const int id : ListIds("/proc/sysvipc/sem"))
        semctl(id, 0, IPC_RMID);
}

void SharedStateTest::SweepKeyFiles() {
    for (const char* path : {kSetKeyFile, kSegmentKeyFile})
        unlink(path);
}
