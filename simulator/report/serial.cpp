// Writes what is to be seen of serial ports; docs/simulator.md tells users what every field means.
#include "report/serial.h"

#include "terms/hex.h"

namespace simulator {
namespace {

using Json = nlohmann::ordered_json;

Json SettingOf(const BoardSerialPort& port) {
    const auto& setting = port.Setting();
    if (!setting) return nullptr;
    return {
        {"type", setting->type},
        {"parityCode", setting->parityCode},
        {"flagBits2And3", setting->flagBits2And3},
        {"flagBit1", setting->flagBit1},
        {"rate", Hex(setting->rate)},
    };
}

std::string BytesHex(const SerialWords& words) {
    std::vector<std::uint8_t> bytes;
    for (const SerialWord word : words)
        bytes.push_back(static_cast<std::uint8_t>(word));
    return Hex(bytes);
}

Json SlotAsJson(const PollSlot& slot) {
    return {
        {"mode", slot.settings.mode},
        {"option", slot.settings.option},
        {"periodMs", slot.settings.period.count()},
        {"hostTimeoutMs", slot.hostTimeout.count()},
        {"stopped", slot.isStopped},
        {"messages", slot.inbox.Count()},
        {"sentPolls", slot.sentPolls},
        {"rightReplies", slot.rightReplies},
        {"wrongReplies", slot.wrongReplies},
        {"missingReplies", slot.missingReplies},
    };
}

// By index, only those that are configured.
Json SlotsOf(const BoardPolls& polls) {
    Json slots = Json::object();
    for (std::size_t index = 0; index < kPollSlotCount; ++index) {
        const PollSlot& slot = polls.Slots()[index];
        if (slot.settings.period.count() != 0) slots[std::to_string(index)] = SlotAsJson(slot);
    }
    return slots;
}

Json TimeoutMessageOf(const BoardPolls& polls) {
    const TimeoutMessage& message = polls.MessageOnTimeout();
    if (message.words.empty()) return nullptr;
    return {
        {"message", BytesHex(message.words)},
        {"afterMs", message.after.count()},
        {"sent", message.isSent},
    };
}

Json SasOf(const BoardSas& sas) {
    if (!sas.Address()) return nullptr;
    return {{"address", *sas.Address()}, {"mode", sas.Mode()}, {"value", sas.Value()}};
}

Json StateOf(const OpenEnd&) {
    return nullptr;
}

Json StateOf(const Loop&) {
    return nullptr;
}

Json StateOf(const CctalkAcceptor& acceptor) {
    const CctalkAcceptor::State& state = acceptor.Now();
    return {
        {"muted", acceptor.IsMuted()},
        {"master", state.master},
        {"mask", state.mask},
        {"eventCounter", state.eventCounter},
        {"lastCoins", state.lastCoins},
        {"acceptedCoins", acceptor.AcceptedCoins()},
        {"returnedCoins", acceptor.ReturnedCoins()},
        {"wrongFrames", acceptor.WrongFrames()},
    };
}

Json StateOf(const PolledDevice& polled) {
    return {
        {"muted", polled.IsMuted()},
        {"queuedEvents", polled.QueuedEvents()},
        {"rightFrames", polled.RightFrames()},
        {"wrongFrames", polled.WrongFrames()},
    };
}

Json StateOf(const SasHost& host) {
    const SasHost::Counts& counts = host.Seen();
    return {
        {"polling", host.IsPolling()},         {"address", host.Address()},
        {"generalPolls", counts.generalPolls}, {"generalAnswers", counts.generalAnswers},
        {"longPolls", counts.longPolls},       {"longAnswers", counts.longAnswers},
        {"busyAnswers", counts.busyAnswers},   {"lastAnswer", BytesHex(host.LastAnswer())},
    };
}

Json PortAsJson(const BoardSerialPort& port) {
    return {
        {"line", NameOfLine(port.Line())},
        {"configuration", SettingOf(port)},
        {"received", port.ReceivedWords()},
        {"sent", port.SentWords()},
        {"dropped", port.DroppedWords()},
        {"parityErrors", port.ParityErrors()},
        {"polls", SlotsOf(port.polls)},
        {"timeoutMessage", TimeoutMessageOf(port.polls)},
        {"sas", SasOf(port.sas)},
        {"device", std::visit([](const auto& device) { return StateOf(device); }, port.Device())},
    };
}

}  // namespace

Json SerialPortsOf(const Board& board) {
    Json ports = Json::array();
    for (const BoardSerialPort& port : board.ports)
        ports.push_back(PortAsJson(port));
    return ports;
}

}  // namespace simulator
