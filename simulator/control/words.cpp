// Finds control words and performs them. A word that a family of the board model brings along is
// one line and one function in the family's own unit.
#include "control/words.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "control/word.h"
#include "report/device.h"

namespace simulator {
namespace {

// In the order in which the help lists them.
constexpr std::span<const ControlWord> (*kFamilies[])() = {InputWords, MachineWords, BoardWords,
                                                           SerialLineWords, DeviceWords};

const ControlWord& WordNamed(const std::string& name) {
    for (const auto family : kFamilies) {
        const auto words = family();
        const auto word = std::ranges::find(words, name, &ControlWord::name);
        if (word != words.end()) return *word;
    }
    throw UsageError("there is no word '" + name + "'");
}

std::string List(Bus& bus) {
    const auto access = bus.Devices();
    std::string lines;
    for (const auto& [number, device] : access.devices)
        lines += SummaryLine(device);
    return lines;
}

std::string PerformOnBoard(WordList words, Bus& bus) {
    const int number = words.Number("the board", 0, kDeviceCount - 1);
    const std::string name = words.Word("the word after the board");
    const ControlWord& word = WordNamed(name);

    const auto access = bus.Devices();
    const auto device = access.devices.find(number);
    if (device == access.devices.end()) {
        throw Refusal("there is no board " + std::to_string(number));
    }
    device->second.board.Advance();
    return word.perform({bus, device->second}, words);
}

std::string PerformLine(WordList words, Bus& bus) {
    if (!words.Take("list")) return PerformOnBoard(words, bus);
    words.End();
    return List(bus);
}

}  // namespace

ControlAnswer Perform(const std::vector<std::string>& words, Bus& bus) {
    try {
        return {kDone, PerformLine(WordList(words), bus)};
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
    for (const auto family : kFamilies) {
        for (const ControlWord& word : family())
            line(std::string("BOARD ") + word.name + ' ' + word.arguments, word.help);
    }
    return help.str();
}

}  // namespace simulator
