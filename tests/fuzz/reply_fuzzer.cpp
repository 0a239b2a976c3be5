/**
 * @file reply_fuzzer.cpp
 * @brief Calls the operations that decode replies, with arguments and replies from the fuzzer.
 *
 * An input names a board, then operations with their arguments, and in between what the driver
 * answers to each exchange. What callers are promised is checked after every operation; memory is
 * watched by the sanitizers, for which every output is a heap block of exactly its size.
 */
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

#include "fuzzed_driver.h"
#include "marvaneusb.h"
#include "shared_entries.h"

namespace {

constexpr int kBoardCount = 6;  // K40, K44 and K50 in turn, three at each speed
constexpr unsigned kMostOperations = 6;
constexpr unsigned kMostAnswers = 8;  // that are not empty, to an operation that asks on
constexpr std::size_t kMostReceived = kMostAnswers * 256UL;
constexpr unsigned kMostBareReplies = 8;  // in a row, to ReceivePolledMessageEx
constexpr unsigned char kUntouched = 0xA5;
constexpr int kNothingKept = -1;

using Bytes = std::vector<unsigned char>;

auto* const boards = new MarvaneUSB[kBoardCount];  // open to the end of the process
auto& receivedBytes = *new SharedEntries(SharedEntries::OfReceivedBytes());
auto& eeproms = *new SharedEntries(SharedEntries::OfEeproms());

void Require(bool holds, const char* what) {
    driver.Require(holds, what);
}

/** One call: its board, its arguments, its outputs. */
class Call {
public:
    Call(InputBytes& bytes, unsigned deviceNo, int (&keptBytes)[2])
        : input(bytes), device(deviceNo), board(boards[deviceNo]), kept(keptBytes) {}

    [[nodiscard]] bool IsK40() const { return device % 3 == 0; }
    [[nodiscard]] std::size_t LongestReply() const { return IsK40() ? 62 : 256; }

    template <class Value = unsigned char>
    Value* Out(std::size_t count = 1) {
        Output& output = outputs_.emplace_back();
        output.size = count * sizeof(Value);
        output.bytes = std::make_unique_for_overwrite<unsigned char[]>(output.size);
        std::memset(output.bytes.get(), kUntouched, output.size);
        return reinterpret_cast<Value*>(output.bytes.get());
    }
    [[nodiscard]] const unsigned char* FirstOutput() const { return outputs_[0].bytes.get(); }
    unsigned char Byte() { return static_cast<unsigned char>(input.Byte()); }
    _usbSerialPort Port() {
        constexpr int kPorts[] = {0, 1, 0, 1, 0, 1, 2, -1};
        return static_cast<_usbSerialPort>(input.Pick(kPorts));
    }

    /** That no output has changed behind its first bytes. */
    [[nodiscard]] bool Untouched(std::size_t written = 0) const {
        return std::all_of(outputs_.begin(), outputs_.end(), [written](const Output& output) {
            const unsigned char* bytes = output.bytes.get();
            return std::all_of(bytes + std::min(written, output.size), bytes + output.size,
                               [](unsigned char byte) { return byte == kUntouched; });
        });
    }

    InputBytes& input;
    const unsigned device;
    MarvaneUSB& board;
    int (&kept)[2];  // what each port keeps for its next receive

private:
    struct Output {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t size = 0;
    };
    std::vector<Output> outputs_;
};

// What several operations have in common

template <class Type>
Type Argument(Call& call) {
    if constexpr (std::is_pointer_v<Type>) {
        return call.Out<std::remove_pointer_t<Type>>();
    } else if constexpr (std::is_same_v<Type, _usbSerialPort>) {
        return call.Port();
    } else {
        static_assert(std::is_same_v<Type, _usbInputBitId>);
        return static_cast<_usbInputBitId>(call.Byte() % 40);
    }
}

/** Values of which only the room and, after a failure, the absence is checked. */
template <auto kOperation>
int Read(Call& call) {
    return [&call]<class... Types>(int (MarvaneUSB::*operation)(Types...)) {
        std::tuple<MarvaneUSB&, Types...> arguments{call.board, Argument<Types>(call)...};
        return std::apply(operation, arguments);
    }(kOperation);
}

/** The target holds those bytes, of a word the high one first, and nothing behind them. */
template <class Unit>
void CheckContent(const Call& call, const Unit* target, const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size() / sizeof(Unit); ++i) {
        const int unit = sizeof(Unit) == 1 ? bytes[i] : bytes[2 * i] << 8 | bytes[2 * i + 1];
        Require(target[i] == unit, "not what was delivered");
    }
    Require(call.Untouched(bytes.size()), "writes behind what was delivered");
}

