// The SPI commands and the device's answers.
#include "board/spi.h"

#include <algorithm>
#include <numeric>

namespace simulator {
namespace {

constexpr std::size_t kSpiHeader = 3;  // bits out, bits back, control

constexpr std::size_t kFrameHeader = 3;  // two header bytes and the number of data bytes
constexpr std::size_t kFrameOverhead = kFrameHeader + 1;

std::size_t BytesFor(unsigned bits) {
    return (bits + 7) / 8;
}

std::uint8_t SumOf(ByteView bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

bool IsShapedAsFrame(ByteView bytes) {
    return bytes.size() >= kFrameOverhead && bytes[2] == bytes.size() - kFrameOverhead;
}

bool HasRightChecksum(ByteView frame) {
    return frame.back() == SumOf(frame.first(frame.size() - 1));
}

std::vector<std::uint8_t> AnswerFrame(ByteView frame, std::size_t replySize) {
    const std::size_t count = std::max(replySize, kFrameOverhead) - kFrameOverhead;
    const ByteView data = frame.subspan(kFrameHeader, frame.size() - kFrameOverhead);

    std::vector<std::uint8_t> answer(kFrameHeader + count);
    answer[0] = frame[1];
    answer[1] = frame[0];
    answer[2] = static_cast<std::uint8_t>(count);
    std::copy_n(data.begin(), std::min(data.size(), count), answer.begin() + kFrameHeader);
    answer.push_back(SumOf(answer));
    return answer;
}

}  // namespace

Answer BoardSpi::Enable(ByteView) {
    enabled = true;
    return {};
}

Answer BoardSpi::Disable(ByteView) {
    enabled = false;
    return {};
}

Answer BoardSpi::Send(ByteView payload) {
    const unsigned sendBits = payload[0];
    const unsigned receiveBits = payload[1];
    const ByteView sent = payload.subspan(kSpiHeader);
    if (sendBits == 0 || sendBits > kSpiBitLimit || receiveBits > kSpiBitLimit) {
        return Refuse(status::kOutOfRange);
    }
    if (sent.size() != BytesFor(sendBits)) return Refuse(status::kMalformedPayload);
    if (!enabled) return Refuse(status::kSwitchedOff);

    control = payload[2];
    const std::size_t replySize = BytesFor(receiveBits);
    Answer answer{status::kAccepted, ReplyOfDevice(sent, replySize)};
    answer.reply.resize(replySize);
    return answer;
}

std::vector<std::uint8_t> BoardSpi::ReplyOfDevice(ByteView sent, std::size_t replySize) {
    const bool isFrame = IsShapedAsFrame(sent);
    const bool isRight = isFrame && HasRightChecksum(sent);
    if (isFrame) ++(isRight ? rightFrames : wrongFrames);

    if (!queued.empty()) {
        std::vector<std::uint8_t> reply = std::move(queued.front());
        queued.pop_front();
        return reply;
    }
    if (isRight) return AnswerFrame(sent, replySize);
    return {sent.begin(), sent.end()};
}

void BoardSpi::PowerUp() {
    enabled = false;
    control = 0;
    rightFrames = wrongFrames = 0;
}

}  // namespace simulator
