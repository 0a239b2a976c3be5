// System V objects have machine-wide keys: only a namespace keeps two sets of boards apart.
#include "program/ipc_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "driver/descriptor.h"

namespace simulator {
namespace {

constexpr char kSemaphoreKeyFile[] = "/tmp/Sem_K40Mutex";
constexpr char kSegmentKeyFile[] = "/tmp/K40SharedMemory";
constexpr int kKeyNumber = 1;

std::string Reason(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

bool WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

// Exactly this user and group exist in the new namespace, under their own numbers.
std::string MapOwnIds(uid_t user, gid_t group) {
    const std::string userMap = std::to_string(user) + " " + std::to_string(user) + " 1";
    const std::string groupMap = std::to_string(group) + " " + std::to_string(group) + " 1";
    if (!WriteFile("/proc/self/uid_map", userMap)) return Reason("cannot map the user");
    if (!WriteFile("/proc/self/setgroups", "deny")) return Reason("cannot map the group");
    if (!WriteFile("/proc/self/gid_map", groupMap)) return Reason("cannot map the group");
    return {};
}

std::string EnterThroughUserNamespace() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) return Reason("unshare");
    return MapOwnIds(user, group);
}

bool ChildSucceeds(std::string (*act)()) {
    const pid_t child = fork();
    if (child == 0) _exit(act().empty() ? 0 : 1);
    int status = 1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool IsSameNamespace(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string Join(pid_t process, const std::string& kind, int type) {
    const std::string theirs = "/proc/" + std::to_string(process) + "/ns/" + kind;
    if (IsSameNamespace(theirs, "/proc/self/ns/" + kind)) return {};

    const Descriptor entry(open(theirs.c_str(), O_RDONLY | O_CLOEXEC));
    const bool joined = entry.IsOpen() && setns(entry.Number(), type) == 0;
    return joined ? "" : Reason(theirs.c_str());
}

}  // namespace

std::string EnterOwnIpcNamespace() {
    if (unshare(CLONE_NEWIPC) == 0) return {};
    // There is no way back from a user namespace that some systems grant and then let nobody map:
    // a child goes first.
    if (!ChildSucceeds(EnterThroughUserNamespace)) return "no user namespace is to be had";
    return EnterThroughUserNamespace();
}

std::string JoinIpcNamespace(pid_t process) {
    // Root enters the IPC namespace directly and keeps what root may do outside.
    if (Join(process, "ipc", CLONE_NEWIPC).empty()) return {};
    const std::string refused = Join(process, "user", CLONE_NEWUSER);
    return refused.empty() ? Join(process, "ipc", CLONE_NEWIPC) : refused;
}

bool LiveBoardsLeaveTraces() {
    const key_t semaphoreKey = ftok(kSemaphoreKeyFile, kKeyNumber);
    const key_t segmentKey = ftok(kSegmentKeyFile, kKeyNumber);
    return (semaphoreKey != -1 && semget(semaphoreKey, 0, 0) != -1) ||
           (segmentKey != -1 && shmget(segmentKey, 0, 0) != -1);
}

}  // namespace simulator
