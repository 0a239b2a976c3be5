// What every family of the board model shares: views of bytes, answers and status values.
#ifndef MARVANE_SIMULATOR_TERMS_ANSWER_H
#define MARVANE_SIMULATOR_TERMS_ANSWER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "terms/model.h"

namespace simulator {

/// Bytes that somebody else owns.
using ByteView = std::span<const std::uint8_t>;

/// How a simulated board refuses, and why: docs/simulator.md, "Refusals". The values fit a signed
/// byte and are none of the library's error codes, so that a test that reads one knows where it
/// came from.
namespace status {
constexpr std::int32_t kAccepted = 0;
constexpr std::int32_t kUnknownCommand = 100;
constexpr std::int32_t kWrongChannel = 101;
constexpr std::int32_t kMalformedPayload = 102;
constexpr std::int32_t kOutOfRange = 103;
constexpr std::int32_t kTooLong = 104;
constexpr std::int32_t kNoDownload = 105;
constexpr std::int32_t kNotConfigured = 106;
constexpr std::int32_t kNoAcknowledge = 107;
constexpr std::int32_t kSwitchedOff = 108;
constexpr std::int32_t kBusy = 109;
}  // namespace status

struct Answer {
    std::int32_t status = status::kAccepted;
    std::vector<std::uint8_t> reply = {};  // empty unless accepted

    bool operator==(const Answer&) const = default;
};

inline Answer Refuse(std::int32_t status) {
    return {status};
}

/// The most data bytes that one reply of the model holds.
constexpr std::size_t ReplyLimit(Model model) {
    return model == Model::kK40 ? 62 : 256;
}

/// The longest payload in which a command carries data, on all models.
constexpr std::size_t ChunkLimit(int speedMbit) {
    return speedMbit == 12 ? 60 : 252;
}

/// The most data bytes that one transfer carries in a reply.
constexpr std::size_t TransferLimit(Model model, int speedMbit) {
    return model == Model::kK40 ? ReplyLimit(model) : ChunkLimit(speedMbit);
}

}  // namespace simulator

#endif
