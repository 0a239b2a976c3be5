// Moves words between the application, the board and what hangs on the line.
#include "port/serial_port.h"

#include <algorithm>
#include <utility>

namespace simulator {
namespace {

constexpr std::uint8_t kHighestType = 3;
constexpr std::uint8_t kNineBitType = 1;
constexpr std::uint8_t kHighestParityCode = 2;
constexpr std::uint8_t kParityCodeOfType0 = 3;
constexpr std::uint8_t kHighestFlagBits2And3 = 3;
constexpr SerialWord kNineBits = 0x1FF, kEightBits = 0xFF;

// The timer values for which the two ports have rates, from the slowest on.
using Rate = std::array<std::uint8_t, 2>;
constexpr Rate kRatesOfPort0[] = {{0x98, 0}, {0x64, 1}, {0xB2, 1}, {0xD9, 1},
                                  {0xEC, 1}, {0xF6, 1}, {0xFA, 1}};
constexpr Rate kRatesOfPort1[] = {{0xBB, 0xCA}, {0x78, 0xEC}, {0x3C, 0xF6}, {0x1F, 0xFB},
                                  {0x8F, 0xFD}, {0xC8, 0xFE}, {0x64, 0xFF}, {0x98, 0xFF},
                                  {0xB2, 0xFF}, {0xD8, 0xFF}, {0xE6, 0xFF}, {0xE8, 0xFF}};
constexpr std::span<const Rate> kRates[kSerialPortCount] = {kRatesOfPort0, kRatesOfPort1};

bool IsParity(std::uint8_t code, std::uint8_t type) {
    return code <= kHighestParityCode || (code == kParityCodeOfType0 && type == 0);
}

// Of a timestamped reply: its length must fit the byte in which the library keeps it.
constexpr std::size_t kRecordLimit = 255;

// Answers to answers: a loop must come to an end.
constexpr int kMostRounds = 8;

}  // namespace

BoardSerialPort::BoardSerialPort(std::size_t portNumber, Model model, int speedMbit,
                                 SerialLine serialLine)
    : polls(TransferLimit(model, speedMbit)),
      number(portNumber),
      sendLimit(ChunkLimit(speedMbit)),
      replyLimit(TransferLimit(model, speedMbit)),
      line(serialLine),
      device(DeviceFor(serialLine)) {}

Answer BoardSerialPort::Configure(ByteView payload) {
    const std::uint8_t type = payload[0];
    if (type > kHighestType || !IsParity(payload[1], type) || payload[2] > kHighestFlagBits2And3 ||
        payload[3] > 1 ||
        std::ranges::find(kRates[number], Rate{payload[4], payload[5]}) == kRates[number].end()) {
        return Refuse(status::kOutOfRange);
    }
    setting = {type, payload[1], payload[2], payload[3], {payload[4], payload[5]}};
    parityErrors = 0;
    return {};
}

bool BoardSerialPort::HasNineBits() const {
    return setting && setting->type == kNineBitType;
}

Answer BoardSerialPort::Send(ByteView payload) {
    if (payload.size() > sendLimit) return Refuse(status::kTooLong);
    if (payload.size() % WordSize() != 0) return Refuse(status::kMalformedPayload);
    PutOnLine(WordsIn(payload));
    return {};
}

SerialWords BoardSerialPort::WordsIn(ByteView bytes) const {
    if (!HasNineBits()) return {bytes.begin(), bytes.end()};
    SerialWords words;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        words.push_back(static_cast<SerialWord>((bytes[i] << 8 | bytes[i + 1]) & kNineBits));
    return words;
}

void BoardSerialPort::AppendWord(std::vector<std::uint8_t>& bytes, SerialWord word) const {
    if (HasNineBits()) bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    bytes.push_back(static_cast<std::uint8_t>(word));
}

Answer BoardSerialPort::Receive(ByteView) {
    Answer answer;
    for (const Received& entry : received.Take(replyLimit / WordSize()))
        AppendWord(answer.reply, entry.word);
    return answer;
}

Answer BoardSerialPort::ReceiveWithTimestamps(ByteView) {
    Answer answer;
    const std::size_t count = std::min(replyLimit, kRecordLimit) / (WordSize() + 1);
    for (const Received& entry : received.Take(count)) {
        AppendWord(answer.reply, entry.word);
        answer.reply.push_back(entry.timestamp);
    }
    if (answer.reply.empty()) answer.reply.push_back(Timestamp());
    return answer;
}

Answer BoardSerialPort::ReportParityErrors(ByteView) {
    return {
        status::kAccepted,
        {static_cast<std::uint8_t>(parityErrors >> 8), static_cast<std::uint8_t>(parityErrors)}};
}

std::uint8_t BoardSerialPort::Timestamp() const {
    return static_cast<std::uint8_t>(now.time_since_epoch().count());
}

void BoardSerialPort::PutOnLine(SerialWords words) {
    for (int round = 0; round < kMostRounds && !words.empty(); ++round) {
        words = Hear(std::visit([&](auto& end) { return end.Hear(words); }, device));
    }
}

// Result: what the board says to it at once.
SerialWords BoardSerialPort::Hear(std::span<const SerialWord> words) {
    if (!IsListening()) {
        unheard += words.size();
        return {};
    }
    SerialWords replies;
    for (const SerialWord sent : words) {
        const SerialWord word = sent & (HasNineBits() ? kNineBits : kEightBits);
        const auto [taken, reply] = sas.Hear(word);
        replies.insert(replies.end(), reply.begin(), reply.end());
        if (!taken && !polls.Take(word)) received.Push({word, Timestamp()});
    }
    return replies;
}

void BoardSerialPort::Feed(std::span<const SerialWord> words) {
    PutOnLine(Hear(words));
}

void BoardSerialPort::FeedParityErrors(unsigned count) {
    if (IsListening()) parityErrors = static_cast<std::uint16_t>(parityErrors + count);
}

SerialWords BoardSerialPort::TakeSent() {
    auto* end = std::get_if<OpenEnd>(&device);
    return end == nullptr ? SerialWords{} : end->sent.Take();
}

void BoardSerialPort::FeedBytes(std::vector<std::uint8_t>& bytes) {
    const SerialWords words = WordsIn(bytes);
    bytes.erase(bytes.begin(),
                bytes.begin() + static_cast<std::ptrdiff_t>(words.size() * WordSize()));
    Feed(words);
}

std::vector<std::uint8_t> BoardSerialPort::TakeSentBytes() {
    std::vector<std::uint8_t> bytes;
    for (const SerialWord word : TakeSent())
        AppendWord(bytes, word);
    return bytes;
}

std::size_t BoardSerialPort::SentWords() const {
    const auto* end = std::get_if<OpenEnd>(&device);
    return end == nullptr ? 0 : end->sent.Size();
}

std::size_t BoardSerialPort::DroppedWords() const {
    const auto* end = std::get_if<OpenEnd>(&device);
    return unheard + received.Dropped() + (end == nullptr ? 0 : end->sent.Dropped());
}

void BoardSerialPort::Attach(SerialLine newLine) {
    line = newLine;
    device = DeviceFor(newLine);
}

void BoardSerialPort::PowerUp() {
    powered = true;
    setting.reset();
    received = {};
    unheard = 0;
    parityErrors = 0;
    polls = BoardPolls(replyLimit);
    sas = {};
    if (auto* end = std::get_if<OpenEnd>(&device)) *end = {};
}

bool BoardSerialPort::IsIdle() const {
    return std::visit([](const auto& end) { return end.IsIdle(); }, device) &&
           (!powered || (polls.IsIdle() && sas.IsIdle()));
}

void BoardSerialPort::Tick() {
    PutOnLine(Hear(std::visit([](auto& end) { return end.Tick(); }, device)));
    if (!powered) return;
    PutOnLine(sas.Tick());
    PutOnLine(polls.Tick());
}

}  // namespace simulator
