// The poll commands, and how the slots share the line.
#include "port/polls.h"

#include <algorithm>
#include <utility>

#include "terms/time.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPollUnit{10};
constexpr milliseconds kHostTimeoutUnit{100};
constexpr milliseconds kTimeoutMessageUnit{30};

constexpr std::uint8_t kModeLimit = 3;
constexpr std::uint8_t kOptionLimit = 4;

constexpr std::size_t kPollHeader = 13;
constexpr std::size_t kTimeoutHeader = 2;

// The byte at the offset counts those beside the extra ones; of a message that ends before it, the
// record does not hold that byte.
bool TellsItsLength(ByteView message, std::size_t lengthOffset, std::size_t lengthExtra) {
    if (message.size() < lengthExtra) return false;
    return message.size() <= lengthOffset || message[lengthOffset] + lengthExtra == message.size();
}

SerialWords WordsOf(ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

PollSettings SettingsFrom(ByteView payload) {
    const milliseconds period = std::max<int>(payload[6], 1) * kPollUnit;
    const std::size_t firstSize = payload[11];
    return {
        .mode = payload[1],
        .option = payload[2],
        .variant = payload[3],
        .lengthOffset = payload[4],
        .lengthExtra = payload[5],
        .period = period,
        .replyTimeout = payload[10] == 0 ? period : payload[10] * kPollUnit,
        .first = WordsOf(payload.subspan(kPollHeader, firstSize)),
        .second = WordsOf(payload.subspan(kPollHeader + firstSize)),
    };
}

}  // namespace

PollSlot* BoardPolls::SlotOf(std::uint8_t index) {
    return index < slots.size() ? &slots[index] : nullptr;
}

void BoardPolls::CancelExchange(std::size_t slot) {
    if (waiting && waiting->slot == slot) waiting.reset();
    if (owesSecond == slot) owesSecond.reset();
}

Answer BoardPolls::SetTimeoutMessage(ByteView payload) {
    const std::size_t count = payload[1];
    if (count > kTimeoutMessageLimit) return Refuse(status::kOutOfRange);
    if (payload.size() != kTimeoutHeader + count) return Refuse(status::kMalformedPayload);

    timeoutMessage = {.words = WordsOf(payload.subspan(kTimeoutHeader)),
                      .after = payload[0] * kTimeoutMessageUnit};
    return {};
}

Answer BoardPolls::Configure(ByteView payload) {
    const std::uint8_t index = payload[0], mode = payload[1], option = payload[2];
    const std::size_t lengthOffset = payload[4], lengthExtra = payload[5];
    const std::size_t firstSize = payload[11], secondSize = payload[12];
    PollSlot* slot = SlotOf(index);
    if (slot == nullptr || mode > kModeLimit || option > kOptionLimit ||
        lengthOffset >= kPollMessageLimit || std::max(firstSize, secondSize) > kPollMessageLimit) {
        return Refuse(status::kOutOfRange);
    }
    const ByteView messages = payload.subspan(kPollHeader);
    if (messages.size() != firstSize + secondSize ||
        !TellsItsLength(messages.first(firstSize), lengthOffset, lengthExtra) ||
        !TellsItsLength(messages.last(secondSize), lengthOffset, lengthExtra)) {
        return Refuse(status::kMalformedPayload);
    }

    CancelExchange(index);
    *slot = {.settings = SettingsFrom(payload),
             .inbox = std::move(slot->inbox),
             .hostTimeout = slot->hostTimeout};
    return {};
}

Answer BoardPolls::Empty(ByteView payload) {
    PollSlot* slot = SlotOf(payload[0]);
    if (slot == nullptr) return Refuse(status::kOutOfRange);
    slot->inbox.Clear();
    return {};
}

