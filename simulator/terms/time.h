// The time as a board is told it: the model has none of its own.
#ifndef MARVANE_SIMULATOR_TERMS_TIME_H
#define MARVANE_SIMULATOR_TERMS_TIME_H

#include <chrono>
#include <functional>

namespace simulator {

using Moment = std::chrono::sys_time<std::chrono::milliseconds>;

/// The step in which a board lives: what happens by itself happens on whole milliseconds.
constexpr std::chrono::milliseconds kTick{1};

/// Never goes back: a front end takes the time of day once and then adds what a steady clock says.
using TimeSource = std::function<Moment()>;

/// Where no time is given, it stands still at the beginning of 1970.
inline Moment NoTime() {
    return {};
}

}  // namespace simulator

#endif
