// Words for the serial lines and what hangs on them.
#include <algorithm>
#include <charconv>

#include "control/word.h"
#include "terms/hex.h"

namespace simulator {
namespace {

constexpr unsigned kHighestWord = 0x1FF;
constexpr int kMostParityErrors = 65535;

// The last word of a line.
std::vector<std::uint8_t> HexBytes(WordList& words, std::size_t limit) {
    const std::string word = words.Word("the bytes");
    words.End();
    auto bytes = FromHex(word);
    if (!bytes || bytes->empty() || bytes->size() > limit) {
        throw UsageError("the bytes must be 1 to " + std::to_string(limit) + " in hex, not '" +
                         word + "'");
    }
    return *std::move(bytes);
}

// What a word is for; throws where something else hangs on the line.
template <class Device>
Device& DeviceOn(BoardSerialPort& port, SerialLine line) {
    auto* device = std::get_if<Device>(&port.Device());
    if (device == nullptr) {
        throw Refusal(std::string("on the line hangs ") + NameOfLine(port.Line()) + ", not " +
                      NameOfLine(line));
    }
    return *device;
}

SerialWord NineBitWord(const std::string& word) {
    unsigned value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value, 16);
    if (error != std::errc() || stop != end || value > kHighestWord) {
        throw UsageError("a word must be 0 to 1ff in hex, not '" + word + "'");
    }
    return static_cast<SerialWord>(value);
}

std::string Feed(BoardSerialPort& port, WordList words) {
    const auto bytes = HexBytes(words, kLineQueueLimit);
    port.Feed(SerialWords(bytes.begin(), bytes.end()));
    return {};
}

std::string FeedNineBits(BoardSerialPort& port, WordList words) {
    SerialWords line;
    do {
        line.push_back(NineBitWord(words.Word("the word")));
    } while (!words.IsEmpty());
    port.Feed(line);
    return {};
}

std::string FeedParityErrors(BoardSerialPort& port, WordList words) {
    const int count = words.Number("the number of errors", 1, kMostParityErrors);
    words.End();
    port.FeedParityErrors(static_cast<unsigned>(count));
    return {};
}

std::string TextOf(const SerialWords& words, bool hasNineBits) {
    std::string text;
    for (const SerialWord word : words) {
        const std::uint8_t bytes[] = {static_cast<std::uint8_t>(word >> 8),
                                      static_cast<std::uint8_t>(word)};
        if (hasNineBits && !text.empty()) text += ' ';
        text += Hex(hasNineBits ? ByteView(bytes) : ByteView(bytes).last(1));
    }
    return text.empty() ? "-" : text;
}

std::string Drain(BoardSerialPort& port, WordList words) {
    words.End();
    if (port.Line() != SerialLine::kNone) {
        throw Refusal(std::string("what the board sends goes to ") + NameOfLine(port.Line()));
    }
    return TextOf(port.TakeSent(), port.HasNineBits()) + "\n";
}

// Terminals are made when the simulation starts.
std::string Attach(BoardSerialPort& port, WordList words) {
    const std::string name = words.Word("what hangs on the line");
    words.End();
    const auto line = SerialLineNamed(name);
    if (!line) throw UsageError("nothing of the name '" + name + "' hangs on a line");
    if (*line == SerialLine::kTerminal || port.Line() == SerialLine::kTerminal) {
        throw Refusal("a line that is a pty stays one, and no other becomes one");
    }
    port.Attach(*line);
    return {};
}

std::string InsertCoin(BoardSerialPort& port, WordList words) {
    const int coin = words.Number("the coin", 1, kAcceptorCoinCount);
    words.End();
    auto& acceptor = DeviceOn<CctalkAcceptor>(port, SerialLine::kCctalk);
    return acceptor.Insert(static_cast<unsigned>(coin)) ? "accepted\n" : "returned\n";
}

std::string QueueEvent(BoardSerialPort& port, WordList words) {
    const auto bytes = HexBytes(words, kPolledEventLimit);
    auto& polled = DeviceOn<PolledDevice>(port, SerialLine::kPolled);
    if (polled.QueuedEvents() >= kPolledQueueLimit) {
        throw Refusal("no more than 1000 events can be queued");
    }
    polled.Queue(bytes);
    return {};
}

template <bool on>
std::string Mute(BoardSerialPort& port, WordList words) {
    words.End();
    if (auto* acceptor = std::get_if<CctalkAcceptor>(&port.Device())) {
        acceptor->Mute(on);
    } else {
        DeviceOn<PolledDevice>(port, SerialLine::kPolled).Mute(on);
    }
    return {};
}

std::string DriveHost(BoardSerialPort& port, WordList words) {
    const bool on = words.Take("on");
    const bool isSwitch = on || words.Take("off");
    const int address = isSwitch ? 0 : words.Number("the address", 0, kHighestSasAddress);
    words.End();
    auto& host = DeviceOn<SasHost>(port, SerialLine::kSas);
    if (isSwitch) {
        host.SetPolling(on);
    } else {
        host.SetAddress(static_cast<unsigned>(address));
    }
    return {};
}

std::string SendLongPoll(BoardSerialPort& port, WordList words) {
    const auto bytes = HexBytes(words, kLongestSasPoll);
    if (!DeviceOn<SasHost>(port, SerialLine::kSas).SendLongPoll(bytes)) {
        throw Refusal("no more than 100 long polls can wait");
    }
    return {};
}

struct LineWord {
    const char* name;
    std::string (*perform)(BoardSerialPort&, WordList);
};

constexpr LineWord kLineWords[] = {
    {"feed", Feed},        {"feed9", FeedNineBits}, {"parity", FeedParityErrors},
    {"drain", Drain},      {"line", Attach},        {"insert", InsertCoin},
    {"event", QueueEvent}, {"mute", Mute<true>},    {"speak", Mute<false>},
    {"host", DriveHost},   {"long", SendLongPoll},
};

std::string DriveLine(Target target, WordList words) {
    const int port = words.Number("the port", 0, kSerialPortCount - 1);
    const std::string name = words.Word("what happens on the line");
    const auto word = std::ranges::find(kLineWords, name, &LineWord::name);
    if (word == std::end(kLineWords))
        throw UsageError("nothing on a line is called '" + name + "'");
    return word->perform(target.device.board.ports[static_cast<std::size_t>(port)], words);
}

// clang-format off
constexpr ControlWord kWords[] = {
    {"serial",      "PORT feed HEX",      "bytes come over the line of port 0 or 1", DriveLine},
    {"serial",      "PORT feed9 WORD ...", "words of nine bits come, 0 to 1ff in hex", DriveLine},
    {"serial",      "PORT parity N",      "N words come with parity errors", DriveLine},
    {"serial",      "PORT drain",         "prints what the board sent, then forgets it", DriveLine},
    {"serial",      "PORT line WHAT",     "hangs none, loop, cctalk, polled or sas on the line", DriveLine},
    {"serial",      "PORT insert COIN",   "coin 1 to 16 goes into the ccTalk acceptor", DriveLine},
    {"serial",      "PORT event HEX",     "the polled device answers one poll with these bytes", DriveLine},
    {"serial",      "PORT mute|speak",    "either of them is silent, or no more", DriveLine},
    {"serial",      "PORT host on|off|ADDRESS", "the SAS host polls, or polls address 0 to 127", DriveLine},
    {"serial",      "PORT long HEX",      "the SAS host sends one long poll: command and data", DriveLine},
};
// clang-format on

}  // namespace

std::span<const ControlWord> SerialLineWords() {
    return kWords;
}

}  // namespace simulator
