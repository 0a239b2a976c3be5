// What every family of the board model shares: payloads, answers and status values.
#ifndef MARVANE_SIMULATOR_TERMS_ANSWER_H
#define MARVANE_SIMULATOR_TERMS_ANSWER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "terms/model.h"

namespace simulator {

using Payload = std::span<const std::uint8_t>;

/// How a simulated board refuses. The values are the simulator's own choice: real boards have
/// theirs. They fit a signed byte and are none of the library's error codes, so that a test that
/// reads one knows where it came from.
namespace status {
constexpr std::int32_t kAccepted = 0;
constexpr std::int32_t kUnknownCommand = 100;    // no such command on this model
constexpr std::int32_t kWrongChannel = 101;      // the model has it on another channel
constexpr std::int32_t kMalformedPayload = 102;  // a length or a fixed byte is not what it must be
constexpr std::int32_t kOutOfRange = 103;        // a number in the payload is beyond the board's
constexpr std::int32_t kTooLong = 104;           // does not fit one transfer at the bus speed
constexpr std::int32_t kNoDownload = 105;        // download ended that was never begun
constexpr std::int32_t kNotConfigured = 106;     // what it takes for this was not set yet
constexpr std::int32_t kNoAcknowledge = 107;     // the EEPROM part does not answer its address
constexpr std::int32_t kSwitchedOff = 108;       // random numbers or SPI, not enabled
constexpr std::int32_t kBusy = 109;              // a release under way has this input or output
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
