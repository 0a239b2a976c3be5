// The table of control words. A word that a family of the board model brings along is one line
// here and one function.
#include "control_words.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iomanip>
#include <sstream>

#include "device_report.h"
#include "hex.h"
#include "word_list.h"

namespace simulator {
namespace {

constexpr int kMostSpoiltExchanges = 1'000'000;
constexpr int kLongestDelayMs = 600'000;
constexpr int kHighestErrorNumber = 133;
constexpr std::size_t kMostSpiReplies = 1000;

struct Target {
    DriverStandIn& driver;
    Device& device;
};

struct Levels {
    const char* high;
    const char* low;
};
constexpr Levels kOnOff = {"on", "off"};
constexpr Levels kOpenClosed = {"open", "closed"};

// Takes pairs of a number and a level, all of them before the first is put into effect.
template <class Set>
void SetEach(WordList words, const std::string& what, unsigned count, Set set,
             Levels levels = kOnOff) {
    std::vector<std::pair<unsigned, bool>> pairs;
    do {
        const int number = words.Number("the " + what, 0, static_cast<int>(count) - 1);
        pairs.emplace_back(number, words.Either("the level of " + what, levels.high, levels.low));
    } while (!words.IsEmpty());
    for (const auto& [number, level] : pairs)
        set(number, level);
}

std::string SetInputs(Target target, WordList words) {
    SetEach(words, "input", kInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.Set(n, level); });
    return {};
}

std::string SetContacts(Target target, WordList words) {
    SetEach(words, "input", kInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.SetContact(n, level); });
    return {};
}

std::string SetMultiplexed(Target target, WordList words) {
    SetEach(words, "multiplexed input", kMultiplexedInputCount,
            [&](unsigned n, bool level) { target.device.board.inputs.SetMultiplexed(n, level); });
    return {};
}

std::string SetIdentity(Target target, WordList words) {
    const int identity = words.Number("the identity", 0, kIdentityCount - 1);
    words.End();
    target.device.board.inputs.SetIdentity(static_cast<unsigned>(identity));
    return {};
}

std::string SetSwitches(Target target, WordList words) {
    SetEach(
        words, "security switch", kSecuritySwitchCount,
        [&](unsigned n, bool open) { target.device.board.clock.SetSwitch(n, open); }, kOpenClosed);
    return {};
}

std::string FailBattery(Target target, WordList words) {
    words.Exactly("what happens to the battery", "fail");
    words.End();
    target.device.board.clock.FailBattery();
    return {};
}

std::string FailClock(Target target, WordList words) {
    words.Exactly("what happens to the clock", "fail");
    words.End();
    target.device.board.clock.FailClock();
    return {};
}

std::vector<std::uint8_t> SpiReply(const std::string& word) {
    auto bytes = FromHex(word);
    if (!bytes || bytes->empty() || bytes->size() > kSpiLimit) {
        throw UsageError("an SPI reply must be 1 to 20 bytes in hex, not '" + word + "'");
    }
    return *std::move(bytes);
}

// All words are taken before the first reply is queued.
std::string QueueSpiReplies(WordList words, BoardSpi& spi) {
    std::vector<std::vector<std::uint8_t>> replies;
    do {
        replies.push_back(SpiReply(words.Word("the SPI reply")));
    } while (!words.IsEmpty());
    if (spi.QueuedReplies() + replies.size() > kMostSpiReplies) {
        throw Refusal("no more than 1000 SPI replies can be queued");
    }
    for (auto& reply : replies)
        spi.QueueReply(std::move(reply));
    return {};
}

std::string ScriptSpi(Target target, WordList words) {
    BoardSpi& spi = target.device.board.spi;
    if (words.Either("what the SPI device does", "reply", "clear")) {
        return QueueSpiReplies(words, spi);
    }
    words.End();
    spi.ClearQueue();
    return {};
}

