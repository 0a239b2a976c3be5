// The inputs' commands, and the hands of the simulated cabinet on them.
#include "board/inputs.h"

#include <algorithm>

namespace simulator {
namespace {

bool Bit(std::span<const std::uint8_t> bytes, unsigned number) {
    return (bytes[number / 8] >> (number % 8) & 1) != 0;
}

void SetBit(std::span<std::uint8_t> bytes, unsigned number, bool value) {
    const auto mask = static_cast<std::uint8_t>(1u << (number % 8));
    std::uint8_t& byte = bytes[number / 8];
    byte = static_cast<std::uint8_t>(value ? byte | mask : byte & ~mask);
}

Answer ImageAnswer(const InputImage& image) {
    return {status::kAccepted, {image.begin(), image.end()}};
}

}  // namespace

Answer BoardInputs::ReadImage(ByteView) {
    return ImageAnswer(image);
}

Answer BoardInputs::ReadRawImage(ByteView) {
    return ImageAnswer(rawImage);
}

Answer BoardInputs::ReportChanges(ByteView) {
    Answer answer = ImageAnswer(changes);
    changes.fill(0);
    return answer;
}

Answer BoardInputs::SetMultiplexing(ByteView payload) {
    if (payload[0] > 1) return Refuse(status::kOutOfRange);
    multiplexing = payload[0] == 1;
    return {};
}

// A lead byte that says whether the matrix is being scanned, then 24 switches in each of the
// four groups, switch 0 in the lowest bit of the first byte.
Answer BoardInputs::ReadMultiplexed(ByteView) {
    Answer answer{status::kAccepted, std::vector<std::uint8_t>(1 + matrix.size(), 0)};
    if (!multiplexing) return answer;

    answer.reply[0] = 1;
    std::copy(matrix.begin(), matrix.end(), answer.reply.begin() + 1);
    return answer;
}

void BoardInputs::Set(unsigned input, bool level) {
    if (input >= kInputCount) return;
    SetBit(rawImage, input, level);
    if (Level(input) == level) return;
    SetBit(image, input, level);
    SetBit(changes, input, true);
}

void BoardInputs::SetContact(unsigned input, bool level) {
    if (input < kInputCount) SetBit(rawImage, input, level);
}

void BoardInputs::SetIdentity(unsigned identity) {
    if (identity >= kIdentityCount) return;
    for (unsigned bit = 0; bit < 3; ++bit) {
        Set(kFirstIdentityInput + bit, (identity >> bit & 1) != 0);
    }
}

void BoardInputs::SetMultiplexed(unsigned input, bool level) {
    if (input < kMultiplexedInputCount) SetBit(matrix, input, level);
}

bool BoardInputs::Level(unsigned input) const {
    return input < kInputCount && Bit(image, input);
}

bool BoardInputs::MultiplexedLevel(unsigned input) const {
    return input < kMultiplexedInputCount && Bit(matrix, input);
}

// The first report after power-up is about changes since then.
void BoardInputs::PowerUp() {
    changes.fill(0);
    multiplexing = false;
}

}  // namespace simulator
