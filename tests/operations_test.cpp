/**
 * @file operations_test.cpp
 * @brief What operations have in common: one exchange, results in fixed places, and the checks of
 * pointers, ranges, models and ports. What is special about one stands in its family's test.
 */
#include <algorithm>
#include <map>
#include <type_traits>

#include "board_test.h"
#include "children.h"
#include "outside_view.h"
#include "shared_entries.h"

namespace {

constexpr std::size_t kPlaceRoom = 96;

/** Where the pointers of an operation lead to: three places, all bytes 0xEE. */
class Places {
public:
    static constexpr int kNone = -1, kAll = -2;

    /** Of whatever type the operation wants. */
    struct Pointer {
        template <class Target>
        operator Target*() const {  // NOLINT(google-explicit-constructor)
            return static_cast<Target*>(at);
        }
        void* at;
    };

    Pointer operator[](int place) {
        used = std::max(used, place + 1);
        return {missing == place || missing == kAll ? nullptr : bytes_[place]};
    }
    void Refill() { std::fill_n(bytes_[0], sizeof bytes_, 0xEE); }
    void Expect(const std::vector<Bytes>& results) {
        for (std::size_t place = 0; place < 3; ++place) {
            Bytes expected = place < results.size() ? results[place] : Bytes();
            expected.resize(kPlaceRoom, 0xEE);
            EXPECT_EQ(Bytes(bytes_[place], bytes_[place] + kPlaceRoom), expected) << place;
        }
    }

    int missing = kNone;
    int used = 0;  // by the calls since this was 0

private:
    alignas(8) unsigned char bytes_[3][kPlaceRoom];
};

struct Ranged {
    long first, last;
    int error = 8;
};

/** Numbers of checks: all others lie around these two. */
constexpr int kPointers = 0, kPort = 9;

/**
 * The arguments of an operation that have a range, by the number of their check: the operation
 * makes them in ascending order, those below 0 before it looks at pointers, all before it looks at
 * the port. As long as nothing is chosen, each is the last value of its range.
 */
class Arguments {
public:
    /** Of whatever type the operation wants. */
    struct Argument {
        template <class Target>
        operator Target() const {  // NOLINT(google-explicit-constructor)
            isByte = sizeof(Target) == 1;
            holds = [](long number, bool isSigned) {
                if (sizeof(Target) == 1 && isSigned)
                    return static_cast<signed char>(number) == number;
                return static_cast<long>(static_cast<Target>(number)) == number;
            };
            return static_cast<Target>(value);
        }

        /** All that a byte can be; of wider types what a check could take for a value in range. */
        [[nodiscard]] std::vector<long> Values() const {
            constexpr long k31 = 1L << 31, k32 = 1L << 32;
            const auto [first, last, error] = range;
            std::vector<long> values = {first, last,       first - 1,     last + 1,   -1,
                                        -k31,  last + 256, first + 65536, last + k31, last + k32};
            for (long byte = -128; isByte && byte < 256; ++byte)
                values.push_back(byte);
            std::erase_if(values, [&](long each) { return !holds(each, first < 0); });
            return values;
        }
        [[nodiscard]] bool Allows(long number) const {
            return range.first <= number && number <= range.last;
        }
        [[nodiscard]] long BadValue() const { return range.last + 1; }

        Ranged range = {};
        long value = 0;
        mutable bool isByte = false;
        mutable bool (*holds)(long number, bool isSigned) = nullptr;
    };

    const Argument& operator()(int check, Ranged range) {
        const auto number = chosen.find(check);
        Argument& argument = known[check];
        argument.range = range;
        argument.value = number != chosen.end() ? number->second
                         : allBad               ? argument.BadValue()
                                                : range.last;
        return argument;
    }

    /** The error when all are bad and this check fails, too, which alone would give `otherwise`. */
    [[nodiscard]] int ErrorBefore(int check, int otherwise) const {
        const bool comesFirst = !known.empty() && known.begin()->first < check;
        return comesFirst ? known.begin()->second.range.error : otherwise;
    }

