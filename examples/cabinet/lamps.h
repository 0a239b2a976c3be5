/**
 * @file lamps.h
 * @brief The machine's lamps: off, on or blinking, and always known.
 */
#ifndef LAMPS_H
#define LAMPS_H

#include <array>
#include <string>

#include "wiring.h"

enum class LampState { kOff, kOn, kBlinking };

class Lamps {
public:
    explicit Lamps(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Whatever an earlier program left on goes off. */
    void AllOff();
    void Set(Lamp lamp, LampState state);

    /** What each lamp was told last, for people; after a failure, too. */
    std::string Describe() const;

private:
    MarvaneUSB& board;
    std::array<LampState, kLampCount> states{};
};

#endif  // LAMPS_H
