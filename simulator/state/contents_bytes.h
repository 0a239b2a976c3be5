// A board's contents as bytes: the form in which a file keeps them between two runs.
//
// "MARVSIM", the version of the form, model, EEPROM part, memory, EEPROM setting, EEPROM, clock,
// security log, the PIC's serial number, and the CRC-32 of all that. Numbers have their low byte
// first; what varies in length starts with its length in four bytes.
#ifndef MARVANE_SIMULATOR_STATE_CONTENTS_BYTES_H
#define MARVANE_SIMULATOR_STATE_CONTENTS_BYTES_H

#include <optional>
#include <vector>

#include "board/contents.h"

namespace simulator {

std::vector<std::uint8_t> AsBytes(const BoardContents& contents);

/// Nothing unless bytes are, from the first to the last, what AsBytes of this version wrote.
std::optional<BoardContents> ContentsIn(ByteView bytes);

}  // namespace simulator

#endif
