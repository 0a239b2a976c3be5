/**
 * @file reply_fuzzer.cpp
 * @brief Calls the operations that decode replies, with arguments and replies from the fuzzer.
 *
 * An input names a board, then operations with their arguments, and in between what the driver
 * answers to each exchange. What callers are promised is checked after every operation; memory is
 * watched by the sanitizers, for which every output is a heap block of exactly its size.
 */
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

#include "fuzzed_driver.h"
#include "marvaneusb.h"

namespace {

constexpr unsigned kMostOperations = 6;
constexpr unsigned kMostAnswers = 8;  // that are not empty, to an operation that asks on
constexpr std::size_t kMostReceived = kMostAnswers * 256UL;
constexpr unsigned char kUntouched = 0xA5;
constexpr int kNothingKept = -1;

FuzzedDriver& driver = FuzzedDriver::Instance();
auto* const boards = new MarvaneUSB[kBoardCount];  // open to the end of the process

void Require(bool holds, const char* what) {
    driver.Require(holds, what);
}

/** One call: its board, its arguments, its outputs. */
class Call {
public:
    Call(InputBytes& bytes, int deviceNo, int (&keptBytes)[2])
        : input(bytes), device(deviceNo), board(boards[deviceNo]), kept(keptBytes) {}

    [[nodiscard]] bool IsK40() const { return device % 3 == 0; }
    [[nodiscard]] std::size_t LongestReply() const { return IsK40() ? 62 : 256; }

    template <class Value>
    Value* Out(std::size_t count = 1) {
        Output& output = outputs_[outputCount_++];
        output.size = count * sizeof(Value);
        output.bytes = std::make_unique_for_overwrite<unsigned char[]>(output.size);
        std::memset(output.bytes.get(), kUntouched, output.size);
        return reinterpret_cast<Value*>(output.bytes.get());
    }
    unsigned char Byte() { return static_cast<unsigned char>(input.Byte()); }
    _usbSerialPort Port() {
        constexpr int kPorts[] = {0, 1, 0, 1, 0, 1, 2, -1};
        return static_cast<_usbSerialPort>(input.Pick(kPorts));
    }

    /** That no output has changed behind its first bytes. */
    [[nodiscard]] bool Untouched(std::size_t written = 0) const {
        return std::all_of(
            outputs_.begin(), outputs_.begin() + outputCount_, [written](const Output& output) {
                const unsigned char* bytes = output.bytes.get();
                return std::all_of(bytes + std::min(written, output.size), bytes + output.size,
                                   [](unsigned char byte) { return byte == kUntouched; });
            });
    }

