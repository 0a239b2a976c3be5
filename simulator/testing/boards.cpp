/**
 * @file boards.cpp
 * @brief The interface: checks what the test says, and passes it on in the words of "marvane-sim
 *   ctl", whose limits and refusals are then the same.
 */
#include <algorithm>
#include <atomic>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "control/words.h"
#include "report/device.h"
#include "terms/hex.h"
#include "testing/in_process_bus.h"
#include "testing/marvaneusb_testing.h"

namespace marvaneusb::testing {
namespace {

constexpr long kLongestAdvanceMs = 86'400'000;

std::atomic<bool> alive = false;

InProcessBus& TheBus() {
    return InProcessBus::Instance();
}

void CheckRange(const std::string& what, long number, long least, long most) {
    if (number >= least && number <= most) return;
    throw std::invalid_argument(what + " must be a number from " + std::to_string(least) + " to " +
                                std::to_string(most) + ", not " + std::to_string(number));
}

void CheckDeviceNo(int deviceNo) {
    CheckRange("the device number", deviceNo, 0, simulator::kDeviceCount - 1);
}

[[noreturn]] void ThrowNoBoard(int deviceNo) {
    throw std::out_of_range("there is no board " + std::to_string(deviceNo) +
                            ": Boards::AddBoard plugs one in");
}

std::string OnOff(bool on) {
    return on ? " on" : " off";
}

/** Words with blanks between them. */
template <class... Parts>
std::string Words(const Parts&... parts) {
    std::ostringstream words;
    ((words << parts << ' '), ...);
    return words.str();
}

/** Looks at a device as it is now; the look must yield a value, no reference. */
template <class Look>
auto LookAt(int deviceNo, Look look) {
    const auto access = TheBus().Devices();
    const auto device = access.devices.find(deviceNo);
    if (device == access.devices.end()) ThrowNoBoard(deviceNo);
    device->second.board.Advance();
    return look(static_cast<const simulator::Device&>(device->second));
}

simulator::Model ModelOf(const Fitting& fitting) {
    CheckRange("the model's value", static_cast<long>(fitting.model), 1, 3);
    return static_cast<simulator::Model>(fitting.model);
}

int SpeedOf(const Fitting& fitting) {
    if (fitting.speedMbit != 12 && fitting.speedMbit != 480) {
        throw std::invalid_argument("the speed is 12 or 480 (Mbit/s), not " +
                                    std::to_string(fitting.speedMbit));
    }
    return fitting.speedMbit;
}

void FitEeprom(const std::string& text, simulator::BoardOptions& options) {
    const std::string name = text.substr(0, text.find(':'));
    const auto part = simulator::EepromPartNamed(name);
    const std::string setting = text.substr(name.size());
    if (!part || !(setting.empty() || setting == ":blank")) {
        throw std::invalid_argument(
            "the EEPROM is 24LC01 to 24LC512, with :blank behind it or "
            "without, not '" +
            text + "'");
    }
    options.eeprom = *part;
    options.eepromBlank = !setting.empty();
}

simulator::SerialLine LineNamed(const std::string& name) {
    const auto line = simulator::SerialLineNamed(name);
    if (!line || *line == simulator::SerialLine::kTerminal) {
        throw std::invalid_argument(
            "on a serial line hangs none, loop, cctalk, polled or sas, not '" + name + "'");
    }
    return *line;
}

simulator::BoardOptions OptionsFor(int deviceNo, const Fitting& fitting) {
    CheckDeviceNo(deviceNo);
    CheckRange("the identity", fitting.identity, 0, simulator::kIdentityCount - 1);
    simulator::BoardOptions options;
    options.model = ModelOf(fitting);
    options.speedMbit = SpeedOf(fitting);
    options.firmwareRunning = fitting.firmwareRunning;
    options.identity = static_cast<unsigned>(fitting.identity);
    options.serialNumber = static_cast<std::uint32_t>(deviceNo) + 1;
    FitEeprom(fitting.eeprom, options);
    options.serialLines = {LineNamed(fitting.serial0), LineNamed(fitting.serial1)};
    return options;
}

OutputState StateOf(simulator::Lamp lamp) {
    switch (lamp) {
        case simulator::Lamp::kOff:
            return OutputState::kOff;
        case simulator::Lamp::kOnPeriod:
            return OutputState::kOnPeriod;
        case simulator::Lamp::kOffPeriod:
            return OutputState::kOffPeriod;
        case simulator::Lamp::kOn:
            break;
    }
    return OutputState::kOn;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Exchange& exchange) {
    out << "{" << exchange.command << ", " << exchange.channel << ", {";
    for (const std::uint8_t byte : exchange.payload)
        out << static_cast<int>(byte) << ",";
    return out << "}}";
}

// One board

std::string Board::Do(const std::string& words) {
    LookAt(deviceNo, [](const simulator::Device&) { return 0; });
    std::vector<std::string> line = {std::to_string(deviceNo)};
    std::istringstream rest(words);
    for (std::string word; rest >> word;)
        line.push_back(word);
    simulator::ControlAnswer answer = simulator::Perform(line, TheBus());
    if (answer.result == simulator::kDone) return std::move(answer.text);

    answer.text.erase(answer.text.find_last_not_of('\n') + 1);
    const std::string message = "board " + line[0] + ": " + answer.text;
    if (answer.result == simulator::kWrongUsage) throw std::invalid_argument(message);
    throw std::runtime_error(message);
}

std::string Board::Show() const {
    return LookAt(deviceNo, simulator::StateAsJson);
}

void Board::Unplug() {
    Do("unplug");
}

void Board::Plug() {
    Do("plug");
}

bool Board::IsPlugged() const {
    return LookAt(deviceNo, [](const simulator::Device& device) { return device.IsPlugged(); });
}

void Board::FailExchanges(int count, int error) {
    const char* name = strerrorname_np(error);
    if (error <= 0 || name == nullptr) {
        throw std::invalid_argument("the error must be an errno value such as EIO, not " +
                                    std::to_string(error));
    }
    Do(Words("fail", count, "ioctl", name));
}

void Board::RefuseExchanges(int count, int status) {
    Do(Words("fail", count, "status", status));
}

void Board::ShortenReplies(int count, int length) {
    Do(Words("fail", count, "short", length));
}

void Board::MixUpEchoes(int count) {
    Do(Words("fail", count, "echo"));
}

void Board::StopFaults() {
    Do("fail off");
}

void Board::SetInput(int input, bool on) {
    Do(Words("input", input, OnOff(on)));
}

void Board::SetContact(int input, bool on) {
    Do(Words("contact", input, OnOff(on)));
}

void Board::SetMultiplexed(int number, bool on) {
    Do(Words("multiplexed", number, OnOff(on)));
}

void Board::SetIdentity(int identity) {
    Do(Words("identity", identity));
}

void Board::InsertCoins(int input, int count, int perSecond) {
    Do(Words("coin", input, count, perSecond));
}

int Board::CoinsToCome(int input) const {
    CheckRange("the input", input, 0, simulator::kInputCount - 1);
    return LookAt(deviceNo, [&](const simulator::Device& device) {
        return static_cast<int>(device.board.pulses.Pending(static_cast<unsigned>(input)));
    });
}

OutputState Board::Output(int output) const {
    CheckRange("the output", output, 0, simulator::kOutputCount - 1);
    return LookAt(deviceNo, [&](const simulator::Device& device) {
        return StateOf(device.board.outputs.LampOf(static_cast<unsigned>(output)));
    });
}

int Board::Brightness() const {
    return LookAt(deviceNo, [](const simulator::Device& device) {
        return int{device.board.outputs.Brightness()};
    });
}

void Board::SetHopperCoins(int input, int coins) {
    Do(Words("hopper", input, "coins", coins));
}

void Board::SetHopperRate(int input, int coinsPerSecond) {
    Do(Words("hopper", input, "rate", coinsPerSecond));
}

void Board::JamHopper(int input, bool jammed) {
    Do(Words("hopper", input, jammed ? "jam" : "free"));
}

int Board::HopperCoins(int input) const {
    CheckRange("the hopper's input", input, 0, simulator::kInputCount - 1);
    return LookAt(deviceNo, [&](const simulator::Device& device) {
        const auto* hopper = device.board.hoppers.Find(static_cast<unsigned>(input));
        return static_cast<int>(hopper == nullptr ? simulator::Hopper().coins : hopper->coins);
    });
}

void Board::PlaceReel(int reel, int position) {
    Do(Words("reel", reel, "position", position));
}

ReelState Board::Reel(int reel) const {
    CheckRange("the reel", reel, 0, simulator::kReelCount - 1);
    return LookAt(deviceNo, [&](const simulator::Device& device) {
        const simulator::Reel& state = device.board.reels.At(static_cast<unsigned>(reel));
        return ReelState{state.IsTurning(), static_cast<int>(state.Position()),
                         static_cast<int>(state.Steps())};
    });
}

void Board::AttachSerial(int port, const std::string& what) {
    Do(Words("serial", port, "line", simulator::NameOfLine(LineNamed(what))));
}

void Board::FeedSerial(int port, const Bytes& bytes) {
    Do(Words("serial", port, "feed", simulator::Hex(bytes)));
}

Bytes Board::TakeSerial(int port) {
    std::string text = Do(Words("serial", port, "drain"));
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char letter) { return std::strchr(" -\n", letter) != nullptr; }),
               text.end());
    return simulator::FromHex(text).value();
}

