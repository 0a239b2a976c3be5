// Words for the board as a device on the bus, and for what is to be seen of it.
#include <cerrno>
#include <climits>
#include <cstring>

#include "control/word.h"
#include "report/device.h"

namespace simulator {
namespace {

constexpr int kMostSpoiltExchanges = 1'000'000;
constexpr int kLongestDelayMs = 600'000;
constexpr int kHighestErrorNumber = 133;

std::string Unplug(Target target, WordList words) {
    words.End();
    if (!target.device.IsPlugged()) throw Refusal("the board is unplugged already");
    target.bus.Unplug(target.device);
    return {};
}

std::string Plug(Target target, WordList words) {
    words.End();
    if (target.device.IsPlugged()) throw Refusal("the board is plugged in already");
    target.bus.Plug(target.device);
    return {};
}

int ErrorNumber(const std::string& name) {
    for (int error = 1; error <= kHighestErrorNumber; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) return error;
    }
    throw UsageError("'" + name + "' is no error name such as EIO");
}

Fault ParseFault(WordList& words, Model model) {
    const std::string kind = words.Word("the kind of failure");
    if (kind == "ioctl") {
        return {Fault::Kind::kIoctl,
                words.IsEmpty() ? EIO : ErrorNumber(words.Word("the error name"))};
    }
    if (kind == "status") {
        // A K40's status is a signed byte of its reply.
        const bool isByte = model == Model::kK40;
        return {Fault::Kind::kStatus, words.Number("the status", isByte ? SCHAR_MIN : INT_MIN,
                                                   isByte ? UCHAR_MAX : INT_MAX)};
    }
    if (kind == "echo") {
        if (model != Model::kK40) throw Refusal("only a K40 echoes the command");
        return {Fault::Kind::kEcho};
    }
    if (kind == "short") {
        return {Fault::Kind::kShort,
                words.Number("the reply's length", 0, static_cast<int>(ReplyLimit(model)))};
    }
    if (kind == "delay") {
        return {Fault::Kind::kDelay, words.Number("the delay in ms", 1, kLongestDelayMs)};
    }
    throw UsageError("'" + kind + "' is not ioctl, status, echo, short or delay");
}

std::string Spoil(Target target, WordList words) {
    if (words.Take("off")) {
        words.End();
        target.device.StopSpoiling();
        return {};
    }
    const int count = words.Number("the number of exchanges", 1, kMostSpoiltExchanges);
    const Fault fault = ParseFault(words, target.device.board.Options().model);
    words.End();
    target.device.Spoil(static_cast<unsigned>(count), fault);
    return {};
}

std::string ShowLog(Target target, WordList words) {
    const bool clears = words.Take("--clear");
    words.End();
    std::string lines = LogAsLines(target.device);
    if (clears) target.device.ClearLog();
    return lines;
}

std::string ShowState(Target target, WordList words) {
    words.End();
    return StateAsJson(target.device);
}

// clang-format off
constexpr ControlWord kWords[] = {
    {"unplug",      "",                   "takes the board off the bus", Unplug},
    {"plug",        "",                   "plugs it in again; it starts without its program", Plug},
    {"fail",        "N ioctl [ERROR]",    "the next N exchanges fail with an error name, EIO by default", Spoil},
    {"fail",        "N status VALUE",     "the next N exchanges are answered with a status", Spoil},
    {"fail",        "N echo",             "the next N replies of a K40 name another command", Spoil},
    {"fail",        "N short LENGTH",     "the next N replies hold LENGTH data bytes at most", Spoil},
    {"fail",        "N delay MS",         "the next N exchanges take MS milliseconds each", Spoil},
    {"fail",        "off",                "no more failures", Spoil},
    {"log",         "[--clear]",          "prints what the board received, one exchange a line: channel, "
                                          "command, payload, status, reply", ShowLog},
    {"show",        "",                   "prints the board's state as JSON", ShowState},
};
// clang-format on

}  // namespace

std::span<const ControlWord> DeviceWords() {
    return kWords;
}

}  // namespace simulator
