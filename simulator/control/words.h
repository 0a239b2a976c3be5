// The words by which the outside drives a simulation, each in one table with its help.
#ifndef MARVANE_SIMULATOR_CONTROL_WORDS_H
#define MARVANE_SIMULATOR_CONTROL_WORDS_H

#include <string>
#include <vector>

#include "driver/bus.h"

namespace simulator {

/// Exit codes of "marvane-sim ctl", an interface.
enum ControlResult { kDone = 0, kRefused = 1, kWrongUsage = 2 };

struct ControlAnswer {
    ControlResult result = kDone;
    std::string text;  // output, or the message that says what is wrong; ends with a line's end
};

/// Carries out one line of words.
ControlAnswer Perform(const std::vector<std::string>& words, Bus& bus);

/// What Perform understands, for people.
std::string HelpOnWords();

}  // namespace simulator

#endif
