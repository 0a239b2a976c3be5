// Bytes as text: two hexadecimal digits each.
#ifndef MARVANE_SIMULATOR_TERMS_HEX_H
#define MARVANE_SIMULATOR_TERMS_HEX_H

#include <optional>
#include <string>
#include <string_view>

#include "terms/answer.h"

namespace simulator {

std::string Hex(ByteView bytes);

/// Nothing unless the text is pairs of digits, small or capital.
std::optional<std::vector<std::uint8_t>> FromHex(std::string_view text);

}  // namespace simulator

#endif
