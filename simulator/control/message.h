// What travels on the control channel: one line of JSON there, one back.
#ifndef MARVANE_SIMULATOR_CONTROL_MESSAGE_H
#define MARVANE_SIMULATOR_CONTROL_MESSAGE_H

#include <optional>
#include <string>
#include <vector>

#include "control/words.h"

namespace simulator {

constexpr std::size_t kRequestLimit = 65536;  // bytes of a request, its line's end included

std::string EncodeRequest(const std::vector<std::string>& words);
std::string EncodeAnswer(const ControlAnswer& answer);

/// Empty when the line is none of ours.
std::optional<std::vector<std::string>> DecodeRequest(const std::string& line);
std::optional<ControlAnswer> DecodeAnswer(const std::string& line);

}  // namespace simulator

#endif