std::string ReadEeprom(Target target, WordList words) {
    const EepromChip& chip = target.device.board.eeprom.Chip();
    const int size = static_cast<int>(chip.Contents().size());
    words.Exactly("what happens to the EEPROM", "read");
    const int address = words.Number("the address", 0, size - 1);
    const int length = words.Number("the length", 1, size - address);
    words.End();
    return Hex(chip.Contents().subspan(static_cast<std::size_t>(address),
                                       static_cast<std::size_t>(length))) +
           "\n";
}

std::string Unplug(Target target, WordList words) {
    words.End();
    if (!target.device.IsPlugged()) throw Refusal("the board is unplugged already");
    target.driver.Unplug(target.device);
    return {};
}

std::string Plug(Target target, WordList words) {
    words.End();
    if (target.device.IsPlugged()) throw Refusal("the board is plugged in already");
    target.driver.Plug(target.device);
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

struct ControlWord {
    const char* name;
    const char* arguments;
    const char* help;
    std::string (*perform)(Target, WordList);
};

// clang-format off
constexpr ControlWord kWords[] = {
    {"input",       "INPUT on|off ...",   "holds inputs 0 to 32 at a level", SetInputs},
    {"contact",     "INPUT on|off ...",   "moves contacts too shortly for the board's filter: "
                                          "only the raw image shows it", SetContacts},
    {"multiplexed", "SWITCH on|off ...",  "sets switches 0 to 95 of the multiplexed matrix", SetMultiplexed},
    {"identity",    "0..7",               "sets the identity switch, inputs 24 to 26", SetIdentity},
    {"switch",      "SWITCH open|closed ...", "opens or closes security switches 0 to 7", SetSwitches},
    {"battery",     "fail",               "the battery fails", FailBattery},
    {"rtc",         "fail",               "the clock fails and starts again at 0", FailClock},
    {"spi",         "reply HEX ...",      "the SPI device answers the next transfers with these bytes", ScriptSpi},
    {"spi",         "clear",              "it forgets the replies that are still to come", ScriptSpi},
    {"eeprom",      "read ADDRESS LENGTH", "prints what the EEPROM holds, in hex", ReadEeprom},
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

std::string List(DriverStandIn& driver) {
    const auto access = driver.Devices();
    std::string lines;
    for (const auto& [number, device] : access.devices)
        lines += SummaryLine(device);
    return lines;
}

std::string PerformOnBoard(WordList words, DriverStandIn& driver) {
    const int number = words.Number("the board", 0, kDeviceCount - 1);
    const std::string name = words.Word("the word after the board");
    const auto word = std::ranges::find(kWords, name, &ControlWord::name);
    if (word == std::end(kWords)) throw UsageError("there is no word '" + name + "'");

    const auto access = driver.Devices();
    const auto device = access.devices.find(number);
    if (device == access.devices.end()) {
        throw Refusal("there is no board " + std::to_string(number));
    }
    return word->perform({driver, device->second}, words);
}

std::string PerformLine(WordList words, DriverStandIn& driver) {
    if (!words.Take("list")) return PerformOnBoard(words, driver);
    words.End();
    return List(driver);
}

}  // namespace

ControlAnswer Perform(const std::vector<std::string>& words, DriverStandIn& driver) {
    try {
        return {kDone, PerformLine(WordList(words), driver)};
    } catch (const UsageError& error) {
        return {kWrongUsage, std::string(error.what()) + "\n"};
    } catch (const std::exception& error) {
        return {kRefused, std::string(error.what()) + "\n"};
    }
}

std::string HelpOnWords() {
    std::ostringstream help;
    const auto line = [&](const std::string& words, const char* text) {
        help << "  " << std::left << std::setw(36) << words << ' ' << text << '\n';
    };
    line("list", "prints the boards: number, model, speed, plugged or unplugged");
    for (const ControlWord& word : kWords) {
        line(std::string("BOARD ") + word.name + ' ' + word.arguments, word.help);
    }
    return help.str();
}

}  // namespace simulator