/** An accepted reply after which the operation fails was unfit, and delivers nothing. */
void LeaveOutUnfit(int result, bool isUnfit) {
    if (result == 1 || driver.exchanges == 0 || driver.error != 0) return;
    Require(isUnfit, "the reply was fit");
    driver.delivered.resize(driver.deliveredBefore);
}

/** A record whose bytes are those of the reply. */
template <class Record, int (MarvaneUSB::*kOperation)(Record*)>
int ReadRecord(Call& call) {
    auto* record = call.Out<Record>();
    if ((call.board.*kOperation)(record) == 0) return 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(record);
    for (std::size_t i = 0; i < sizeof(Record); ++i)
        Require(bytes[i] == driver.Arrived(i), "a byte is not the reply's");
    return 1;
}

/** Of an operation that hands out as many bytes as came, to its first output. */
int CheckWholeReply(Call& call, int result) {
    if (result == 1) CheckContent(call, call.FirstOutput(), driver.delivered);
    return result;
}

template <int (MarvaneUSB::*kOperation)(unsigned char*)>
int ReadWholeReply(Call& call) {
    return CheckWholeReply(call, (call.board.*kOperation)(call.Out(call.LongestReply())));
}

template <class Address, class Length>
int ReadMemory(Call& call, int (MarvaneUSB::*operation)(Address, unsigned char*, Length)) {
    constexpr std::uint64_t kNeverAccepted[] = {0xF3FFF, 0xFFFFFFFF, 1UL << 63U, ~0UL};
    auto address = call.input.Take<Address>();
    if (call.Byte() % 8 != 0) address = static_cast<Address>(address % 0xF4100U);
    const auto length =
        static_cast<Length>(call.Byte() % 8 == 0 ? call.input.Pick(kNeverAccepted)
                                                 : call.input.Take<std::uint16_t>() % 700U);
    auto* data = call.Out(std::min<std::size_t>(length, kMostReceived));
    const int result = (call.board.*operation)(address, data, length);

    const int error = call.board.GetLastError();
    LeaveOutUnfit(result,
                  driver.length == 0 ? error == 6 : driver.length > driver.asked && error == 7);
    CheckContent(call, data, driver.delivered);
    Require(result == 0 || driver.delivered.size() == length, "not all was read");
    return result;
}

std::size_t Capacity(Call& call, std::size_t longestReply) {
    constexpr std::size_t kUnlimited[] = {~0UL, ~0UL / 2, ~0UL / 2 + 1, 1UL << 32U};
    const unsigned choice = call.Byte() % 4;
    if (choice == 0) return call.input.Pick(kUnlimited);
    if (choice == 1) return call.input.Take<std::uint16_t>() % 1100U;
    return longestReply - 1 + call.Byte() % 8;
}

/** Hands out what was kept and what was delivered, in order; of words, it may keep a half. */
template <class Unit, class... Rest>
int Receive(Call& call, int (MarvaneUSB::*operation)(_usbSerialPort, Unit*, Rest...)) {
    constexpr std::size_t kSize = sizeof(Unit);
    constexpr std::size_t kMost = kMostReceived / kSize + 1;
    constexpr bool isBounded = sizeof...(Rest) == 2;
    const std::size_t capacity = isBounded ? Capacity(call, call.LongestReply() / kSize) : kMost;
    const _usbSerialPort port = call.Port();
    auto* units = call.Out<Unit>(std::min(capacity, kMost));
    unsigned long count = 0;
    int result = 0;
    if constexpr (isBounded) {
        result = (call.board.*operation)(port, units, capacity, &count);
    } else {
        result = (call.board.*operation)(port, units, &count);
    }
    if (result == 0 && driver.exchanges == 0) return 0;

    int& kept = call.kept[port];
    Bytes bytes(driver.delivered);
    if (kept != kNothingKept) bytes.insert(bytes.begin(), static_cast<unsigned char>(kept));
    kept = kNothingKept;
    if (result == 0 && kSize == 2 && !isBounded) return 0;  // all is lost, as documented

    Require(count <= capacity && count == bytes.size() / kSize, "bytes are lost");
    CheckContent(call, units, bytes);
    const bool boardHasMore = driver.error != 0 || driver.length > 0;
    if (isBounded && boardHasMore && bytes.size() % kSize != 0) kept = bytes.back();
    return result;
}

