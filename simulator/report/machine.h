// The parts of a device's state that are about what moves: coins, hoppers, reels and recordings.
#ifndef MARVANE_SIMULATOR_REPORT_MACHINE_H
#define MARVANE_SIMULATOR_REPORT_MACHINE_H

#include <nlohmann/json.hpp>

#include "board/board.h"

namespace simulator {

nlohmann::ordered_json PulsedInputsOf(const BoardPulsedInputs& pulsedInputs);
nlohmann::ordered_json HoppersOf(const BoardHoppers& hoppers, const BoardReleases& releases);
nlohmann::ordered_json ReelsOf(const BoardReels& reels);
nlohmann::ordered_json RecordingOf(const BoardRecording& recording);

}  // namespace simulator

#endif
