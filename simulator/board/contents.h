// What outlasts a simulated board's time without power.
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

}  // namespace simulator

#endif
