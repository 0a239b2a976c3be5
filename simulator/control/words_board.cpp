// Words for what else is on the board: clock, battery, security switches, SPI and EEPROM.
#include "control/word.h"
#include "terms/hex.h"

namespace simulator {
namespace {

constexpr Levels kOpenClosed = {"open", "closed"};
constexpr std::size_t kMostSpiReplies = 1000;

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

// clang-format off
constexpr ControlWord kWords[] = {
    {"switch",      "SWITCH open|closed ...", "opens or closes security switches 0 to 7", SetSwitches},
    {"battery",     "fail",               "the battery fails", FailBattery},
    {"rtc",         "fail",               "the clock fails and starts again at 0", FailClock},
    {"spi",         "reply HEX ...",      "the SPI device answers the next transfers with these bytes", ScriptSpi},
    {"spi",         "clear",              "it forgets the replies that are still to come", ScriptSpi},
    {"eeprom",      "read ADDRESS LENGTH", "prints what the EEPROM holds, in hex", ReadEeprom},
};
// clang-format on

}  // namespace

std::span<const ControlWord> BoardWords() {
    return kWords;
}

}  // namespace simulator
