// Numbers that travel with their lowest or their highest byte first.
#ifndef MARVANE_SIMULATOR_TERMS_BYTE_ORDER_H
#define MARVANE_SIMULATOR_TERMS_BYTE_ORDER_H

#include "terms/answer.h"

namespace simulator {

/// Of at most four bytes.
constexpr std::uint32_t LowFirst(ByteView bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        value |= std::uint32_t{bytes[i]} << (8 * i);
    return value;
}

/// Of at most four bytes.
constexpr std::uint32_t HighFirst(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

template <class Number>
void AppendLowFirst(std::vector<std::uint8_t>& bytes, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

}  // namespace simulator

#endif