int ReceivePolled(Call& call, bool isBounded) {
    const std::size_t capacity =
        isBounded ? Capacity(call, call.LongestReply() - 2) : kMostReceived;
    const _usbSerialPort port = call.Port();
    const auto index = static_cast<unsigned char>(call.Byte() % 5);
    auto* buffer = call.Out(std::min(capacity, kMostReceived));
    unsigned long length = 0;
    unsigned status = 0;
    driver.header = 2;
    MarvaneUSB& board = call.board;
    const int result =
        isBounded ? board.ReceivePolledMessageEx(port, index, buffer, capacity, &length, &status)
                  : board.ReceivePolledMessage(port, index, buffer, &length, &status);
    if (driver.exchanges == 0) return result;

    const bool givesUp = isBounded && driver.bare == kMostBareReplies && board.GetLastError() == 6;
    LeaveOutUnfit(result,
                  givesUp || (driver.delivered.size() > capacity && board.GetLastError() == 7));
    Require(length == driver.delivered.size(), "not the length of the message");
    CheckContent(call, buffer, driver.delivered);
    const bool atEnd = driver.length < 2 || driver.Arrived(1) == 0;
    Require(result == 0 || atEnd, "not the end of the message");
    Require(result == 0 || driver.length == 0 || status == driver.Arrived(0), "not its status");
    return result;
}

// Operations of a form of their own

int ReadDiagnosticData(Call& call) {
    unsigned char request[] = {call.Byte()};
    auto* reply = call.Out(call.LongestReply());
    unsigned long length = ~0UL;
    const int result = call.board.ReadDiagnosticData(request, sizeof request, reply, &length);
    Require(length == (result == 1 ? driver.length : ~0UL), "not the length of the reply");
    return CheckWholeReply(call, result);
}

int Send(Call& call, bool toSpi) {
    unsigned char data[256] = {};
    auto* reply = call.Out(call.LongestReply());
    const unsigned char most = call.Byte(), count = call.Byte();
    return CheckWholeReply(call,
                           toSpi ? call.board.SendSPI(count, data, 0, most, reply)
                                 : call.board.SendSEC(1, 2, count % 20, data, 0, most % 20, reply));
}

int SendRaw(Call& call) {
    unsigned char data[520] = {};
    const unsigned long length = call.input.Take<std::uint16_t>() % sizeof data;
    auto* reply = call.Out(call.LongestReply());
    unsigned long replyLength = 0;
    const int channel = call.Byte() % 10 - 1;
    const int result =
        call.board.PerformUSBIO(call.Byte(), channel, data, length, reply, &replyLength);
    // Of the other models what the driver claims is handed on.
    if (!call.IsK40()) return result;
    Require(replyLength == driver.delivered.size(), "not the length of the reply");
    CheckContent(call, reply, driver.delivered);
    return result;
}

/** Another program names a part in the shared segment, or what is none. */
int StoreEeprom(Call& call) {
    std::vector<std::uint8_t> entry(8);
    call.input.Fill(entry.data(), entry.size());
    eeproms.Set(call.device, entry);
    return 1;
}

constexpr Kind kOne = {1, 1, false, true, true};
constexpr Kind kOneOrNone = {1, 1, false, true, false};
constexpr Kind kRaw = {1, 1, false, false, true};
constexpr Kind kUntilEmpty = {kMostAnswers + 1, kMostAnswers, false, false, false};
constexpr Kind kDownload = {300, 64, false, true, true};
constexpr Kind kOpening = {400, 64, true, true, true};

struct Operation {
    const char* name;
    Kind kind;
    int (*call)(Call& call);
};

using M = MarvaneUSB;

