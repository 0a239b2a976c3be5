// The boards that the command line asks for.
#ifndef MARVANE_SIMULATOR_PROGRAM_BOARD_ARGUMENT_H
#define MARVANE_SIMULATOR_PROGRAM_BOARD_ARGUMENT_H

#include <map>
#include <string>
#include <vector>

#include "board/board.h"

namespace simulator {

// The functions that parse throw std::invalid_argument with a message for the user.

/// Boards by device number, from texts of the form
/// [NUMBER=]MODEL[@SPEED][:SETTING ...], each setting id=IDENTITY, eeprom=PART[:blank],
/// serial0=WHAT or serial1=WHAT. Boards without a number get the
/// lowest ones that no other board asks for. What a text leaves open is as in the common options;
/// serial numbers follow from the device numbers.
std::map<int, BoardOptions> ParseBoards(const std::vector<std::string>& texts,
                                        const BoardOptions& common);

/// PART[:blank]
void ParseEeprom(const std::string& text, BoardOptions& board);

/// PORT=WHAT
void ParseSerialLine(const std::string& text, BoardOptions& board);

}  // namespace simulator

#endif
