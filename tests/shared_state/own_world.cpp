/**
 * @file own_world.cpp
 * @brief Moves a test program away from the shared state of this machine.
 *
 * Runs before the C++ library is initialised: system calls and plain functions only.
 */
#include "own_world.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kFolders[] = {MARVANE_SOURCE_FOLDER, MARVANE_BUILD_FOLDER};
constexpr int kFolderCount = 2;

char refusal[256];

bool Refuse(const char* what) {
    std::snprintf(refusal, sizeof refusal, "no private IPC objects and /tmp: %s: %s", what,
                  std::strerror(errno));
    return false;
}

bool WriteFile(const char* path, const char* text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return false;
    const auto length = static_cast<ssize_t>(std::strlen(text));
    const bool written = write(file, text, static_cast<std::size_t>(length)) == length;
    close(file);
    return written;
}

bool UnshareThroughUserNamespace() {
    char users[64];
    char groups[64];
    std::snprintf(users, sizeof users, "%u %u 1", geteuid(), geteuid());
    std::snprintf(groups, sizeof groups, "%u %u 1", getegid(), getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWIPC | CLONE_NEWNS) == 0 &&
           WriteFile("/proc/self/setgroups", "deny") && WriteFile("/proc/self/uid_map", users) &&
           WriteFile("/proc/self/gid_map", groups);
}

/** Makes a folder that stood under the old /tmp appear in the new one. */
bool BringBack(const char* folder, int old) {
    char path[512];
    std::snprintf(path, sizeof path, "%s", folder);
    for (char* slash = path + std::strlen("/tmp"); (slash = std::strchr(slash + 1, '/'));) {
        *slash = '\0';
        mkdir(path, 0755);
        *slash = '/';
    }
    mkdir(path, 0755);
    char source[64];
    std::snprintf(source, sizeof source, "/proc/self/fd/%d", old);
    return mount(source, path, nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

bool ReplaceTmp() {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return Refuse("mount /");
    int folders[kFolderCount];
    for (int i = 0; i < kFolderCount; ++i) {
        const bool hidden = std::strncmp(kFolders[i], "/tmp/", 5) == 0;
        folders[i] = hidden ? open(kFolders[i], O_PATH | O_CLOEXEC) : -1;
    }
    if (mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") != 0) return Refuse("mount /tmp");
    for (int i = 0; i < kFolderCount; ++i) {
        if (folders[i] < 0) continue;
        if (!BringBack(kFolders[i], folders[i])) return Refuse(kFolders[i]);
        close(folders[i]);
    }
    return true;
}

void EnterBeforeEverything() {
    if (unshare(CLONE_NEWIPC | CLONE_NEWNS) != 0 && !UnshareThroughUserNamespace()) {
        Refuse("unshare");
        return;
    }
    ReplaceTmp();
}

[[gnu::section(".preinit_array"),
  gnu::used]] void (*const enterBeforeEverything)() = EnterBeforeEverything;

}  // namespace

const char* NoOwnWorld() {
    return refusal[0] != '\0' ? refusal : nullptr;
}