    std::map<int, Argument> known;  // from the calls since this was empty
    std::map<int, long> chosen;
    bool allBad = false;
};

struct Operation {
    std::string name;
    std::function<int()> call;
    Exchange sent;  // command 0: looked at in its family's test
    Bytes reply = {};
    std::vector<Bytes> results = {};  // what that reply leaves in each place
};

enum Models : unsigned { kEveryModel = 7, kNotK40 = 6, kOnlyK50 = 4, kOtherOnK40 = 14 };

/** What a reply without data, or a refusal, leaves in the places. */
enum class Empty { kZeroes, kNothing, kElsewhere };

/** Operations of the same models. */
struct Group {
    Models models;
    bool onPort;  // the channel is the port's
    Empty empty;
    std::vector<Operation> operations;
};

const auto kState = static_cast<ActiveState>(0x12345601);
constexpr auto kByteOf8 = static_cast<_usbOutputId>(3);
const usbOutput kPattern = {{1, 2, 3, 4, 5}};
const Bytes kOnAndOff = {238, 238, 238, 238, 238, 17, 17, 17, 17, 17};
const Bytes kDallas = {0x02, 0x1C, 0xB8, 0x01, 0x00, 0x00, 0x00, 0xA2};
const Bytes kReels = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x11, 0x12, 0x13, 0x14,
                      0x15, 0x16, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x31};
const Bytes kWideReels = {2,    1,    0x12, 0x11, 0x22, 0x21, 4, 3,    0x14,
                          0x13, 0x24, 0x23, 5,    0x15, 0x25, 6, 0x16, 0x26};
const Bytes kNarrowReels = {2, 0x12, 0x22, 4, 0x14, 0x24, 5, 0x15, 0x25, 6, 0x16, 0x26};
/** A header, then the same byte again and again, and what follows. */
Bytes Filled(Bytes start, std::size_t count, std::uint8_t byte, const Bytes& end = {}) {
    start.insert(start.end(), count, byte);
    start.insert(start.end(), end.begin(), end.end());
    return start;
}
const Bytes kRamp = Filled({2, 60}, 60, 7);
const Bytes kTimeoutMessage = Filled({233, 60}, 60, 0xEE);
const Bytes kEepromWrite = Filled({7, 0xF8, 0x7F}, 7, 0xEE);
const Bytes kSpi = Filled({160, 160, 5}, 20, 0xEE);
const Bytes kSec = Filled({160, 160, 5, 6, 7, 16}, 16, 0xEE, {253});  // 29 + 16 * 238, modulo 256
const Bytes kFourteen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
const Bytes kThirteen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};

class OperationsTest : public BoardTest {
protected:
    ~OperationsTest() override { receivedBytes.Clear(); }

    using Look = std::function<void(const Group&, const Operation&)>;

    /** Looks at each operation that each model has, or lacks; all that it needs is configured. */
    void ForEach(const Look& look, bool has = true) {
        for (const Model each : kModels) {
            model = each;
            OpenConfigured(model);
            for (const unsigned input : {0U, 23U, 24U, 32U})
                ASSERT_EQ(board.ConfigurePulsedInput(_usbInputBitId{input}, 1, kState), 1);
            ASSERT_EQ(board.ConfigureReels(3, 0, 0), 1);
            driver.AnswerWith(ReadsOf7);
            for (const Group& group : groups) {
                const bool isThere = (group.models & 1U << (static_cast<int>(model) - 1)) != 0;
                if (isThere != has || (!has && group.models == kOtherOnK40)) continue;
                for (const Operation& operation : group.operations) {
                    SCOPED_TRACE(ModelName(model));
                    look(group, operation);
                }
            }
        }
    }

    void ExpectCall(const Operation& operation, int result, int error, const Exchanges& sent,
                    const std::vector<Bytes>& results = {}) {
        SCOPED_TRACE(operation.name);
        receivedBytes.Clear();
        at.Refill();
        Expect({{operation.name, operation.call, result, error, sent}});
        at.Expect(results);
    }

    static DriverAnswer ReadsOf7(const Exchange& exchange) {
        return {.reply = Bytes(exchange.command == 5 ? exchange.payload[0] : 0, 7)};
    }
    static usbRampTable Ramp(unsigned char length) {
        usbRampTable table;
        table.length = length;
        std::fill_n(table.steps, sizeof table.steps, 7);
        return table;
    }
    /** Line parameters of this rate, unless they are missing. */
    _DCB* Line(void* place, unsigned long rate) {
        line = {rate, 0, 0};
        return place == nullptr ? nullptr : &line;
    }

