// The table of all commands that simulated boards know, and how one of them is found in it.
#include "board/command_table.h"

#include <algorithm>
#include <limits>

#include "board/board.h"

namespace simulator {
namespace {

using Handler = Answer (*)(Board&, ByteView);

// Calls a family's function on the board's member for that family, and hands it the members that
// it needs beside.
template <auto family, auto function, auto... others>
Answer Call(Board& board, ByteView payload) {
    return ((board.*family).*function)(payload, board.*others...);
}

Answer BeginRelease(Board& board, ByteView payload) {
    Answer answer = board.releases.Begin(payload, board.inputs, board.outputs);
    if (answer.status != status::kAccepted) return answer;
    board.pulsedInputs.GiveUpStatus(payload[0]);
    board.hoppers.Begin(payload[0]);
    return answer;
}

// Of what was begun last on the input, a release or a check.
Answer ReportHopper(Board& board, ByteView payload) {
    const std::uint8_t input = payload[0];
    if (input >= kCountedInputCount) return Refuse(status::kOutOfRange);
    const InputStatus status =
        board.pulsedInputs.Status(input).value_or(board.releases.Status(input));
    return {status::kAccepted, {status.begin(), status.end()}};
}

// The simulated board has no diagnostic data: it sends back what it was asked.
Answer EchoDiagnosticRequest(Board& board, ByteView payload) {
    if (payload.size() > ReplyLimit(board.Options().model)) return Refuse(status::kTooLong);
    return {status::kAccepted, {payload.begin(), payload.end()}};
}

Answer AcceptDiagnosticData(Board&, ByteView) {
    return {};
}

template <std::size_t port>
Answer ConfigurePort(Board& board, ByteView payload) {
    board.ports[port].polls.OnCommand();
    return board.ports[port].Configure(payload);
}

// All other commands of a serial port need it configured.
template <class Act>
Answer OnConfigured(BoardSerialPort& port, Act act) {
    if (!port.Setting()) return Refuse(status::kNotConfigured);
    port.polls.OnCommand();
    return act();
}

template <std::size_t number, auto function>
Answer CallPort(Board& board, ByteView payload) {
    BoardSerialPort& port = board.ports[number];
    return OnConfigured(port, [&] { return (port.*function)(payload); });
}

template <std::size_t number, auto part, auto function>
Answer CallPart(Board& board, ByteView payload) {
    BoardSerialPort& port = board.ports[number];
    return OnConfigured(port, [&] { return ((port.*part).*function)(payload); });
}

enum ModelSet : unsigned { kK40Only = 1, kK50Only = 4, kNotK40 = 2 | 4, kAllModels = 1 | 2 | 4 };

bool Contains(ModelSet models, Model model) {
    return (models >> (static_cast<unsigned>(model) - 1) & 1) != 0;
}

constexpr std::uint32_t kDigitalIo = 1;
constexpr std::uint32_t kServices = 2;
constexpr std::uint32_t kSerial = 3;  // of port 0, followed by port 1's
constexpr std::uint32_t kPic = 5;
constexpr std::uint32_t kMemory = 6;
constexpr std::uint32_t kSpi = 7;

constexpr std::size_t kAnyLength = std::numeric_limits<std::size_t>::max();

struct Command {
    std::uint32_t channel;
    std::uint8_t code;
    ModelSet models;
    std::size_t shortest, longest;  // payload in bytes; handlers may rely on it
    Handler handler;
};

// clang-format off
constexpr Command kCommands[] = {
    {kMemory,    70, kK40Only,   3, 3,          Call<&Board::memory, &BoardMemory::ReadFlat>},
    {kMemory,    71, kK40Only,   3, kAnyLength, Call<&Board::memory, &BoardMemory::WriteFlat>},
    {kMemory,    72, kAllModels, 0, 0,          Call<&Board::memory, &BoardMemory::BeginDownload>},
    {kMemory,    73, kAllModels, 0, 0,          Call<&Board::memory, &BoardMemory::EndDownload>},
    {kMemory,    74, kAllModels, 0, 0,          Call<&Board::memory, &BoardMemory::ReportProgram>},
    {kMemory,   116, kNotK40,    5, 5,          Call<&Board::memory, &BoardMemory::ReadPaged>},
    {kMemory,   117, kNotK40,    5, kAnyLength, Call<&Board::memory, &BoardMemory::WritePaged>},

    {kDigitalIo, 75, kAllModels, 0, 0, Call<&Board::inputs, &BoardInputs::ReadImage>},
    {kDigitalIo, 81, kAllModels, 0, 0, Call<&Board::inputs, &BoardInputs::ReportChanges>},
    {kDigitalIo, 82, kAllModels, 0, 0, Call<&Board::inputs, &BoardInputs::ReadRawImage>},
    {kDigitalIo,114, kAllModels, 1, 1, Call<&Board::inputs, &BoardInputs::SetMultiplexing>},
    {kDigitalIo,115, kAllModels, 0, 0, Call<&Board::inputs, &BoardInputs::ReadMultiplexed>},

    {kDigitalIo, 77, kAllModels, 10, 10, Call<&Board::outputs, &BoardOutputs::Modify>},
    {kDigitalIo, 78, kAllModels, 2, 2,   Call<&Board::outputs, &BoardOutputs::PulseOn>},
    {kDigitalIo, 79, kAllModels, 2, 2,   Call<&Board::outputs, &BoardOutputs::PulseOff>},
    {kDigitalIo, 80, kAllModels, 0, 0,   Call<&Board::outputs, &BoardOutputs::ReportPulse>},
    {kDigitalIo, 83, kAllModels, 5, 5,   Call<&Board::outputs, &BoardOutputs::SetOnPeriod>},
    {kDigitalIo, 84, kAllModels, 5, 5,   Call<&Board::outputs, &BoardOutputs::SetOffPeriod>},
    {kDigitalIo, 85, kAllModels, 1, 1,   Call<&Board::outputs, &BoardOutputs::SetBrightness>},

    {kDigitalIo,107, kK40Only,   3, 3, Call<&Board::pulsedInputs, &BoardPulsedInputs::Configure, &Board::inputs>},
    {kDigitalIo,107, kNotK40,    4, 4, Call<&Board::pulsedInputs, &BoardPulsedInputs::Configure, &Board::inputs>},
    {kDigitalIo,108, kAllModels, 2, 2, Call<&Board::pulsedInputs, &BoardPulsedInputs::BeginOrEndCheck, &Board::inputs>},
    {kDigitalIo,109, kAllModels, 1, 1, Call<&Board::pulsedInputs, &BoardPulsedInputs::ResetCounter>},
    {kDigitalIo,110, kAllModels, 1, 1, Call<&Board::pulsedInputs, &BoardPulsedInputs::DecrementCounter>},
    {kDigitalIo,111, kAllModels, 1, 1, Call<&Board::pulsedInputs, &BoardPulsedInputs::ReadCounter>},
    {kDigitalIo,112, kK40Only,   7, 7, BeginRelease},
    {kDigitalIo,112, kNotK40,    8, 8, BeginRelease},
    {kDigitalIo,113, kAllModels, 1, 1, ReportHopper},
    {kDigitalIo,124, kNotK40,    1, 1, Call<&Board::releases, &BoardReleases::Stop, &Board::outputs>},

    {kDigitalIo, 86, kAllModels, 4, 4, Call<&Board::reels, &BoardReels::Configure>},
    {kDigitalIo, 87, kAllModels, 4, 4, Call<&Board::reels, &BoardReels::BeginSpin>},
    {kDigitalIo, 88, kAllModels, 2, 2 + kLongestRamp, Call<&Board::reels, &BoardReels::SetRampUp>},
    {kDigitalIo, 89, kAllModels, 2, 2 + kLongestRamp, Call<&Board::reels, &BoardReels::SetRampDown>},
    {kDigitalIo, 90, kAllModels, 3, 3, Call<&Board::reels, &BoardReels::SetDutyCycle>},
    {kDigitalIo, 91, kAllModels, 1, 1, Call<&Board::reels, &BoardReels::Synchronise>},
    {kDigitalIo, 92, kAllModels, 0, 0, Call<&Board::reels, &BoardReels::Report>},

    {kDigitalIo,125, kNotK40,    9, 9,          Call<&Board::recording, &BoardRecording::Configure>},
    {kDigitalIo,126, kNotK40,    2, 2,          Call<&Board::recording, &BoardRecording::Start>},
    {kDigitalIo,127, kNotK40,    0, 0,          Call<&Board::recording, &BoardRecording::Report>},
    {kDigitalIo,128, kNotK40,    0, kAnyLength, EchoDiagnosticRequest},
    {kDigitalIo,129, kNotK40,    0, kAnyLength, AcceptDiagnosticData},

    {kServices,   3, kAllModels, 5, 5,          Call<&Board::eeprom, &BoardEeprom::Configure>},
    {kServices,   4, kAllModels, 3, kAnyLength, Call<&Board::eeprom, &BoardEeprom::Write>},
    {kServices,   5, kAllModels, 3, 3,          Call<&Board::eeprom, &BoardEeprom::Read>},

    {kServices,   6, kAllModels, 0, 0, Call<&Board::identity, &BoardIdentity::Report8051Version>},
    {kPic,       44, kAllModels, 0, 0, Call<&Board::identity, &BoardIdentity::ReportPicVersion>},
    {kPic,       63, kAllModels, 0, 0, Call<&Board::identity, &BoardIdentity::ReadPicSerial>},
    {kPic,       65, kAllModels, 8, 8, Call<&Board::identity, &BoardIdentity::SetPicSerial>},
    {kPic,      120, kNotK40,    0, 0, Call<&Board::identity, &BoardIdentity::ReadDallasNumber>},

    {kPic,       20, kAllModels, 4, 4, Call<&Board::clock, &BoardClock::SetClock>},
    {kPic,       21, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::ReadClock>},
    {kPic,       40, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::BeginLogPass>},
    {kPic,       41, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::ReadNextLogEntry>},
    {kPic,       42, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::ClearLog>},
    {kPic,       64, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::TakeSwitchFlags>},
    {kPic,       67, kAllModels, 0, 0, Call<&Board::clock, &BoardClock::TakeCachedSwitchFlags>},
    {kPic,      119, kNotK40,    0, 0, Call<&Board::clock, &BoardClock::TakeBatteryFailure>},
    {kPic,      220, kK50Only,   0, 0, Call<&Board::clock, &BoardClock::TakeClockFailure>},
    {kPic,      221, kK50Only,   0, 0, Call<&Board::clock, &BoardClock::ReadClockAtBatteryFailure>},

    {kPic,       68, kAllModels, 0, 0, Call<&Board::random, &BoardRandom::Read>},
    {kPic,       69, kAllModels, 4, 4, Call<&Board::random, &BoardRandom::Enable>},
    {kPic,      118, kAllModels, 0, 0, Call<&Board::random, &BoardRandom::Disable>},

    {kSpi,       94, kAllModels, 0, 0,          Call<&Board::spi, &BoardSpi::Enable>},
    {kSpi,       95, kAllModels, 0, 0,          Call<&Board::spi, &BoardSpi::Disable>},
    {kSpi,       96, kAllModels, 3, kAnyLength, Call<&Board::spi, &BoardSpi::Send>},
};

// Each port has a channel of its own. With a receive on port 0, and only there, comes a number that
// the application counts up.
template <std::size_t port>
constexpr Command kSerialCommands[] = {
    {kSerial + port,  97, kAllModels, 6, 6, ConfigurePort<port>},
    {kSerial + port,  98, kAllModels, 1, kAnyLength, CallPort<port, &BoardSerialPort::Send>},
    {kSerial + port,  99, kAllModels, 1 - port, 1 - port, CallPort<port, &BoardSerialPort::Receive>},
    {kSerial + port, 100, kAllModels, 0, 0, CallPort<port, &BoardSerialPort::ReportParityErrors>},
    {kSerial + port, 102, kAllModels, 0, 0, CallPort<port, &BoardSerialPort::ReceiveWithTimestamps>},

    {kSerial + port, 101, kAllModels, 2, 2 + kTimeoutMessageLimit, CallPart<port, &BoardSerialPort::polls, &BoardPolls::SetTimeoutMessage>},
    {kSerial + port, 103, kAllModels, 13, 13 + 2 * kPollMessageLimit, CallPart<port, &BoardSerialPort::polls, &BoardPolls::Configure>},
    {kSerial + port, 104, kAllModels, 1, 1, CallPart<port, &BoardSerialPort::polls, &BoardPolls::Empty>},
    {kSerial + port, 105, kAllModels, 1, 1, CallPart<port, &BoardSerialPort::polls, &BoardPolls::Read>},
    {kSerial + port, 106, kAllModels, 1, 1, CallPart<port, &BoardSerialPort::polls, &BoardPolls::Delete>},
    {kSerial + port, 121, kAllModels, 2, 2, CallPart<port, &BoardSerialPort::polls, &BoardPolls::SetHostTimeout>},

    {kSerial + port, 122, kNotK40,    1, 1, CallPart<port, &BoardSerialPort::sas, &BoardSas::SetAddress>},
    {kSerial + port, 123, kNotK40,    2, 2, CallPart<port, &BoardSerialPort::sas, &BoardSas::SetAutoReply>},
    {kSerial + port, 124, kNotK40,    0, 0, CallPart<port, &BoardSerialPort::sas, &BoardSas::ReportStatus>},
};
// clang-format on

constexpr std::span<const Command> kTables[] = {kCommands, kSerialCommands<0>, kSerialCommands<1>};

// The first command that fulfils the condition; null where there is none.
template <class Condition>
const Command* FindIf(Condition condition) {
    for (const auto table : kTables) {
        const auto found = std::ranges::find_if(table, condition);
        if (found != table.end()) return &*found;
    }
    return nullptr;
}

const Command* Find(Model model, std::uint8_t code, std::uint32_t channel) {
    return FindIf([&](const Command& command) {
        return command.code == code && command.channel == channel &&
               Contains(command.models, model);
    });
}

bool IsKnownOnAnyChannel(Model model, std::uint8_t code) {
    return FindIf([&](const Command& command) {
               return command.code == code && Contains(command.models, model);
           }) != nullptr;
}

}  // namespace

Answer Dispatch(Board& board, std::uint8_t command, std::uint32_t channel, ByteView payload) {
    const Model model = board.Options().model;
    const Command* known = Find(model, command, channel);
    if (known == nullptr) {
        return Refuse(IsKnownOnAnyChannel(model, command) ? status::kWrongChannel
                                                          : status::kUnknownCommand);
    }
    if (payload.size() < known->shortest || payload.size() > known->longest) {
        return Refuse(status::kMalformedPayload);
    }
    return known->handler(board, payload);
}

}  // namespace simulator