// clang-format off
constexpr Operation kOperations[] = {
    {"GetInputs, bytes",        kOne, [](Call& c) { return c.board.GetInputs(c.Out(5)); }},
    {"GetInputs",               kOne, ReadRecord<usbInput, &M::GetInputs>},
    {"GetRawInputs",            kOne, ReadRecord<usbInput, &M::GetRawInputs>},
    {"GetChangedInputs",        kOne, ReadRecord<usbInput, &M::GetChangedInputs>},
    {"GetMultiplexedInputs",    kOne, ReadRecord<usbMultiplexedInput, &M::GetMultiplexedInputs>},
    {"GetInputBit",             kOne, Read<&M::GetInputBit>},
    {"PulseOutputResult",       kOne, Read<&M::PulseOutputResult>},
    {"ReadPulsedInputCounter",  kOne, Read<&M::ReadPulsedInputCounter>},
    {"GetPulsedInputStatus",    kRaw, Read<&M::GetPulsedInputStatus>},
    {"GetParallelHopperStatus", kOne, Read<&M::GetParallelHopperStatus>},
    {"GetRecordingStatus",      kOne, Read<&M::GetRecordingStatus>},
    {"ReadDiagnosticData",      kOne, ReadDiagnosticData},
    {"GetReelStatus",           kOne, Read<&M::GetReelStatus>},
    {"GetReelStatusEx",         kOne, Read<&M::GetReelStatusEx>},

    {"GetParityErrors",     kOne, Read<&M::GetParityErrors>},
    {"GetSASMessageStatus", kOne, Read<&M::GetSASMessageStatus>},
    {"Receive",          kUntilEmpty, [](Call& c) { return Receive(c, &M::Receive); }},
    {"ReceiveEx",        kUntilEmpty, [](Call& c) { return Receive(c, &M::ReceiveEx); }},
    {"Receive9BitData",  kUntilEmpty, [](Call& c) { return Receive(c, &M::Receive9BitData); }},
    {"Receive9BitDataEx", kUntilEmpty, [](Call& c) { return Receive(c, &M::Receive9BitDataEx); }},
    {"ReceivePolledMessage",     kUntilEmpty, [](Call& c) { return ReceivePolled(c, false); }},
    {"ReceivePolledMessageEx",   kUntilEmpty, [](Call& c) { return ReceivePolled(c, true); }},
    {"ReceiveByteWithTimestamp", kOneOrNone, Read<&M::ReceiveByteWithTimestamp>},
    {"ReceiveByteWithTimestamp9BitData", kOneOrNone, Read<&M::ReceiveByteWithTimestamp9BitData>},

    {"ReadEEPROM",    kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadEEPROM); }},
    {"ReadSRAM",      kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadSRAM); }},
    {"ReadLargeSRAM", kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadLargeSRAM); }},
    {"CheckEEPROM",   kOpening,    Read<&M::CheckEEPROM>},
    {"another program names the EEPROM", kOneOrNone, StoreEeprom},

    {"GetClock",                        kOne, Read<&M::GetClock>},
    {"NextSecuritySwitchRead",          kOne, Read<&M::NextSecuritySwitchRead>},
    {"ReadAndResetSecuritySwitchFlags", kOne, Read<&M::ReadAndResetSecuritySwitchFlags>},
    {"CachedReadAndResetSecuritySwitchFlags", kOne, Read<&M::CachedReadAndResetSecuritySwitchFlags>},
    {"ReadAndResetBatteryFailFlag",     kOne, Read<&M::ReadAndResetBatteryFailFlag>},
    {"ReadAndResetRTCFailure",          kOne, Read<&M::ReadAndResetRTCFailure>},
    {"ReadClockAtBatteryFailure",       kOne, Read<&M::ReadClockAtBatteryFailure>},

    {"Get8051Version",        kOne, ReadWholeReply<&M::Get8051Version>},
    {"GetPICVersion",         kOne, ReadWholeReply<&M::GetPICVersion>},
    {"GetPICSerialNumber",    kOne, ReadWholeReply<&M::GetPICSerialNumber>},
    {"GetDallasSerialNumber", kOne,
     [](Call& c) { return c.board.GetDallasSerialNumber(c.Out(8), c.Out()); }},
    {"GetRandomNumber",       kOne, Read<&M::GetRandomNumber>},
    {"SendSPI",               kOne, [](Call& c) { return Send(c, true); }},
    {"SendSEC",               kOne, [](Call& c) { return Send(c, false); }},

    {"PerformUSBIO",   kRaw,       SendRaw},
    {"DownloadHiCode", kDownload,  [](Call& c) { return c.board.DownloadHiCode(); }},
    {"InitPort",       kOpening,
     [](Call& c) { return M().InitPort(static_cast<int>(c.device)); }},
};
// clang-format on

