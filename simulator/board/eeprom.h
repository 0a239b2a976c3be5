// The board's EEPROM: which part the 8051 was told it is, and which part it really is.
// What it does where boards may differ: docs/simulator.md, "EEPROM".
#ifndef MARVANE_SIMULATOR_BOARD_EEPROM_H
#define MARVANE_SIMULATOR_BOARD_EEPROM_H

#include <optional>

#include "board/eeprom_chip.h"
#include "terms/answer.h"

namespace simulator {

/// What command 3 tells the 8051 about its part.
struct EepromSetting {
    std::uint8_t pageSize = 0;
    std::uint8_t addressBytes = 0;
    std::uint16_t highestAddress = 0;
    std::uint8_t busAddress = 0;

    bool operator==(const EepromSetting&) const = default;
};

class BoardEeprom {
public:
    BoardEeprom(EepromPart part, bool blank) : chip(part, blank) {}

    Answer Configure(ByteView payload);
    Answer Write(ByteView payload);
    Answer Read(ByteView payload);

    const EepromChip& Chip() const { return chip; }
    const std::optional<EepromSetting>& Setting() const { return setting; }

    /// False, and nothing changed, unless contents are as long as the part and the setting is one
    /// that command 3 could have made.
    bool Restore(const std::optional<EepromSetting>& newSetting, ByteView contents);

private:
    std::int32_t StatusOfAccess() const;

    EepromChip chip;
    std::optional<EepromSetting> setting;  // empty until the 8051 is told
};

}  // namespace simulator

#endif
