/**
 * @file start_button.h
 * @brief Presses of the start button, also those that are shorter than a pass of the machine.
 *
 * The board remembers changes until they are asked for. Asking in the machine's own loop shows a
 * board that fails; a callback's thread would end there, and leave the button dead.
 */
#ifndef START_BUTTON_H
#define START_BUTTON_H

#include <utility>

#include "board_error.h"
#include "wiring.h"

class StartButton {
public:
    explicit StartButton(MarvaneUSB& usedBoard) : board(usedBoard) {}

    /** Since it was asked last; the first time only finds out how the button stands. */
    bool WasPressed() {
        usbInput changes = {};
        Require(board.GetChangedInputs(&changes), "asking for changed inputs");
        const bool changed = (changes.bytes[kStartButton / 8] >> kStartButton % 8 & 1) != 0;
        if (!changed && isKnown) return false;

        unsigned level = 0;
        Require(board.GetInputBit(kStartButton, &level), "looking at the start button");
        const bool wasDown = std::exchange(isDown, level != 0);
        return std::exchange(isKnown, true) && (isDown || !wasDown);
    }

private:
    MarvaneUSB& board;
    bool isKnown = false;
    bool isDown = false;
};

#endif  // START_BUTTON_H