    InputBytes& input;
    const int device;
    MarvaneUSB& board;
    int (&kept)[2];  // what each port keeps for its next receive

private:
    struct Output {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t size = 0;
    };
    std::array<Output, 3> outputs_;
    unsigned outputCount_ = 0;
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

template <class... Types>
int CallWithArguments(Call& call, int (MarvaneUSB::*operation)(Types...)) {
    std::tuple<MarvaneUSB&, Types...> arguments{call.board, Argument<Types>(call)...};
    return std::apply(operation, arguments);
}

/** Values of which only the room and, after a failure, the absence is checked. */
template <auto kOperation>
int Read(Call& call) {
    return CallWithArguments(call, kOperation);
}

/** The target begins with that many delivered bytes, and holds nothing behind them. */
void CheckDelivered(Call& call, const unsigned char* target, std::size_t length) {
    Require(length <= driver.Delivered().size(), "more than was delivered");
    Require(std::equal(target, target + length, driver.Delivered().begin()),
            "not what was delivered");
    Require(call.Untouched(length), "writes behind what was delivered");
}

/** A record whose bytes are those of the reply. */
template <class Record>
int ReadRecord(Call& call, int (MarvaneUSB::*operation)(Record*)) {
    auto* record = call.Out<Record>();
    if ((call.board.*operation)(record) == 0) return 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(record);
    for (std::size_t i = 0; i < sizeof(Record); ++i)
        Require(bytes[i] == driver.Arrived(i), "a byte is not the reply's");
    return 1;
}

/** As many bytes as came. */
template <class Operation>
int ReadWholeReply(Call& call, Operation operation) {
    auto* target = call.Out<unsigned char>(call.LongestReply());
    const int result = operation(target);
    if (result == 1) CheckDelivered(call, target, driver.Length());
    return result;
}

template <int (MarvaneUSB::*kOperation)(unsigned char*)>
int ReadWholeReply(Call& call) {
    return ReadWholeReply(call, [&call](auto* target) { return (call.board.*kOperation)(target); });
}

template <class Address, class Length>
int ReadMemory(Call& call, int (MarvaneUSB::*operation)(Address, unsigned char*, Length)) {
    constexpr std::uint64_t kNeverAccepted[] = {0xF3FFF, 0xFFFFFFFF, 1UL << 63U, ~0UL};
    auto address = call.input.Take<Address>();
    if (call.Byte() % 8 != 0) address = static_cast<Address>(address % 0xF4100U);
    const auto length =
        static_cast<Length>(call.Byte() % 8 == 0 ? call.input.Pick(kNeverAccepted)
                                                 : call.input.Take<std::uint16_t>() % 700U);
    auto* data = call.Out<unsigned char>(std::min<std::size_t>(length, kMostReceived));
    const int result = (call.board.*operation)(address, data, length);

    const bool unfit = result == 0 && driver.Exchanges() > 0 && driver.Accepted();
    if (unfit) {
        const int error = call.board.GetLastError();
        Require(driver.Length() == 0 ? error == 6 : driver.Length() > driver.Asked() && error == 7,
                "the reply was fit");
    }
    const std::size_t done = unfit ? driver.DeliveredBefore() : driver.Delivered().size();
    CheckDelivered(call, data, done);
    Require(result == 0 || done == length, "not all was read");
    return result;
}

std::size_t Capacity(Call& call, std::size_t longestReply) {
    constexpr std::size_t kUnlimited[] = {~0UL, ~0UL / 2, ~0UL / 2 + 1, 1UL << 32U};
    const unsigned choice = call.Byte() % 4;
    if (choice == 0) return call.input.Pick(kUnlimited);
    if (choice == 1) return call.input.Take<std::uint16_t>() % 1100U;
    return longestReply - 1 + call.Byte() % 8;
}

template <class Unit>
using ReceiveForm = int (MarvaneUSB::*)(_usbSerialPort, Unit*, unsigned long*);
template <class Unit>
using ReceiveExForm = int (MarvaneUSB::*)(_usbSerialPort, Unit*, unsigned long, unsigned long*);

/** Hands out what was kept and what was delivered, in order; of words, it may keep a half. */
template <class Unit>
int Receive(Call& call, ReceiveForm<Unit> receive, ReceiveExForm<Unit> receiveEx = nullptr) {
    constexpr std::size_t kSize = sizeof(Unit);
    constexpr std::size_t kMost = kMostReceived / kSize + 1;
    const bool isBounded = receiveEx != nullptr;
    const std::size_t capacity = isBounded ? Capacity(call, call.LongestReply() / kSize) : kMost;
    const _usbSerialPort port = call.Port();
    auto* units = call.Out<Unit>(std::min(capacity, kMost));
    unsigned long count = 0;
    const int result = isBounded ? (call.board.*receiveEx)(port, units, capacity, &count)
                                 : (call.board.*receive)(port, units, &count);
    if (result == 0 && driver.Exchanges() == 0) return 0;

    int& kept = call.kept[port];
    std::vector<unsigned char> bytes(driver.Delivered());
    if (kept != kNothingKept) bytes.insert(bytes.begin(), static_cast<unsigned char>(kept));
    kept = kNothingKept;
    if (result == 0 && kSize == 2 && !isBounded) return 0;  // all is lost, as documented

    Require(count <= capacity && count == bytes.size() / kSize, "bytes are lost");
    for (std::size_t i = 0; i < count; ++i) {
        const int unit = kSize == 1 ? bytes[i] : bytes[2 * i] << 8 | bytes[2 * i + 1];
        Require(units[i] == unit, "not what was delivered");
    }
    Require(call.Untouched(bytes.size()), "writes behind what was delivered");
    const bool boardHasMore = !driver.Accepted() || driver.Length() > 0;
    if (isBounded && boardHasMore && bytes.size() % kSize != 0) kept = bytes.back();
    return result;
}

int ReceivePolled(Call& call, bool isBounded) {
    const std::size_t capacity =
        isBounded ? Capacity(call, call.LongestReply() - 2) : kMostReceived;
    const _usbSerialPort port = call.Port();
    const auto index = static_cast<unsigned char>(call.Byte() % 5);
    auto* buffer = call.Out<unsigned char>(std::min(capacity, kMostReceived));
    unsigned long length = 0;
    unsigned status = 0;
    driver.LeaveOut(2);
    const int result =
        isBounded
            ? call.board.ReceivePolledMessageEx(port, index, buffer, capacity, &length, &status)
            : call.board.ReceivePolledMessage(port, index, buffer, &length, &status);
    if (driver.Exchanges() == 0) return result;

    const bool unfit = result == 0 && driver.Accepted();
    Require(!unfit || (driver.Delivered().size() > capacity && call.board.GetLastError() == 7),
            "the reply was fit");
    Require(length == (unfit ? driver.DeliveredBefore() : driver.Delivered().size()),
            "not the length of the message");
    CheckDelivered(call, buffer, length);
    const bool atEnd = driver.Length() < 2 || driver.Arrived(1) == 0;
    Require(result == 0 || atEnd, "not the end of the message");
    Require(result == 0 || driver.Length() == 0 || status == driver.Arrived(0), "not its status");
    return result;
}

template <class Data>
int ReceiveTimestamped(Call& call, int (MarvaneUSB::*operation)(_usbSerialPort, Data*,
                                                                unsigned char*, unsigned*)) {
    auto* data = call.Out<Data>();
    auto* timestamp = call.Out<unsigned char>();
    unsigned received = 2;
    const StoredBytes before = driver.LookAtStoredBytes();
    const int result = (call.board.*operation)(call.Port(), data, timestamp, &received);
    Require(result == 1 ? received <= 1 : received == 2, "neither received nor not");
    if (result == 0) return 0;

    const bool hasStored = before.count <= 256 && before.readIndex < before.count;
    Require(driver.Exchanges() == (hasStored ? 0 : 1), "asks although it has, or has not");
    const StoredBytes after = driver.LookAtStoredBytes();
    Require(after.count <= 256 && after.readIndex <= after.count, "stores an impossible index");
    const int first = hasStored ? before.bytes[before.readIndex] : driver.Arrived(0);
    Require(received == 0 || *data >> 8 * (sizeof(Data) - 1) == first, "not the next byte");
    return 1;
}

// Operations of a form of their own

int GetInputBytes(Call& call) {
    auto* bytes = call.Out<unsigned char>(sizeof(usbInput));
    const int result = call.board.GetInputs(bytes);
    if (result == 1) CheckDelivered(call, bytes, std::min(driver.Length(), sizeof(usbInput)));
    return result;
}

int GetPulsedInputStatus(Call& call) {
    unsigned status = 2;
    const int result = call.board.GetPulsedInputStatus(Argument<_usbInputBitId>(call), &status,
                                                       call.Out<unsigned char>());
    Require(status == (driver.Arrived(0) == 4 ? 1 : 0), "not the status");
    return result;
}

int ReadDiagnosticData(Call& call) {
    unsigned char request[] = {call.Byte()};
    unsigned long length = ~0UL;
    const int result = ReadWholeReply(call, [&](auto* reply) {
        return call.board.ReadDiagnosticData(request, sizeof request, reply, &length);
    });
    Require(length == (result == 1 ? driver.Length() : ~0UL), "not the length of the reply");
    return result;
}

int GetDallasSerialNumber(Call& call) {
    auto* serial = call.Out<unsigned char>(8);
    auto* valid = call.Out<unsigned char>();
    const int result = call.board.GetDallasSerialNumber(serial, valid);
    Require(result == 0 || *valid == 0 || (*valid == 1 && driver.Length() >= 8), "no valid number");
    return result;
}

int CheckEeprom(Call& call) {
    auto* found = call.Out<K40EEPROM>();
    if (call.board.CheckEEPROM(found) == 0) return 0;
    const unsigned size = found->highestAddress + 1U;
    Require(size >= 128 && (size & (size - 1)) == 0, "no EEPROM part");
    return 1;
}

int SendSpi(Call& call) {
    unsigned char data[] = "twenty bytes to send";
    return ReadWholeReply(call, [&](auto* reply) {
        return call.board.SendSPI(call.Byte(), data, 0, call.Byte(), reply);
    });
}

int SendSec(Call& call) {
    unsigned char data[] = "sixteen of bytes";
    return ReadWholeReply(call, [&](auto* reply) {
        return call.board.SendSEC(1, 2, call.Byte() % 20, data, 0, call.Byte() % 20, reply);
    });
}

int SendRaw(Call& call) {
    unsigned char data[520] = {};
    const unsigned long length = call.input.Take<std::uint16_t>() % sizeof data;
    auto* reply = call.Out<unsigned char>(call.LongestReply());
    unsigned long replyLength = 0;
    const int channel = call.Byte() % 10 - 1;
    const int result =
        call.board.PerformUSBIO(call.Byte(), channel, data, length, reply, &replyLength);
    if (!call.IsK40()) return result;  // what the driver claims is handed on
    Require(replyLength == driver.Length(), "not the length of the reply");
    CheckDelivered(call, reply, replyLength);
    return result;
}

template <class Number>
int Open(Call& call, int (MarvaneUSB::*operation)(Number), int number) {
    MarvaneUSB opened;
    unsigned char type = 0;
    const int result = (opened.*operation)(static_cast<Number>(number));
    Require(result == 0 || (opened.GetFittedBoard(&type) == 1 && type == call.device % 3 + 1),
            "another model is open");
    return result;
}

struct Kind {
    ExchangeLimits limits;
    bool keepsOutputs;  // when it fails
    bool alwaysAsks;    // to succeed
};
constexpr Kind kOne = {{1, 1, false}, true, true};
constexpr Kind kOneOrNone = {{1, 1, false}, true, false};
constexpr Kind kRaw = {{1, 1, false}, false, true};
constexpr Kind kUntilEmpty = {{kMostAnswers + 1, kMostAnswers, false}, false, false};
constexpr Kind kDownload = {{300, 64, false}, true, true};
constexpr Kind kDetection = {{100, 64, true}, true, true};
constexpr Kind kOpening = {{400, 64, true}, true, true};

struct Operation {
    const char* name;
    Kind kind;
    int (*call)(Call& call);
};

using M = MarvaneUSB;

// clang-format off
constexpr Operation kOperations[] = {
    {"GetInputs, bytes",        kOne, GetInputBytes},
    {"GetInputs",               kOne, [](Call& c) { return ReadRecord<usbInput>(c, &M::GetInputs); }},
    {"GetRawInputs",            kOne, [](Call& c) { return ReadRecord(c, &M::GetRawInputs); }},
    {"GetChangedInputs",        kOne, [](Call& c) { return ReadRecord(c, &M::GetChangedInputs); }},
    {"GetMultiplexedInputs",    kOne, [](Call& c) { return ReadRecord(c, &M::GetMultiplexedInputs); }},
    {"GetInputBit",             kOne, Read<&M::GetInputBit>},
    {"PulseOutputResult",       kOne, Read<&M::PulseOutputResult>},
    {"ReadPulsedInputCounter",  kOne, Read<&M::ReadPulsedInputCounter>},
    {"GetPulsedInputStatus",    kOne, GetPulsedInputStatus},
    {"GetParallelHopperStatus", kOne, Read<&M::GetParallelHopperStatus>},
    {"GetRecordingStatus",      kOne, Read<&M::GetRecordingStatus>},
    {"ReadDiagnosticData",      kOne, ReadDiagnosticData},
    {"GetReelStatus",           kOne, Read<&M::GetReelStatus>},
    {"GetReelStatusEx",         kOne, Read<&M::GetReelStatusEx>},

    {"GetParityErrors",     kOne, Read<&M::GetParityErrors>},
    {"GetSASMessageStatus", kOne, Read<&M::GetSASMessageStatus>},
    {"Receive",             kUntilEmpty, [](Call& c) { return Receive(c, &M::Receive); }},
    {"ReceiveEx",           kUntilEmpty, [](Call& c) { return Receive<unsigned char>(c, nullptr, &M::ReceiveEx); }},
    {"Receive9BitData",     kUntilEmpty, [](Call& c) { return Receive(c, &M::Receive9BitData); }},
    {"Receive9BitDataEx",   kUntilEmpty, [](Call& c) { return Receive<unsigned short>(c, nullptr, &M::Receive9BitDataEx); }},
    {"ReceivePolledMessage",             kUntilEmpty, [](Call& c) { return ReceivePolled(c, false); }},
    {"ReceivePolledMessageEx",           kUntilEmpty, [](Call& c) { return ReceivePolled(c, true); }},
    {"ReceiveByteWithTimestamp",         kOneOrNone, [](Call& c) { return ReceiveTimestamped(c, &M::ReceiveByteWithTimestamp); }},
    {"ReceiveByteWithTimestamp9BitData", kOneOrNone, [](Call& c) { return ReceiveTimestamped(c, &M::ReceiveByteWithTimestamp9BitData); }},

    {"ReadEEPROM",    kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadEEPROM); }},
    {"ReadSRAM",      kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadSRAM); }},
    {"ReadLargeSRAM", kUntilEmpty, [](Call& c) { return ReadMemory(c, &M::ReadLargeSRAM); }},
    {"CheckEEPROM",   kDetection,  CheckEeprom},

    {"GetClock",                              kOne, Read<&M::GetClock>},
    {"NextSecuritySwitchRead",                kOne, Read<&M::NextSecuritySwitchRead>},
    {"ReadAndResetSecuritySwitchFlags",       kOne, Read<&M::ReadAndResetSecuritySwitchFlags>},
    {"CachedReadAndResetSecuritySwitchFlags", kOne, Read<&M::CachedReadAndResetSecuritySwitchFlags>},
    {"ReadAndResetBatteryFailFlag",           kOne, Read<&M::ReadAndResetBatteryFailFlag>},
    {"ReadAndResetRTCFailure",                kOne, Read<&M::ReadAndResetRTCFailure>},
    {"ReadClockAtBatteryFailure",             kOne, Read<&M::ReadClockAtBatteryFailure>},

    {"Get8051Version",        kOne, ReadWholeReply<&M::Get8051Version>},
    {"GetPICVersion",         kOne, ReadWholeReply<&M::GetPICVersion>},
    {"GetPICSerialNumber",    kOne, ReadWholeReply<&M::GetPICSerialNumber>},
    {"GetDallasSerialNumber", kOne, GetDallasSerialNumber},
    {"GetRandomNumber",       kOne, Read<&M::GetRandomNumber>},
    {"SendSPI",               kOne, SendSpi},
    {"SendSEC",               kOne, SendSec},

    {"PerformUSBIO",   kRaw,       SendRaw},
    {"DownloadHiCode", kDownload,  [](Call& c) { return c.board.DownloadHiCode(); }},
    {"InitPort",       kOpening,   [](Call& c) { return Open(c, &M::InitPort, c.device); }},
    {"InitUSBBoard",   kOpening,   [](Call& c) { return Open(c, &M::InitUSBBoard, c.Byte() % 8); }},

    {"another program stores bytes",     kOneOrNone, [](Call& /*c*/) { return driver.StoreBytes(); }},
    {"another program names the EEPROM", kOneOrNone, [](Call& /*c*/) { return driver.StoreEeprom(); }},
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
    if (driver.Exchanges() == 0) {
        Require(result == 1 ? !kind.alwaysAsks : IsRefusal(error), "sends nothing");
    } else if (driver.Accepted()) {
        Require(result == 1 || kind.limits.most > 1, "fails after an exchange that did not");
        Require(result == 0 || error == 0, "an old error");
    } else if (!kind.limits.goesOnAfterFailure) {
        Require(result == 0 && error == driver.Error(), "not the error of the exchange");
    }
}

