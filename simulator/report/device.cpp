// Writes a device's state and log; docs/simulator.md tells users what every field means.
#include "report/device.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "report/json_text.h"
#include "report/machine.h"
#include "report/serial.h"
#include "terms/hex.h"

namespace simulator {
namespace {

using Json = nlohmann::ordered_json;

// A column is never empty, so that lines split at blanks.
std::string HexColumn(ByteView bytes) {
    return bytes.empty() ? "-" : Hex(bytes);
}

std::string ResultColumn(const LogEntry& entry) {
    if (entry.error == 0) return std::to_string(entry.answer.status);
    const char* name = strerrorname_np(entry.error);
    return name == nullptr ? "errno-" + std::to_string(entry.error) : name;
}

template <class IsOn>
Json NumbersWhere(unsigned count, IsOn isOn) {
    Json numbers = Json::array();
    for (unsigned number = 0; number < count; ++number) {
        if (isOn(number)) numbers.push_back(number);
    }
    return numbers;
}

// By number, only those that have any.
template <class CountOf>
Json CountsBy(unsigned numbers, CountOf countOf) {
    Json counts = Json::object();
    for (unsigned number = 0; number < numbers; ++number) {
        if (const unsigned count = countOf(number); count > 0) {
            counts[std::to_string(number)] = count;
        }
    }
    return counts;
}

Json InputsOf(const BoardInputs& inputs, const CoinPulses& pulses) {
    return {
        {"on", NumbersWhere(kInputCount, [&](unsigned n) { return inputs.Level(n); })},
        {"image", Hex(inputs.Image())},
        {"rawImage", Hex(inputs.RawImage())},
        {"unreportedChanges", Hex(inputs.UnreportedChanges())},
        {"multiplexing", inputs.IsMultiplexing()},
        {"multiplexedOn", NumbersWhere(kMultiplexedInputCount,
                                       [&](unsigned n) { return inputs.MultiplexedLevel(n); })},
        {"pulsesToCome", CountsBy(kInputCount, [&](unsigned n) { return pulses.Pending(n); })},
    };
}

// As the board gets it: output n is bit n % 8 of byte n / 8.
std::string PatternHex(const OutputPattern& pattern) {
    std::array<std::uint8_t, (kOutputCount + 7) / 8> bytes{};
    for (unsigned n = 0; n < kOutputCount; ++n) {
        if (pattern[n]) bytes[n / 8] |= static_cast<std::uint8_t>(1u << n % 8);
    }
    return Hex(bytes);
}

Json OutputsOf(const BoardOutputs& outputs) {
    const auto lampsThatAre = [&](Lamp state) {
        return NumbersWhere(kOutputCount, [&](unsigned n) { return outputs.LampOf(n) == state; });
    };
    return {
        {"on", lampsThatAre(Lamp::kOn)},
        {"onPeriod", lampsThatAre(Lamp::kOnPeriod)},
        {"offPeriod", lampsThatAre(Lamp::kOffPeriod)},
        {"pulsing", NumbersWhere(kOutputCount, [&](unsigned n) { return outputs.IsPulsing(n); })},
        {"driven", NumbersWhere(kOutputCount, [&](unsigned n) { return outputs.IsDriven(n); })},
        {"brightness", outputs.Brightness()},
        {"onPeriodPattern", PatternHex(outputs.OnPeriod())},
        {"offPeriodPattern", PatternHex(outputs.OffPeriod())},
        {"onPulses", CountsBy(kPulsedOutputCount, [&](unsigned n) { return outputs.OnPulses(n); })},
        {"offPulses",
         CountsBy(kPulsedOutputCount, [&](unsigned n) { return outputs.OffPulses(n); })},
    };
}

Json EepromOf(const BoardEeprom& eeprom) {
    Json told = nullptr;
    if (const auto& setting = eeprom.Setting()) {
        told = {
            {"pageSize", setting->pageSize},
            {"addressBytes", setting->addressBytes},
            {"highestAddress", setting->highestAddress},
            {"busAddress", setting->busAddress},
        };
    }
    return {{"part", FactsOf(eeprom.Chip().Part()).name}, {"told", told}};
}

Json SwitchesIn(std::uint8_t mask) {
    return NumbersWhere(kSecuritySwitchCount, [&](unsigned n) { return (mask >> n & 1) != 0; });
}

Json SecurityLogOf(const ClockContents& contents) {
    Json log = Json::array();
    for (const SecurityEvent& event : contents.log)
        log.push_back({{"clock", event.clock}, {"switchByte", event.switchByte}});
    return log;
}

Json ClockOf(const BoardClock& clock) {
    const ClockContents& contents = clock.Contents();
    return {
        {"value", clock.Value()},
        {"clockFailed", contents.clockFailed},
        {"batteryFailed", contents.batteryFailed},
        {"clockAtBatteryFailure", contents.clockAtBatteryFailure},
        {"openSwitches", SwitchesIn(contents.openSwitches)},
        {"opened", SwitchesIn(contents.flags.opened)},
        {"closed", SwitchesIn(contents.flags.closed)},
        {"cachedOpened", SwitchesIn(contents.cachedFlags.opened)},
        {"cachedClosed", SwitchesIn(contents.cachedFlags.closed)},
        {"log", SecurityLogOf(contents)},
    };
}

Json IdentityOf(const BoardIdentity& identity) {
    return {
        {"dallasNumber", Hex(identity.DallasNumber())},
        {"picSerial", Hex(identity.PicSerial())},
    };
}

Json RandomOf(const BoardRandom& random) {
    return {{"enabled", random.IsEnabled()}, {"argument", random.Argument()}};
}

Json SpiOf(const BoardSpi& spi) {
    return {
        {"enabled", spi.IsEnabled()},           {"control", spi.Control()},
        {"queuedReplies", spi.QueuedReplies()}, {"rightFrames", spi.RightFrames()},
        {"wrongFrames", spi.WrongFrames()},
    };
}

}  // namespace

std::string StateAsJson(const Device& device) {
    const Board& board = device.board;
    const Json state = {
        {"number", device.Number()},
        {"model", ModelWord(board.Options().model)},
        {"speedMbit", board.Options().speedMbit},
        {"plugged", device.IsPlugged()},
        {"firmwareRunning", board.memory.IsProgramRunning()},
        {"exchangesToSpoil", device.ExchangesToSpoil()},
        {"inputs", InputsOf(board.inputs, board.pulses)},
        {"outputs", OutputsOf(board.outputs)},
        {"pulsedInputs", PulsedInputsOf(board.pulsedInputs)},
        {"hoppers", HoppersOf(board.hoppers, board.releases)},
        {"reels", ReelsOf(board.reels)},
        {"recording", RecordingOf(board.recording)},
        {"eeprom", EepromOf(board.eeprom)},
        {"clock", ClockOf(board.clock)},
        {"identity", IdentityOf(board.identity)},
        {"random", RandomOf(board.random)},
        {"spi", SpiOf(board.spi)},
        {"serial", SerialPortsOf(board)},
    };
    return TextOf(state) + "\n";
}

std::string LogAsLines(const Device& device) {
    std::ostringstream lines;
    if (device.ForgottenExchanges() > 0) {
        lines << "# " << device.ForgottenExchanges() << " earlier exchanges are forgotten\n";
    }
    for (const LogEntry& entry : device.Log()) {
        lines << entry.channel << ' ' << unsigned{entry.command} << ' ' << HexColumn(entry.payload)
              << ' ' << ResultColumn(entry) << ' ' << HexColumn(entry.answer.reply) << '\n';
    }
    return lines.str();
}

std::string SummaryLine(const Device& device) {
    const BoardOptions& board = device.board.Options();
    return std::to_string(device.Number()) + " " + ModelWord(board.model) + " " +
           std::to_string(board.speedMbit) + (device.IsPlugged() ? " plugged\n" : " unplugged\n");
}

}  // namespace simulator
