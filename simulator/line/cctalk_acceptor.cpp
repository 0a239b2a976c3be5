// The acceptor's requests, and the coins that it takes.
#include "line/cctalk_acceptor.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "terms/answer.h"

namespace simulator {
namespace {

constexpr std::uint8_t kAddress = 2;
constexpr std::uint8_t kEverybody = 0;
constexpr std::size_t kDataOffset = 4;  // behind destination, number, source and header
constexpr std::uint8_t kSorterPath = 1;
constexpr std::uint8_t kLastEventCount = 255;

using Data = std::vector<std::uint8_t>;
using State = CctalkAcceptor::State;

Data Text(std::string_view text) {
    return {text.begin(), text.end()};
}

Data Acknowledge(State&, ByteView) {
    return {};
}

Data Reset(State& state, ByteView) {
    state = {};
    return {};
}

Data SetMask(State& state, ByteView data) {
    state.mask = static_cast<std::uint16_t>(data[0] | data[1] << 8);
    return {};
}

Data TellMask(State& state, ByteView) {
    return {static_cast<std::uint8_t>(state.mask), static_cast<std::uint8_t>(state.mask >> 8)};
}

Data SetMaster(State& state, ByteView data) {
    state.master = data[0];
    return {};
}

Data TellMaster(State& state, ByteView) {
    return {state.master};
}

Data TellEvents(State& state, ByteView) {
    Data answer{state.eventCounter};
    for (const std::uint8_t coin : state.lastCoins) {
        answer.push_back(coin);
        answer.push_back(coin == 0 ? std::uint8_t{0} : kSorterPath);
    }
    return answer;
}

struct Request {
    std::uint8_t header;
    std::size_t dataCount;  // functions may rely on it
    Data (*answer)(State&, ByteView);
};

// clang-format off
constexpr Request kRequests[] = {
    {254, 0, Acknowledge},
    {246, 0, [](State&, ByteView) { return Text("SIM"); }},
    {245, 0, [](State&, ByteView) { return Text("Coin Acceptor"); }},
    {244, 0, [](State&, ByteView) { return Text("MARVANE-SIM"); }},
    {242, 0, [](State&, ByteView) { return Data{0x40, 0xE2, 0x01}; }},  // 123456
    {231, 2, SetMask},
    {230, 0, TellMask},
    {229, 0, TellEvents},
    {228, 1, SetMaster},
    {227, 0, TellMaster},
    {1,   0, Reset},
};
// clang-format on

std::uint8_t SumOf(ByteView bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

SerialWords FrameFor(std::uint8_t destination, const Data& data) {
    Data frame{destination, static_cast<std::uint8_t>(data.size()), kAddress, 0};
    frame.insert(frame.end(), data.begin(), data.end());
    frame.push_back(static_cast<std::uint8_t>(-SumOf(frame)));
    return {frame.begin(), frame.end()};
}

}  // namespace

SerialWords CctalkAcceptor::Hear(std::span<const SerialWord> words) {
    if (muted) return {};
    SerialWords answers;
    for (const SerialWord word : words) {
        const auto frame = collector.Take(word);
        if (!frame) continue;
        const SerialWords answer = AnswerTo(*frame);
        answers.insert(answers.end(), answer.begin(), answer.end());
    }
    return answers;
}

SerialWords CctalkAcceptor::AnswerTo(const SerialFrame& frame) {
    if (SumOf(frame) != 0) {
        ++wrongFrames;
        return {};
    }
    const std::uint8_t destination = frame[0], source = frame[2], header = frame[3];
    const ByteView data = ByteView(frame).subspan(kDataOffset, frame[1]);
    if (destination != kAddress && destination != kEverybody) return {};
    const auto request = std::ranges::find(kRequests, header, &Request::header);
    if (request == std::end(kRequests) || data.size() != request->dataCount) return {};
    return FrameFor(source, request->answer(state, data));
}

SerialWords CctalkAcceptor::Tick() {
    collector.Tick();
    return {};
}

bool CctalkAcceptor::Insert(unsigned coin) {
    const bool isKnown = coin >= 1 && coin <= kAcceptorCoinCount;
    if (!isKnown || (state.master & 1) == 0 || (state.mask >> (coin - 1) & 1) == 0) {
        ++returned;
        return false;
    }
    ++accepted;
    state.eventCounter = state.eventCounter == kLastEventCount
                             ? std::uint8_t{1}
                             : static_cast<std::uint8_t>(state.eventCounter + 1);
    std::shift_right(state.lastCoins.begin(), state.lastCoins.end(), 1);
    state.lastCoins[0] = static_cast<std::uint8_t>(coin);
    return true;
}

void CctalkAcceptor::Mute(bool on) {
    muted = on;
    collector.Clear();
}

}  // namespace simulator
