// All commands that simulated boards know: which models have them, on which channel, and who
// answers.
#ifndef MARVANE_SIMULATOR_BOARD_COMMAND_TABLE_H
#define MARVANE_SIMULATOR_BOARD_COMMAND_TABLE_H

#include "terms/answer.h"

namespace simulator {

class Board;

/// Hands one command to the board's family for it, or refuses what the board's model does not know.
Answer Dispatch(Board& board, std::uint8_t command, std::uint32_t channel, ByteView payload);

}  // namespace simulator

#endif