/** For these errors, of arguments and of what a model lacks, nothing is sent. */
bool IsRefusal(int error) {
    constexpr int kRefusals[] = {2, 3, 7, 8, 25, 26, 38};
    return std::find(std::begin(kRefusals), std::end(kRefusals), error) != std::end(kRefusals);
}

void CheckResult(const Kind& kind, const Call& call, int result) {
    const int error = call.board.GetLastError();
    Require(result == 0 || result == 1, "neither 0 nor 1");
    Require(result == 1 || !kind.keepsOutputs || call.Untouched(), "fails, but writes");
    if (driver.exchanges == 0) {
        Require(result == 1 ? !kind.alwaysAsks : IsRefusal(error), "sends nothing");
    } else if (driver.error == 0) {
        Require(result == 1 || kind.most > 1, "fails after an exchange that did not");
        Require(result == 0 || error == 0, "an old error");
    } else if (!kind.goesOnAfterFailure) {
        Require(result == 0 && error == driver.error, "not the error of the exchange");
    }
}

/** With the firmware running, an EEPROM on record, ports and every other input configured. */
void OpenBoard(unsigned deviceNo) {
    constexpr std::uint8_t kFirmwareRuns[] = {0, 1, 1};  // an honest reply of one byte, 1
    InputBytes script(kFirmwareRuns, sizeof kFirmwareRuns);
    eeproms.Set(deviceNo, {0, 0, 0, 0, 0, 0, 1});
    driver.BeginOperation(script, "opening", {100, 1, false, false, true});
    MarvaneUSB& board = boards[deviceNo];
    int accepted = board.InitPort(static_cast<int>(deviceNo));
    _DCB line = {9600, 0, 0};
    for (const auto port : {USB_SERIAL_PORT_0, USB_SERIAL_PORT_1})
        accepted &= board.SetConfig(port, &line, USB_PORT_TYPE_0);
    for (unsigned input = 0; input < 24; input += 2) {
        accepted &=
            board.ConfigurePulsedInput(static_cast<_usbInputBitId>(input), 0, USB_ACTIVE_STATE_0);
    }
    Require(accepted == 1, "no board to begin with");
}

/** Nothing of an input stays behind for the next one. */
void FetchKept(InputBytes& input, MarvaneUSB& board, const int (&kept)[2]) {
    for (const auto port : {USB_SERIAL_PORT_0, USB_SERIAL_PORT_1}) {
        driver.BeginOperation(input, "ReceiveEx at the end", {1, 0, false, false, true});
        unsigned char bytes[256];
        unsigned long length = 0;
        const int result = board.ReceiveEx(port, bytes, sizeof bytes, &length);
        Require(result == 1 && length == (kept[port] == kNothingKept ? 0 : 1), "a byte is lost");
        Require(length == 0 || bytes[0] == kept[port], "not the byte that was kept");
    }
}

}  // namespace

// Faster: blocks are not filled when they are allocated, stacks are short, fewer freed blocks wait.
extern "C" const char* __asan_default_options() {
    return "max_malloc_fill_size=0:malloc_context_size=8:quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    for (unsigned deviceNo = 0; deviceNo < kBoardCount; ++deviceNo)
        OpenBoard(deviceNo);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InputBytes input(data, size);
    const unsigned deviceNo = input.Byte() % kBoardCount;
    receivedBytes.Clear();
    eeproms.Clear();
    int kept[] = {kNothingKept, kNothingKept};
    for (unsigned i = 0; i < kMostOperations && !input.Empty(); ++i) {
        const Operation& operation = input.Pick(kOperations);
        Call call(input, deviceNo, kept);
        call.board.ClearErrors();
        driver.BeginOperation(input, operation.name, operation.kind);
        CheckResult(operation.kind, call, operation.call(call));
    }
    FetchKept(input, boards[deviceNo], kept);
    return 0;
}