// All boards

Boards::Boards() {
    if (alive.exchange(true)) {
        throw std::logic_error("there is one Boards object already: a program has one at a time");
    }
    if (!TheBus().IsReached()) {
        alive = false;
        throw std::logic_error(
            "calls of open do not come to libmarvaneusb_testing: link it (CMake: "
            "marvaneusb::testing) with the program itself, with -Wl,--no-as-needed where only a "
            "library of the program's uses it");
    }
    Reset();
}

Boards::~Boards() {
    Reset();
    alive = false;
}

void Boards::Reset() {
    TheBus().Reset();
}

Board Boards::AddBoard(int deviceNo, const Fitting& fitting) {
    TheBus().Add(deviceNo, OptionsFor(deviceNo, fitting));
    return Board(deviceNo);
}

Board Boards::AddBoard(int deviceNo, Model model, int speedMbit) {
    Fitting fitting;
    fitting.model = model;
    fitting.speedMbit = speedMbit;
    return AddBoard(deviceNo, fitting);
}

Board Boards::At(int deviceNo) const {
    return LookAt(deviceNo, [](const simulator::Device& device) { return Board(device.Number()); });
}

void Boards::SetFile(int deviceNo, const std::string& attribute,
                     std::optional<std::string> content) {
    CheckDeviceNo(deviceNo);
    TheBus().SetFile(deviceNo, attribute, std::move(content));
}