    Exchange Sent(const Group& group, const Operation& operation) const {
        Exchange sent = operation.sent;
        if (group.onPort) sent.channel = ChannelOf(port);
        return sent;
    }

    SharedEntries receivedBytes = SharedEntries::OfReceivedBytes();
    Model model = Model::kK40;
    Places at;
    Arguments arg;
    _DCB line = {};
    _usbSerialPort port = kPort1;

    // clang-format off
    const std::vector<Group> groups = {
        {kEveryModel, false, Empty::kZeroes, {
            {CALL(GetInputs(static_cast<usbInput*>(at[0]))), {75, 1, {}},
             {1, 2, 3, 4, 255, 6}, {{1, 2, 3, 4, 255}}},
            {CALL(GetRawInputs(at[0])), {82, 1, {}}, {1, 2}, {{1, 2, 0, 0, 0}}},
            {CALL(GetChangedInputs(at[0])), {81, 1, {}}, {1, 2}, {{1, 2, 0, 0, 0}}},
            {CALL(GetInputBit(arg(0, {0, 32}), at[0])), {75, 1, {}},
             {0, 0, 0, 0, 1}, {{1, 0, 0, 0}}},
            {CALL(GetMultiplexedInputs(at[0])), {115, 1, {}}, kFourteen, {kThirteen}},
            {CALL(InputMultiplexing(arg(0, {0, 1}))), {114, 1, {1}}},

            {CALL(SetOutputs(at[0])), {77, 1, kOnAndOff}},
            {CALL(ModifyOutputs(at[0], at[1])), {77, 1, Bytes(10, 0xEE)}},
            {CALL(SetOutputBit(arg(0, {0, 37}), arg(1, {0, 1}))),
             {77, 1, {0, 0, 0, 0, 32, 0, 0, 0, 0, 0}}},
            {CALL(SetOnPeriodOutputs(kPattern)), {83, 1, {1, 2, 3, 4, 5}}},
            {CALL(SetOffPeriodOutputs(kPattern)), {84, 1, {1, 2, 3, 4, 5}}},
            {CALL(SetOnPeriodOutputBit(arg(0, {0, 4}), arg(1, {0, 5}), arg(2, {0, 1}))),
             {83, 1, {1, 2, 3, 4, 37}}},
            {CALL(SetOffPeriodOutputBit(kByteOf8, arg(0, {0, 7}), arg(1, {0, 1}))),
             {84, 1, {1, 2, 3, 132, 5}}},
            {CALL(SetOutputBrightness(arg(0, {0, 10}))), {85, 1, {10}}},
            {CALL(PulseOutput(arg(0, {0, 31}), 200)), {78, 1, {200, 31}}},
            {CALL(PulseOffOutput(arg(0, {0, 31}), 7)), {79, 1, {7, 31}}},
            {CALL(PulseOutputResult(at[0], at[1], at[2])), {80, 1, {}},
             {200, 201, 255, 1}, {{200}, {201, 0, 0, 0}, {255, 0, 0, 0}}},

            {CALL(BeginPulsedInputCheck(arg(0, {0, 23}))), {108, 1, {23, 1}}},
            {CALL(EndPulsedInputCheck(arg(0, {0, 23}))), {108, 1, {23, 0}}},
            {CALL(ResetPulsedInputCounter(arg(0, {0, 23}))), {109, 1, {23}}},
            {CALL(DecrementPulsedInputCounter(arg(0, {0, 23}))), {110, 1, {23}}},
            {CALL(ReadPulsedInputCounter(arg(0, {0, 23}), at[0])), {111, 1, {23}},
             {200, 1}, {{200}}},
            {CALL(GetParallelHopperStatus(arg(0, {0, 23}), at[0], at[1])), {113, 1, {23}},
             {255, 6}, {{255, 0, 0, 0}, {6}}},

            {CALL(ConfigureReels(arg(0, {0, 3}), 200, 1)), {86, 1, {3, 0, 200, 1}}},
            {CALL(ConfigureReelsEx(arg(0, {0, 3}), 0x0102, 4)), {86, 1, {3, 1, 2, 4}}},
            {CALL(SpinReels(arg(1, {0, 2, 38}), arg(0, {-2, 2}), 0x0102)), {87, 1, {2, 2, 1, 2}}},
            {CALL(SpinReels(2, 254, 0x0102)), {87, 1, {2, 254, 1, 2}}},
            {CALL(SpinRampUp(arg(0, {0, 2, 16}), Ramp(arg(1, {0, 60})))), {88, 1, kRamp}},
            {CALL(SpinRampDown(arg(0, {0, 2, 16}), Ramp(arg(1, {0, 60})))), {89, 1, kRamp}},
            {CALL(SetDutyCycle(1, 2, 255)), {90, 1, {1, 2, 255}}},
            {CALL(ReelSynchroniseEnable(200)), {91, 1, {200}}},
            {CALL(GetReelStatusEx(at[0])), {92, 1, {}}, kReels, {kWideReels}},
            {CALL(GetReelStatus(at[0])), {92, 1, {}}, kReels, {kNarrowReels}},

            {CALL(SetClock((7UL << 32) + 0x12345678)), {20, 5, {0x78, 0x56, 0x34, 0x12}}},
            {CALL(GetClock(at[0])), {21, 5, {}}, {1, 2, 3, 0xF4, 9}, {{1, 2, 3, 0xF4, 0, 0, 0, 0}}},
            {CALL(StartSecuritySwitchRead()), {40, 5, {}}},
            {CALL(NextSecuritySwitchRead(at[0], at[1])), {41, 5, {}},
             {1, 2, 3, 4, 5, 6}, {{1, 2, 3, 4, 0, 0, 0, 0}, {5}}},
            {CALL(ClearSecuritySwitches()), {42, 5, {}}},
            {CALL(ReadAndResetSecuritySwitchFlags(at[0], at[1])), {64, 5, {}},
             {7, 8, 9}, {{7}, {8}}},
            {CALL(CachedReadAndResetSecuritySwitchFlags(at[0], at[1])), {67, 5, {}},
             {7, 8, 9}, {{7}, {8}}},

            {CALL(SetPICSerialNumber(at[0])), {65, 5, Bytes(8, 0xEE)}},
            {CALL(GetRandomNumber(at[0])), {68, 5, {}}, {0x34, 0x12, 0x56}, {{0x34, 0x12}}},
            {CALL(EnableRandomNumberGenerator(0x1F2345678)), {69, 5, {0x78, 0x56, 0x34, 0xF2}}},
            {CALL(DisableRandomNumberGenerator()), {118, 5, {}}},
            {CALL(EnableSPI()), {94, 7, {}}},
            {CALL(DisableSPI()), {95, 7, {}}},

            {CALL(SetConfig(arg(1, {0, 1, 11}), Line(at[0], arg(2, {9600, 9600, 10})),
                            arg(0, {0, 3, 11}))),
             {97, 4, {3, 0, 0, 0, 0x64, 0xFF}}},
            {CALL(WriteEEPROM(arg(-1, {8, 32760}), at[0], 7)), {4, 2, kEepromWrite}},
        }},
        {kEveryModel, false, Empty::kNothing, {
            {CALL(GetInputs(static_cast<unsigned char*>(at[0]))), {75, 1, {}},
             {1, 2, 3, 4, 255, 6}, {{1, 2, 3, 4, 255}}},
            {CALL(Get8051Version(at[0])), {6, 2, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(GetPICVersion(at[0])), {44, 5, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(GetPICSerialNumber(at[0])), {63, 5, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(SendSPI(arg(1, {1, 160, 2}), at[0], 5, arg(0, {0, 160, 2}), at[1])),
             {96, 7, kSpi}, {1, 2}, {{}, {1, 2}}},
            {CALL(SendSEC(6, 7, arg(0, {0, 16, 2}), at[0], 5, arg(1, {0, 16, 2}), at[1])),
             {96, 7, kSec}, {1, 2}, {{}, {1, 2}}},
        }},
        {kEveryModel, false, Empty::kElsewhere, {
            {CALL(ReadEEPROM(arg(-1, {8, 32760}), at[0], 7)), {5, 2, {7, 0xF8, 0x7F}},
             {1, 2, 3, 4, 5, 6, 7}, {{1, 2, 3, 4, 5, 6, 7}}},
        }},
        {kOtherOnK40, false, Empty::kZeroes, {
            {CALL(ConfigurePulsedInput(arg(0, {0, 32}), 10, kState)), {107, 1, {32, 10, 1, 0}}},
            {CALL(ReleaseParallelHopperCoins(arg(0, {0, 32}), 10, kState, arg(1, {0, 37}), 258, 3)),
             {112, 1, {32, 10, 1, 37, 1, 2, 3, 0}}},
        }},
        {kNotK40, false, Empty::kZeroes, {
            {CALL(ConfigurePulsedInputEx(arg(0, {0, 32}), 10, 20, kState)),
             {107, 1, {32, 10, 1, 20}}},
            {CALL(ReleaseParallelHopperCoinsEx(arg(0, {0, 32}), 10, 20, kState, arg(1, {0, 37}),
                                               0xFFFE, 3)),
             {112, 1, {32, 10, 1, 37, 255, 254, 3, 20}}},
            {CALL(StopHopperCoinRelease(arg(0, {0, 32}))), {124, 1, {32}}},
            {CALL(ConfigureRecordingInputs(at[0], 0, 0)), {}},
            {CALL(StartRecordingInputs(arg(0, {10, 15000}))), {126, 1, {0x3A, 0x98}}},
            {CALL(GetRecordingStatus(at[0], at[1], at[2])), {127, 1, {}},
             {200, 1, 2, 3, 4}, {{200, 0, 0, 0}, {2, 1}, {4, 3}}},
            {CALL(WriteDiagnosticData(at[0], 2)), {129, 1, {0xEE, 0xEE}}},
            {CALL(GetDallasSerialNumber(at[0], at[1])), {120, 5, {}}, kDallas, {kDallas, {1}}},
            {CALL(ReadAndResetBatteryFailFlag(at[0])), {119, 5, {}}, {7, 8}, {{7}}},
        }},
        {kNotK40, false, Empty::kElsewhere, {
            {CALL(ReadDiagnosticData(at[0], 1, at[1], at[2])), {128, 1, {0xEE}},
             {1, 2, 3}, {{}, {1, 2, 3}, {3, 0, 0, 0, 0, 0, 0, 0}}},
        }},
        {kOnlyK50, false, Empty::kZeroes, {
            {CALL(ReadAndResetRTCFailure(at[0])), {220, 5, {}}, {7, 8}, {{7}}},
            {CALL(ReadClockAtBatteryFailure(at[0])), {221, 5, {}},
             {1, 2, 3, 0xF4}, {{1, 2, 3, 0xF4, 0, 0, 0, 0}}},
        }},
        {kEveryModel, true, Empty::kZeroes, {
            {CALL(Send(port, at[0], 2)), {98, 0, {0xEE, 0xEE}}},
            {CALL(Send(port, at[0], 0)), {}},
            {CALL(Send9BitData(port, at[0], 1)), {98, 0, {0xEE, 0xEE}}},
            {CALL(GetParityErrors(port, at[0])), {100, 0, {}}, {0x12, 0x34, 0x56}, {{0x34, 0x12}}},
            {CALL(SetTimeoutMessage(port, at[0], arg(-2, {0, 60, 7}), arg(-1, {0, 7}))),
             {101, 0, kTimeoutMessage}},
            {CALL(SetPolledHostTimeout(port, arg(0, {0, 3}), arg(1, {0, 25}))), {121, 0, {3, 250}}},
            {CALL(EmptyPolledBuffer(port, arg(0, {0, 3}))), {104, 0, {3}}},
            {CALL(DeletePolledMessage(port, arg(0, {0, 3}))), {106, 0, {3}}},
            {CALL(ConfigureCCTalkPort(port, at[0])), {}},
            {CALL(ConfigureRS232Poll(port, at[0])), {}},
        }},
        {kEveryModel, true, Empty::kElsewhere, {
            {CALL(Receive(port, at[0], at[1])), {}},
            {CALL(ReceiveEx(port, at[0], 0, at[1])), {}},
            {CALL(Receive9BitData(port, at[0], at[1])), {}},
            {CALL(Receive9BitDataEx(port, at[0], 0, at[1])), {}},
            {CALL(ReceiveByteWithTimestamp(port, at[0], at[1], at[2])), {102, 0, {}},
             {1, 2}, {{1}, {2}, {1, 0, 0, 0}}},
            {CALL(ReceiveByteWithTimestamp9BitData(port, at[0], at[1], at[2])), {102, 0, {}},
             {1, 2, 3}, {{2, 1}, {3}, {1, 0, 0, 0}}},
            {CALL(ReceivePolledMessage(port, arg(0, {0, 3}), at[0], at[1], at[2])), {105, 0, {3}},
             {5, 0, 9}, {{9}, {1, 0, 0, 0, 0, 0, 0, 0}, {5, 0, 0, 0}}},
            {CALL(ReceivePolledMessageEx(port, arg(0, {0, 3}), at[0], 1, at[1], at[2])),
             {105, 0, {3}}, {5, 0, 9}, {{9}, {1, 0, 0, 0, 0, 0, 0, 0}, {5, 0, 0, 0}}},
        }},
        {kNotK40, true, Empty::kZeroes, {
            {CALL(SetSASMachineAddress(port, arg(0, {0, 127}))), {122, 0, {127}}},
            {CALL(SetSASAutoReply(port, 0xFFFFFF01, 7)), {123, 0, {1, 7}}},
            {CALL(SetSASBusy(port, 0x101)), {123, 0, {1, 0}}},
            {CALL(GetSASMessageStatus(port, at[0])), {124, 0, {}}, {255, 1}, {{255, 0, 0, 0}}},
        }},
    };
    // clang-format on
};

TEST_F(OperationsTest, OneExchangeAndItsResultsInTheirPlaces) {
    ForEach([&](const Group& group, const Operation& operation) {
        if (operation.sent.command == 0) return;
        for (const _usbSerialPort each : kPorts) {
            port = each;
            const Exchange sent = Sent(group, operation);
            driver.AnswerNext({.reply = operation.reply});
            ExpectCall(operation, 1, 0, {sent}, operation.results);

            std::vector<Bytes> zeroes;
            for (const Bytes& result : operation.results)
                zeroes.emplace_back(group.empty == Empty::kZeroes ? result.size() : 0);
            if (group.empty == Empty::kElsewhere) continue;
            // Bytes that the driver brings, but does not claim, have not come.
            const std::uint64_t noData = model == Model::kK40 ? 2 : 0;
            driver.AnswerNext({.reply = operation.reply, .claimedLength = noData});
            ExpectCall(operation, 1, 0, {sent}, zeroes);
        }
    });
}

TEST_F(OperationsTest, WithinItsRangeAnArgumentIsTakenAndOfTwoBadOnesTheFirstIsNamed) {
    ForEach([&](const Group&, const Operation& operation) {
        arg.known.clear();
        operation.call();
        for (const auto& [check, argument] : std::map(arg.known)) {
            for (const long value : argument.Values()) {
                SCOPED_TRACE(operation.name + ": " + std::to_string(value));
                arg.chosen = {{check, value}};
                if (!argument.Allows(value)) {
                    ExpectCall(operation, 0, argument.range.error, {});
                    continue;
                }
                StartAfresh();
                EXPECT_EQ(operation.call(), 1);
                EXPECT_EQ(board.GetLastError(), 0);
                ASSERT_EQ(driver.Sent().size(), 1U);
                EXPECT_EQ(driver.Sent()[0].command, operation.sent.command);
            }
            for (const auto& [other, later] : std::map(arg.known)) {
                if (other <= check) continue;
                arg.chosen = {{check, argument.BadValue()}, {other, later.BadValue()}};
                ExpectCall(operation, 0, argument.range.error, {});
            }
        }
        arg.chosen.clear();
    });
}

TEST_F(OperationsTest, AMissingPointerIsNamedBeforeAllThatIsCheckedLater) {
    ForEach([&](const Group&, const Operation& operation) {
        at.used = 0;
        arg.known.clear();
        operation.call();
        port = static_cast<_usbSerialPort>(2);
        for (at.missing = at.used - 1; at.missing >= 0; --at.missing) {
            ExpectCall(operation, 0, 30, {});
            arg.allBad = true;
            ExpectCall(operation, 0, arg.ErrorBefore(kPointers, 30), {});
            arg.allBad = false;
        }
        port = kPort1;
    });
}

TEST_F(OperationsTest, ARefusalOfTheBoardIsPassedOnAndNothingStored) {
    ForEach([&](const Group& group, const Operation& operation) {
        if (operation.sent.command == 0 || operation.sent.command == 105) return;
        driver.AnswerNext({.status = 9, .reply = Bytes(20, 1)});
        ExpectCall(operation, 0, 9, {Sent(group, operation)});
    });
}

TEST_F(OperationsTest, AModelRefusesWhatItLacksWhateverTheArguments) {
    const auto refuse = [&](const Group& group, const Operation& operation) {
        for (const bool good : {false, true}) {
            at.missing = good ? Places::kNone : Places::kAll;
            arg.allBad = !good;
            port = good ? kPort1 : static_cast<_usbSerialPort>(-5);
            ExpectCall(operation, 0, model == Model::kK40 ? 25 : 26, {});
        }
        EXPECT_TRUE(model == Model::kK40 || group.models == kOnlyK50);
    };
    ForEach(refuse, false);
}

TEST_F(OperationsTest, WithNoBoardOpenAllFailAndOnlySasSaysWhy) {
    at.missing = Places::kAll;
    arg.allBad = true;
    for (const Group& group : groups) {
        const bool sas = group.onPort && group.models == kNotK40;
        for (const Operation& operation : group.operations)
            ExpectCall(operation, 0, sas ? 25 : 0, {});
    }
    Expect({
        {CALL(GetFittedBoard(nullptr)), 0, 0, {}},
        {CALL(GetChangedInputsCallbackState(nullptr)), 0, 0, {}},
        {CALL(GetChangedInputsCallbackError(nullptr)), 0, 0, {}},
        {CALL(PerformUSBIO(75, 9, nullptr, 1, nullptr, nullptr)), 0, 0, {}},
        {CALL(DownloadHiCode()), 0, 0, {}},
        {CALL(WriteLargeSRAM(~0UL, nullptr, ~0UL)), 0, 0, {}},
        {CALL(ConfigureChangedInputsCallback(nullptr, nullptr, nullptr)), 0, 0, {}},
    });
}

TEST_F(OperationsTest, WithoutSharedStateThoseThatNeedItFailAfterTheChecksThatNeedNone) {
    OpenConfigured(Model::kK44);
    K40EEPROM part = E24LC16;
    const auto callAll = [&] {
        RemoveSet();
        led_key_files::WithholdKeys();
        for (const Group& group : groups) {
            for (const Operation& operation : group.operations) {
                const int command = operation.sent.command;
                const bool isEeprom = command == 4 || command == 5;  // knows no range without it
                if (!isEeprom && command != 77 && command != 83 && command != 84 && command != 102)
                    continue;
                arg.known.clear();
                at.used = 0;
                ExpectCall(operation, 0, 38, {});
                for (at.missing = at.used - 1; at.missing >= 0; --at.missing)
                    ExpectCall(operation, 0, isEeprom ? 38 : 30, {});
                arg.allBad = true;
                port = static_cast<_usbSerialPort>(2);
                const int otherwise = group.onPort ? 8 : 38;
                ExpectCall(operation, 0, isEeprom ? 38 : arg.ErrorBefore(kPort, otherwise), {});
                arg.allBad = false;
                port = kPort1;
            }
        }
        driver.AnswerWith(nullptr);
        Expect({
            {CALL(ReadEEPROM(7, nullptr, 1)), 0, 8, {}},
            {CALL(ConfigureEEPROM(nullptr)), 0, 30, {}},
            {CALL(ConfigureEEPROM(&part)), 0, 38, {}},
            {CALL(CheckEEPROM(nullptr)), 0, 30, {}},
            {CALL(CheckEEPROM(&part)), 0, 38, {}},
            {CALL(InitPort(0)), 0, 38, {{74, 6, {}}}},
        });
        return 0;
    };
    EXPECT_EQ(StatusOf(callAll), 0);
    EXPECT_EQ(board.SetOutputBit(USB_OUTPUT_0, 0), 1) << "the others join anew";
}

TEST_F(OperationsTest, APortMustBeThereAndThenBeConfigured) {
    for (const Model each : kModels) {
        Open(each);
        AcceptEverything();
        ASSERT_EQ(Configure(kPort1), 1);
        for (const Group& group : groups) {
            if (!group.onPort || (each == Model::kK40 && group.models == kNotK40)) continue;
            for (const Operation& operation : group.operations) {
                arg.known.clear();
                for (const int number : {0, -1, 2, 256, -2147483647}) {
                    port = static_cast<_usbSerialPort>(number);
                    ExpectCall(operation, 0, number == 0 ? 38 : 8, {});
                }
                port = kPort0;
                arg.allBad = true;
                ExpectCall(operation, 0, arg.ErrorBefore(kPort, 38), {});
                arg.allBad = false;
            }
        }
    }
}

}  // namespace
