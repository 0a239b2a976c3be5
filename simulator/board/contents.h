// What outlasts a simulated board's time without power, and its form as bytes, for a front end that
// keeps it between two runs.
//
// The bytes: "MARVSIM", the version of the form, model, EEPROM part, memory, EEPROM setting,
// EEPROM, clock, security log, the PIC's serial number, and the CRC-32 of all that. Numbers have
// their low byte first; what varies in length starts with its length in four bytes.
#ifndef MARVANE_SIMULATOR_BOARD_CONTENTS_H
#define MARVANE_SIMULATOR_BOARD_CONTENTS_H

#include <optional>

#include "board/clock.h"
#include "board/eeprom.h"
#include "board/identity.h"
#include "terms/answer.h"

namespace simulator {

struct BoardContents {
    Model model = Model::kK44;
    EepromPart eepromPart = EepromPart::k24LC256;
    std::vector<std::uint8_t> memory;
    std::optional<EepromSetting> eepromSetting;
    std::vector<std::uint8_t> eeprom;
    ClockContents clock;
    SerialNumber picSerial{};

    bool operator==(const BoardContents&) const = default;
};

std::vector<std::uint8_t> AsBytes(const BoardContents& contents);

/// Nothing unless bytes are, from the first to the last, what AsBytes of this version wrote.
std::optional<BoardContents> ContentsIn(Payload bytes);

}  // namespace simulator

#endif
