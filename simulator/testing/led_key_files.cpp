/**
 * @file led_key_files.cpp
 * @brief The folder, the keys that are noted in it, and the calls that are taken over.
 */
#include "testing/led_key_files.h"

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/random.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string_view>

namespace {

namespace fs = std::filesystem;
using led_key_files::Folder;
using led_key_files::Lead;
using led_key_files::Objects;

constexpr char kEnvironment[] = "MARVANE_KEY_FILES";
constexpr std::string_view kTmp = "/tmp";
constexpr const char* kKeyFiles[] = {"/Sem_K40Mutex", "/K40SharedMemory"};
constexpr key_t kNoKey = -1;
constexpr char kNote[] = "key-";  // a symbolic link: name and target are written at once

bool withheld = false;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Past whoever counts the library's calls.
int SetOf(key_t key) {
    return Next<int(key_t, int, int)>("semget")(key, 0, 0);
}
int SegmentOf(key_t key) {
    return Next<int(key_t, std::size_t, int)>("shmget")(key, 0, 0);
}

std::optional<std::string> TargetOf(const std::string& link) {
    char target[512];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    if (length < 0) return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

// Keys

/** None that anybody has, or that ftok yields for the library's project 1, the highest byte. */
key_t ChooseKey() {
    for (;;) {
        std::uint32_t number = 0;
        if (getrandom(&number, sizeof number, 0) != sizeof number) continue;
        const auto key = static_cast<key_t>(0x40000000U | (number & 0x3FFFFFFFU));
        if (SetOf(key) == -1 && SegmentOf(key) == -1) return key;
    }
}

key_t NotedKey(const std::string& target) {
    return static_cast<key_t>(std::strtol(target.c_str(), nullptr, 10));
}

/** The key that stands for the one of a file in the folder. */
key_t KeyInsteadOf(key_t key) {
    const std::string note = Folder() + "/" + kNote + std::to_string(key);
    for (;;) {
        if (const auto target = TargetOf(note)) return NotedKey(*target);
        // Another process may be faster.
        const std::string chosen = std::to_string(ChooseKey());
        if (symlink(chosen.c_str(), note.c_str()) != 0 && errno != EEXIST) return kNoKey;
    }
}

/** Directly, or through the name in /proc of an open file. */
bool LeadsToFolder(const std::string& path) {
    return path.starts_with(Folder()) || TargetOf(path).value_or("").starts_with(Folder());
}

Objects FindObjects(const std::string& folder) {
    Objects objects;
    std::error_code none;  // when the folder is gone
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
        if (!entry.path().filename().string().starts_with(kNote)) continue;
        const key_t key = NotedKey(TargetOf(entry.path()).value_or(""));
        if (const int set = SetOf(key); set != -1) objects.sets.push_back(set);
        if (const int segment = SegmentOf(key); segment != -1) objects.segments.push_back(segment);
    }
    return objects;
}

void Remove(const Objects& objects) {
    for (const int set : objects.sets)
        semctl(set, 0, IPC_RMID);
    for (const int segment : objects.segments)
        shmctl(segment, IPC_RMID, nullptr);
}

// The folder

/** Ends once nobody has the other end of the pipe any more. */
[[noreturn]] void RemoveInTheEnd(const std::string& folder, int pipe) {
    setsid();
    dup2(pipe, 0);
    closefrom(1);
    char byte = 0;
    while (read(0, &byte, 1) < 0 && errno == EINTR) {
    }
    Remove(FindObjects(folder));
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    _exit(0);
}

/** Leaves a process behind that is no child of this one. */
void HaveItRemoved(const std::string& folder) {
    int ends[2];
    // Programs that are executed keep their end.
    if (pipe(ends) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        if (fork() == 0) RemoveInTheEnd(folder, ends[0]);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    close(ends[0]);
}

std::string FindOrMakeFolder() {
    const char* told = std::getenv(kEnvironment);
    if (told != nullptr && fs::is_directory(told)) return told;

    std::string folder = fs::canonical(fs::temp_directory_path()) / "marvane-keys.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chmod(folder.c_str(), 01777) != 0) {
        std::perror(folder.c_str());
        std::abort();
    }
    HaveItRemoved(folder);
    setenv(kEnvironment, folder.c_str(), 1);
    return folder;
}

// Before the program forks, at the latest: a library that is linked asks earlier.
[[maybe_unused]] const std::string& atStart = Folder();

}  // namespace

const std::string& led_key_files::Folder() {
    // Never destroyed: the library asks for its key files at exit.
    static const auto& folder = *new std::string(FindOrMakeFolder());
    return folder;
}

const char* led_key_files::Lead(const char* path) {
    if (path == nullptr) return path;
    const std::string_view asked = path;
    if (!asked.starts_with(kTmp)) return path;
    for (std::size_t file = 0; file < std::size(kKeyFiles); ++file) {
        if (asked.substr(kTmp.size()) != kKeyFiles[file]) continue;
        static const auto& led = *new std::array{Folder() + kKeyFiles[0], Folder() + kKeyFiles[1]};
        return led[file].c_str();
    }
    return path;
}

Objects led_key_files::FindObjects() {
    return ::FindObjects(Folder());
}

void led_key_files::RemoveObjects() {
    Remove(FindObjects());
}

void led_key_files::WithholdKeys() {
    withheld = true;
}

#pragma GCC visibility push(default)
extern "C" {

key_t ftok(const char* path, int project) noexcept {
    if (withheld) {
        errno = ENOENT;
        return kNoKey;
    }
    const char* led = Lead(path);
    static auto* next = Next<key_t(const char*, int)>("ftok");
    const key_t key = next(led, project);
    return key == kNoKey || !LeadsToFolder(led) ? key : KeyInsteadOf(key);
}

int stat(const char* path, struct stat* file) noexcept {
    static auto* next = Next<int(const char*, struct stat*)>("stat");
    return next(Lead(path), file);
}

int stat64(const char* path, struct stat64* file) noexcept {
    static auto* next = Next<int(const char*, struct stat64*)>("stat64");
    return next(Lead(path), file);
}

}  // extern "C"
#pragma GCC visibility pop
