// An exchange on its way to the board and back, with the faults that were asked for.
#include "driver/device.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace simulator {
namespace {

constexpr Fault kNoFault{Fault::Kind::kDelay, 0};

}  // namespace

Outcome Device::Exchange(std::uint8_t command, std::uint32_t channel, ByteView payload) {
    if (!plugged) return {.error = ENODEV, .answer = {}};
    if (payload.size() > kPayloadLimit) return {.error = EINVAL, .answer = {}};

    Outcome outcome = Perform(command, channel, payload);
    Note({channel, command, {payload.begin(), payload.end()}, outcome.error, outcome.answer});
    return outcome;
}

void Device::NoteRefusal(std::uint8_t command, std::uint32_t channel, ByteView payload, int error) {
    Note({channel, command, {payload.begin(), payload.end()}, error, {}});
}

Outcome Device::Perform(std::uint8_t command, std::uint32_t channel, ByteView payload) {
    Outcome outcome{.answer = {}, .echo = command};
    const Fault fault = TakeFault();
    switch (fault.kind) {
        case Fault::Kind::kIoctl:
            outcome.error = fault.value;
            return outcome;
        case Fault::Kind::kStatus:
            outcome.answer = Refuse(fault.value);
            return outcome;
        case Fault::Kind::kEcho:
            outcome.echo = static_cast<std::uint8_t>(~command);
            break;
        case Fault::Kind::kDelay:
            outcome.delay = std::chrono::milliseconds(fault.value);
            break;
        case Fault::Kind::kShort:
            break;
    }
    outcome.answer = board.Handle(command, channel, payload);
    if (fault.kind == Fault::Kind::kShort) {
        auto& reply = outcome.answer.reply;
        reply.resize(std::min(reply.size(), static_cast<std::size_t>(fault.value)));
    }
    return outcome;
}

void Device::Unplug() {
    board.PowerDown();
    plugged = false;
}

void Device::Plug() {
    if (plugged) return;
    board.PowerUp();
    ++plugCount;
    plugged = true;
}

void Device::Spoil(unsigned count, Fault fault) {
    if (count > 0) faults.push_back({fault, count});
}

Fault Device::TakeFault() {
    if (faults.empty()) return kNoFault;
    const Fault fault = faults.front().fault;
    if (--faults.front().left == 0) faults.pop_front();
    return fault;
}

unsigned Device::ExchangesToSpoil() const {
    unsigned sum = 0;
    for (const PlannedFault& planned : faults)
        sum += planned.left;
    return sum;
}

void Device::Note(LogEntry entry) {
    log.push_back(std::move(entry));
    if (log.size() <= kLogLimit) return;
    log.pop_front();
    ++forgotten;
}

void Device::ClearLog() {
    log.clear();
    forgotten = 0;
}

}  // namespace simulator
