// One word of "marvane-sim ctl", and the families in which the words are written.
#ifndef MARVANE_SIMULATOR_CONTROL_WORD_H
#define MARVANE_SIMULATOR_CONTROL_WORD_H

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "control/word_list.h"
#include "driver/bus.h"

namespace simulator {

/// What a word works on.
struct Target {
    Bus& bus;
    Device& device;
};

struct ControlWord {
    const char* name;
    const char* arguments;
    const char* help;
    /// Result: what to print. Changes nothing if it throws.
    std::string (*perform)(Target, WordList);
};

std::span<const ControlWord> InputWords();       // switches, buttons and coins
std::span<const ControlWord> MachineWords();     // hoppers and reels
std::span<const ControlWord> BoardWords();       // clock, battery, security switches, SPI, EEPROM
std::span<const ControlWord> SerialLineWords();  // the serial lines
std::span<const ControlWord> DeviceWords();      // plug, failures, log and state

/// Two words for the two levels of something.
struct Levels {
    const char* high;
    const char* low;
};
inline constexpr Levels kOnOff = {"on", "off"};

/// Takes pairs of a number and a level, all of them before the first is put into effect.
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

}  // namespace simulator

#endif
