// Sorts the polls on the line.
#include "port/sas.h"

#include <utility>

#include "terms/time.h"

namespace simulator {
namespace {

constexpr std::uint8_t kHighestMode = 2;

constexpr std::uint8_t kPollAnswered = 1;
constexpr std::uint8_t kPollPassed = 2;
constexpr std::uint8_t kPollForOthers = 4;

}  // namespace

Answer BoardSas::SetAddress(ByteView payload) {
    if (payload[0] > kHighestSasAddress) return Refuse(status::kOutOfRange);
    address = payload[0];
    return {};
}

Answer BoardSas::SetAutoReply(ByteView payload) {
    if (payload[0] > kHighestMode) return Refuse(status::kOutOfRange);
    mode = payload[0];
    value = payload[1];
    return {};
}

Answer BoardSas::ReportStatus(ByteView) {
    return {status::kAccepted, {std::exchange(status, std::uint8_t{0})}};
}

BoardSas::Heard BoardSas::Hear(SerialWord word) {
    if (!address) return {false, {}};
    silence = {};
    if ((word & kSasPollMark) == 0) {
        return {poll == Poll::kAnswered || poll == Poll::kDropped, {}};
    }

    const bool isOurs = (word & kHighestSasAddress) == *address;
    poll = Poll::kNone;
    if (!isOurs) status |= kPollForOthers;
    return (word & kSasGeneralPoll) != 0 ? HearGeneralPoll(isOurs) : HearLongPoll(isOurs);
}

BoardSas::Heard BoardSas::HearGeneralPoll(bool isOurs) {
    if (!isOurs) return {true, {}};
    if (mode == 0) {
        status |= kPollPassed;
        return {false, {}};
    }
    status |= kPollAnswered;
    return {true, {value}};
}

// The answer waits for the end of the poll.
BoardSas::Heard BoardSas::HearLongPoll(bool isOurs) {
    if (!isOurs) {
        poll = Poll::kDropped;
        return {true, {}};
    }
    if (mode < 2) {
        status |= kPollPassed;
        poll = Poll::kPassed;
        return {false, {}};
    }
    poll = Poll::kAnswered;
    return {true, {}};
}

SerialWords BoardSas::Tick() {
    if (poll == Poll::kNone) return {};
    silence += kTick;
    if (silence < kSasSilence) return {};

    if (std::exchange(poll, Poll::kNone) != Poll::kAnswered) return {};
    status |= kPollAnswered;
    return {*address, value};
}

}  // namespace simulator