Answer BoardPolls::Read(ByteView payload) {
    PollSlot* slot = SlotOf(payload[0]);
    if (slot == nullptr) return Refuse(status::kOutOfRange);

    slot->unread = {};
    if (slot->isStopped && !slot->inbox.IsPartlyRead()) {
        slot->StartAgain();
        return {status::kAccepted, {poll_status::kStopped, 0}};
    }
    return {status::kAccepted,
            slot->inbox.Read(replyLimit,
                             slot->lacksReply ? poll_status::kNoReply : poll_status::kNoMessage)};
}

Answer BoardPolls::Delete(ByteView payload) {
    PollSlot* slot = SlotOf(payload[0]);
    if (slot == nullptr) return Refuse(status::kOutOfRange);
    CancelExchange(payload[0]);
    *slot = {};
    return {};
}

Answer BoardPolls::SetHostTimeout(ByteView payload) {
    PollSlot* slot = SlotOf(payload[0]);
    if (slot == nullptr) return Refuse(status::kOutOfRange);
    slot->hostTimeout = payload[1] * kHostTimeoutUnit;
    slot->unread = {};
    return {};
}

void BoardPolls::OnCommand() {
    timeoutMessage.quiet = {};
    timeoutMessage.isSent = false;
}

bool BoardPolls::Take(SerialWord word) {
    if (!waiting) return false;
    auto reply = waiting->reply.Take(word);
    if (!reply) return true;
    const Waiting ended = *std::exchange(waiting, std::nullopt);
    TakeReply(ended.slot, std::move(*reply), ended.isAfterReply);
    return true;
}

void BoardPolls::TakeReply(std::size_t index, SerialFrame reply, bool isAfterReply) {
    PollSlot& slot = slots[index];
    slot.lacksReply = !slot.IsRight(reply);
    if (slot.lacksReply) {
        ++slot.wrongReplies;
        return;
    }
    ++slot.rightReplies;
    slot.Keep(std::move(reply));
    if (slot.settings.mode == poll_mode::kSecondAfterReply && !isAfterReply &&
        !slot.settings.second.empty()) {
        owesSecond = index;
    }
}

SerialWords BoardPolls::Tick() {
    for (PollSlot& slot : slots)
        slot.Tick();
    TickWaiting();
    if (timeoutMessage.IsArmed()) timeoutMessage.quiet += kTick;

    // One message at a time: what is heard next is the answer to it.
    if (waiting) return {};
    if (const auto slot = std::exchange(owesSecond, std::nullopt)) {
        Await(*slot, true);
        return slots[*slot].settings.second;
    }
    if (timeoutMessage.IsArmed() && timeoutMessage.quiet >= timeoutMessage.after) {
        timeoutMessage.isSent = true;
        return timeoutMessage.words;
    }
    return SendNextPoll();
}

void BoardPolls::TickWaiting() {
    if (!waiting) return;
    waiting->left -= kTick;
    if (waiting->left.count() > 0) return;
    const Waiting ended = *std::exchange(waiting, std::nullopt);
    if (ended.isAfterReply) return;
    PollSlot& slot = slots[ended.slot];
    slot.lacksReply = true;
    ++slot.missingReplies;
}

SerialWords BoardPolls::SendNextPoll() {
    const std::size_t first = lastPolled + 1;
    for (std::size_t n = 0; n < slots.size(); ++n) {
        const std::size_t index = (first + n) % slots.size();
        PollSlot& slot = slots[index];
        if (!std::exchange(slot.isDue, false)) continue;
        const SerialWords& message = slot.NextMessage();
        if (message.empty()) continue;

        ++slot.sentPolls;
        lastPolled = index;
        Await(index, false);
        return message;
    }
    return {};
}

void BoardPolls::Await(std::size_t index, bool isAfterReply) {
    const PollSettings& settings = slots[index].settings;
    waiting = {.slot = index,
               .reply = {settings.lengthOffset, settings.lengthExtra},
               .left = settings.replyTimeout,
               .isAfterReply = isAfterReply};
}

bool BoardPolls::IsIdle() const {
    return !waiting && !owesSecond && !timeoutMessage.IsArmed() &&
           std::ranges::none_of(slots, &PollSlot::IsPolling);
}

}  // namespace simulator
