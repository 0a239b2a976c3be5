// How a SAS host's polls look on a serial line.
#ifndef MARVANE_SIMULATOR_LINE_SAS_POLL_H
#define MARVANE_SIMULATOR_LINE_SAS_POLL_H

#include <chrono>

#include "line/serial_line.h"

namespace simulator {

constexpr SerialWord kSasPollMark = 0x100;    // of the word that begins a poll
constexpr SerialWord kSasGeneralPoll = 0x80;  // in that word, beside the address
constexpr unsigned kHighestSasAddress = 127;
constexpr std::chrono::milliseconds kSasSilence{5};  // ends a message

}  // namespace simulator

#endif