void Boards::SetNode(int deviceNo, bool present) {
    CheckDeviceNo(deviceNo);
    TheBus().SetNode(deviceNo, present);
}

void Boards::RefuseNode(int deviceNo, int error) {
    CheckDeviceNo(deviceNo);
    CheckRange("the error", error, 0, 133);
    TheBus().RefuseNode(deviceNo, error);
}

void Boards::AnswerNext(Answer answer) {
    TheBus().AnswerNext(std::move(answer));
}

void Boards::AnswerWith(Answerer answerer) {
    TheBus().AnswerWith(std::move(answerer));
}

Exchanges Boards::Sent() const {
    return TheBus().Recorded(&InProcessBus::Record::sent);
}

void Boards::ForgetSent() {
    TheBus().ForgetSent();
}

Bytes Boards::LastRecord() const {
    return TheBus().Recorded(&InProcessBus::Record::lastRecord);
}

unsigned long Boards::LastRequest() const {
    return TheBus().Recorded(&InProcessBus::Record::lastRequest);
}

int Boards::LastOpenFlags() const {
    return TheBus().Recorded(&InProcessBus::Record::lastOpenFlags);
}

std::vector<int> Boards::OpenedDevices() const {
    return TheBus().Recorded(&InProcessBus::Record::opened);
}

int Boards::OpenDescriptors() const {
    return TheBus().OpenDescriptors();
}

void Boards::Advance(long milliseconds) {
    CheckRange("the time in ms", milliseconds, 0, kLongestAdvanceMs);
    TheBus().Advance(std::chrono::milliseconds(milliseconds));
}

long Boards::Now() const {
    return TheBus().Recorded(&InProcessBus::Record::now).time_since_epoch().count();
}

}  // namespace marvaneusb::testing
