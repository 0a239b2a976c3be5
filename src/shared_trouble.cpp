/**
 * @file shared_trouble.cpp
 * @brief Why shared state is missing, in words that say what mends it.
 */
#include "shared_trouble.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure.h"
#include "open_file.h"

namespace {

void AddProcess(TextLine& line, int process) {
    char path[32];
    char name[32] = {};
    std::snprintf(path, sizeof path, "/proc/%d/comm", process);
    const OpenFile file = OpenToRead(path);
    if (file && std::fgets(name, sizeof name, file.get()) != nullptr) {
        name[std::strcspn(name, "\n")] = '\0';
    }
    line.Add("process %d", process);
    if (name[0] != '\0') line.Add(" (%s)", name);
}

const char* HintFor(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
            return ": another user made it without rights for this one (ipcs shows it, ipcrm "
                   "removes it)";
        case EINVAL:
            return ": a smaller one has our key (ipcs shows it, ipcrm removes it)";
        default:
            return "";
    }
}

}  // namespace

void Trouble::Describe(TextLine& line, const char* what, const KeyPath& keyFile) const {
    line.Add("no %s: ", what);
    switch (kind) {
        case Kind::kNone:
            line.Add("there is no memory for it");
            return;
        case Kind::kKeyFile:
            line.Add("cannot open its key file %s: ", keyFile.Text()).AddError(error);
            return;
        case Kind::kKeyFileHeld:
            if (holder > 0) {
                AddProcess(line, holder);
            } else {
                line.Add("some process");
            }
            line.Add(" holds the lock of its key file %s", keyFile.Text());
            return;
        case Kind::kRefused:
            line.AddError(error).Add("%s", HintFor(error));
            return;
        case Kind::kNotCreated:
            line.AddError(error).Add("%s",
                                     error == ENOSPC || error == EINVAL
                                         ? ": the system's limit is reached (ipcs -l shows it)"
                                         : "");
            return;
        case Kind::kStranger:
            line.Add("what has our key is not ours (ipcs shows it, ipcrm removes it)");
            return;
        case Kind::kVanishing:
            line.Add("somebody removes it again and again");
            return;
    }
}
