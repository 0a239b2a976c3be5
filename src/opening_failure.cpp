/**
 * @file opening_failure.cpp
 * @brief Why a board could not be opened, in words that say what mends it.
 */
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "failure.h"

namespace {

constexpr char kDriverFolder[] = "/sys/class/Kovar";
constexpr int kMostGroups = 1024;
constexpr int kHighestShownIdentity = static_cast<int>(kBoardIdentityMask);
constexpr std::size_t kAccountRoom = 4096;

struct Path {
    Path(const char* format, int deviceNo) { std::snprintf(text, sizeof text, format, deviceNo); }
    char text[64];
};

bool Exists(const char* path) {
    struct stat file;
    return stat(path, &file) == 0;
}

/** A user's or group's name, or its number where it has none. */
struct Account {
    static Account OfUser(uid_t user) {
        char room[kAccountRoom];
        passwd entry;
        passwd* found = nullptr;
        getpwuid_r(user, &entry, room, sizeof room, &found);
        return {found == nullptr ? nullptr : found->pw_name, user};
    }
    static Account OfGroup(gid_t group) {
        char room[kAccountRoom];
        struct group entry;
        struct group* found = nullptr;
        getgrgid_r(group, &entry, room, sizeof room, &found);
        return {found == nullptr ? nullptr : found->gr_name, group};
    }

    char text[40];

private:
    Account(const char* name, unsigned number) {
        if (name != nullptr) {
            std::snprintf(text, sizeof text, "%s", name);
        } else {
            std::snprintf(text, sizeof text, "%u", number);
        }
    }
};

bool ThisProcessIsIn(gid_t group) {
    gid_t groups[kMostGroups];
    const int count = getgroups(kMostGroups, groups);
    return getegid() == group ||
           (count > 0 && std::find(groups, groups + count, group) != groups + count);
}

/** Whose a node is, and what this process would need to open it. */
void AddOwner(TextLine& line, const char* node) {
    struct stat file;
    if (stat(node, &file) != 0) return;
    const Account group = Account::OfGroup(file.st_gid);
    line.Add("; it belongs to %s:%s (%04o)", Account::OfUser(file.st_uid).text, group.text,
             static_cast<unsigned>(file.st_mode & 07777));

    constexpr mode_t kGroupUses = S_IRGRP | S_IWGRP;
    const bool groupHelps = file.st_uid != geteuid() && (file.st_mode & kGroupUses) == kGroupUses;
    if (groupHelps && !ThisProcessIsIn(file.st_gid)) {
        line.Add(", and this process is not in group %s", group.text);
    }
}

void AddUnreadable(TextLine& line, const char* path, int error) {
    if (error == ENOENT && !Exists(kDriverFolder)) {
        line.Add("no %s: is the driver loaded?", kDriverFolder);
    } else {
        line.Add("cannot read %s: ", path).AddError(error);
    }
}

void AddNode(TextLine& line, const char* node, int error) {
    line.Add("cannot open %s: ", node).AddError(error);
    if (error == EACCES || error == EPERM) AddOwner(line, node);
    if (error == ENOENT) {
        line.Add("; the driver knows the board: does this process see the machine's own /dev?");
    }
}

void AddFailedStep(TextLine& line, const OpeningFailure& failure, const char* what) {
    line.Add("/dev/Kovar_%d could be opened, but %s: ", failure.deviceNo, what);
    failure.beneath.Describe(line);
}

}  // namespace

bool OpeningFailure::IsAbsence() const {
    return step == Step::kProduct && systemError == ENOENT;
}

void OpeningFailure::Describe(TextLine& line) const {
    const Path node("/dev/Kovar_%d", deviceNo);
    const Path product("/sys/class/Kovar/Kovar_%d/device/product", deviceNo);
    const Path speed("/sys/class/Kovar/Kovar_%d/device/speed", deviceNo);
    switch (step) {
        case Step::kProduct:
            if (IsAbsence() && Exists(kDriverFolder)) {
                line.Add("no %s: is board %d plugged in?", product.text, deviceNo);
                return;
            }
            return AddUnreadable(line, product.text, systemError);
        case Step::kOtherProduct:
            line.Add("%s says '%s', no board of this library", product.text, found);
            return;
        case Step::kSpeed:
            return AddUnreadable(line, speed.text, systemError);
        case Step::kOtherSpeed:
            line.Add("%s says '%s', neither 12 nor 480", speed.text, found);
            return;
        case Step::kNode:
            return AddNode(line, node.text, systemError);
        case Step::kMemory:
            line.Add("no memory is left for the board of %s", node.text);
            return;
        case Step::kFirmware:
            return AddFailedStep(line, *this, "its program could not be downloaded");
        case Step::kEeprom:
            return AddFailedStep(line, *this, "its EEPROM could not be found out");
        case Step::kInputs:
            return AddFailedStep(line, *this, "its identity could not be read");
        case Step::kOtherIdentity:
            line.Add("the board of %s has identity %d", node.text, identity);
            return;
    }
}

void OpeningReport::Describe(TextLine& line) const {
    const auto* end = failures_ + count_;
    const bool anyIsThere = std::any_of(
        failures_, end, [](const OpeningFailure& failure) { return !failure.IsAbsence(); });
    if (identity_ > kHighestShownIdentity) {
        line.Add("no board shows an identity above %d", kHighestShownIdentity);
        return;
    }
    if (!anyIsThere && count_ > 1) {
        line.Add("%s", WhyNothingIsThere());
        return;
    }
    int alike = 0;
    const OpeningFailure* told = nullptr;
    for (const auto* failure = failures_; failure != end; ++failure) {
        if (anyIsThere && failure->IsAbsence()) continue;
        // What bars the way to one number bars it to all.
        if (told != nullptr && failure->step == OpeningFailure::Step::kProduct &&
            told->step == failure->step && told->systemError == failure->systemError) {
            ++alike;
            continue;
        }
        if (told != nullptr) line.Add("; ");
        failure->Describe(line);
        told = failure;
    }
    if (alike > 0) line.Add("; %d more numbers likewise", alike);
}

const char* OpeningReport::WhyNothingIsThere() const {
    if (!Exists(kDriverFolder)) return "no /sys/class/Kovar: is the driver loaded?";
    return identity_ == kAnyIdentity
               ? "no board is plugged in: nothing in /sys/class/Kovar"
               : "no board has one of the numbers 0 to 7, which are looked at for an identity";
}