/** With the firmware running, an EEPROM on record, ports and every other input configured. */
void OpenBoard(int deviceNo) {
    constexpr std::uint8_t kFirmwareRuns[] = {0, 1, 1};  // an honest reply of one byte, 1
    InputBytes script(kFirmwareRuns, sizeof kFirmwareRuns);
    driver.Begin(script, deviceNo);
    driver.eeproms.Set(static_cast<std::size_t>(deviceNo), {0, 0, 0, 0, 0, 0, 1});
    driver.BeginOperation("opening", {100, 1, false});
    MarvaneUSB& board = boards[deviceNo];
    int accepted = board.InitPort(deviceNo);
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
void FetchKept(MarvaneUSB& board, const int (&kept)[2]) {
    for (const auto port : {USB_SERIAL_PORT_0, USB_SERIAL_PORT_1}) {
        driver.BeginOperation("ReceiveEx at the end", {1, 0, false});
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
    for (int deviceNo = 0; deviceNo < kBoardCount; ++deviceNo)
        OpenBoard(deviceNo);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InputBytes input(data, size);
    const int deviceNo = static_cast<int>(input.Byte() % kBoardCount);
    driver.Begin(input, deviceNo);
    driver.receivedBytes.Clear();
    driver.eeproms.Clear();
    int kept[] = {kNothingKept, kNothingKept};
    for (unsigned i = 0; i < kMostOperations && !input.Empty(); ++i) {
        const Operation& operation = input.Pick(kOperations);
        Call call(input, deviceNo, kept);
        call.board.ClearErrors();
        driver.BeginOperation(operation.name, operation.kind.limits);
        CheckResult(operation.kind, call, operation.call(call));
    }
    FetchKept(boards[deviceNo], kept);
    return 0;
}
