/**
 * @file operations_test.cpp
 * @brief What operations have in common: one exchange, results in fixed places, and the checks of
 * pointers, models and ports. What is special about one stands in its family's test.
 */
#include <algorithm>

#include "board_test.h"
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

struct Operation {
    std::string name;
    std::function<int()> call;
    Exchange sent;  // command 0: looked at in its family's test
    Bytes reply = {};
    std::vector<Bytes> results = {};  // what that reply leaves in each place
};

enum Models : unsigned { kEveryModel = 7, kNotK40 = 6, kOnlyK50 = 4 };

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
const auto kOutput = static_cast<_usbOutputBitId>(6);
const Bytes kOn(5, 0xEE), kOnAndOff = {238, 238, 238, 238, 238, 17, 17, 17, 17, 17};
const Bytes kDallas = {0x02, 0x1C, 0xB8, 0x01, 0x00, 0x00, 0x00, 0xA2};
const Bytes kReels = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x11, 0x12, 0x13, 0x14,
                      0x15, 0x16, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x31};
const Bytes kWideReels = {2,    1,    0x12, 0x11, 0x22, 0x21, 4, 3,    0x14,
                          0x13, 0x24, 0x23, 5,    0x15, 0x25, 6, 0x16, 0x26};
const Bytes kNarrowReels = {2, 0x12, 0x22, 4, 0x14, 0x24, 5, 0x15, 0x25, 6, 0x16, 0x26};
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
            ASSERT_EQ(board.ConfigurePulsedInput(USB_INPUT_5, 1, kState), 1);
            ASSERT_EQ(board.ConfigureReels(3, 0, 0), 1);
            for (const Group& group : groups) {
                if (((group.models & 1U << (static_cast<int>(model) - 1)) != 0) != has) continue;
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

    Exchange Sent(const Group& group, const Operation& operation) const {
        Exchange sent = operation.sent;
        if (group.onPort) sent.channel = ChannelOf(port);
        return sent;
    }

    SharedEntries receivedBytes = SharedEntries::OfReceivedBytes();
    Model model = Model::kK40;
    Places at;
    _usbInputBitId input = USB_INPUT_5;
    _usbSerialPort port = kPort1;

    // clang-format off
    const std::vector<Group> groups = {
        {kEveryModel, false, Empty::kZeroes, {
            {CALL(GetInputs(static_cast<usbInput*>(at[0]))), {75, 1, {}},
             {1, 2, 3, 4, 255, 6}, {{1, 2, 3, 4, 255}}},
            {CALL(GetRawInputs(at[0])), {82, 1, {}}, {1, 2}, {{1, 2, 0, 0, 0}}},
            {CALL(GetChangedInputs(at[0])), {81, 1, {}}, {1, 2}, {{1, 2, 0, 0, 0}}},
            {CALL(GetInputBit(input, at[0])), {75, 1, {}}, {32}, {{1, 0, 0, 0}}},
            {CALL(GetMultiplexedInputs(at[0])), {115, 1, {}}, kFourteen, {kThirteen}},
            {CALL(InputMultiplexing(USB_INPUT_MULTIPLEXING_ON)), {114, 1, {1}}},

            {CALL(SetOutputs(at[0])), {77, 1, kOnAndOff}},
            {CALL(ModifyOutputs(at[0], at[1])), {77, 1, Bytes(10, 0xEE)}},
            {CALL(SetOutputBrightness(10)), {85, 1, {10}}},
            {CALL(PulseOutput(31, 200)), {78, 1, {200, 31}}},
            {CALL(PulseOffOutput(31, 7)), {79, 1, {7, 31}}},
            {CALL(PulseOutputResult(at[0], at[1], at[2])), {80, 1, {}},
             {200, 201, 255, 1}, {{200}, {201, 0, 0, 0}, {255, 0, 0, 0}}},

            {CALL(BeginPulsedInputCheck(input)), {108, 1, {5, 1}}},
            {CALL(EndPulsedInputCheck(input)), {108, 1, {5, 0}}},
            {CALL(ResetPulsedInputCounter(input)), {109, 1, {5}}},
            {CALL(DecrementPulsedInputCounter(input)), {110, 1, {5}}},
            {CALL(ReadPulsedInputCounter(input, at[0])), {111, 1, {5}}, {200, 1}, {{200}}},
            {CALL(GetParallelHopperStatus(input, at[0], at[1])), {113, 1, {5}},
             {255, 6}, {{255, 0, 0, 0}, {6}}},

            {CALL(ConfigureReels(2, 200, 1)), {86, 1, {2, 0, 200, 1}}},
            {CALL(ConfigureReelsEx(3, 0x0102, 4)), {86, 1, {3, 1, 2, 4}}},
            {CALL(SpinReels(2, 254, 0x0102)), {87, 1, {2, 254, 1, 2}}},
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
        }},
        {kEveryModel, false, Empty::kNothing, {
            {CALL(GetInputs(static_cast<unsigned char*>(at[0]))), {75, 1, {}},
             {1, 2, 3, 4, 255, 6}, {{1, 2, 3, 4, 255}}},
            {CALL(Get8051Version(at[0])), {6, 2, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(GetPICVersion(at[0])), {44, 5, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(GetPICSerialNumber(at[0])), {63, 5, {}}, {1, 2, 3}, {{1, 2, 3}}},
            {CALL(SendSPI(9, at[0], 5, 3, at[1])), {96, 7, {9, 3, 5, 0xEE, 0xEE}},
             {1, 2}, {{}, {1, 2}}},
            {CALL(SendSEC(6, 7, 1, at[0], 5, 3, at[1])),
             {96, 7, {40, 56, 5, 6, 7, 1, 0xEE, 0xFC}}, {1, 2}, {{}, {1, 2}}},
        }},
        {kNotK40, false, Empty::kZeroes, {
            {CALL(ConfigurePulsedInputEx(input, 10, 20, kState)), {107, 1, {5, 10, 1, 20}}},
            {CALL(ReleaseParallelHopperCoinsEx(input, 10, 20, kState, kOutput, 0xFFFE, 3)),
             {112, 1, {5, 10, 1, 6, 255, 254, 3, 20}}},
            {CALL(StopHopperCoinRelease(input)), {124, 1, {5}}},
            {CALL(ConfigureRecordingInputs(at[0], 0, 0)), {}},
            {CALL(StartRecordingInputs(10)), {126, 1, {0, 10}}},
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
            {CALL(SetTimeoutMessage(port, at[0], 2, 1)), {101, 0, {33, 2, 0xEE, 0xEE}}},
            {CALL(SetPolledHostTimeout(port, 3, 1)), {121, 0, {3, 10}}},
            {CALL(EmptyPolledBuffer(port, 3)), {104, 0, {3}}},
            {CALL(DeletePolledMessage(port, 3)), {106, 0, {3}}},
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
            {CALL(ReceivePolledMessage(port, 3, at[0], at[1], at[2])), {105, 0, {3}},
             {5, 0, 9}, {{9}, {1, 0, 0, 0, 0, 0, 0, 0}, {5, 0, 0, 0}}},
            {CALL(ReceivePolledMessageEx(port, 3, at[0], 1, at[1], at[2])), {105, 0, {3}},
             {5, 0, 9}, {{9}, {1, 0, 0, 0, 0, 0, 0, 0}, {5, 0, 0, 0}}},
        }},
        {kNotK40, true, Empty::kZeroes, {
            {CALL(SetSASMachineAddress(port, 127)), {122, 0, {127}}},
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

TEST_F(OperationsTest, AMissingPointerIsNamedBeforeAllElse) {
    ForEach([&](const Group&, const Operation& operation) {
        at.used = 0;
        operation.call();
        for (at.missing = at.used - 1; at.missing >= 0; --at.missing) {
            input = static_cast<_usbInputBitId>(1000);
            port = static_cast<_usbSerialPort>(2);
            ExpectCall(operation, 0, 30, {});
        }
        input = USB_INPUT_5;
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
            input = good ? USB_INPUT_5 : static_cast<_usbInputBitId>(1000);
            port = good ? kPort1 : static_cast<_usbSerialPort>(-5);
            ExpectCall(operation, 0, model == Model::kK40 ? 25 : 26, {});
        }
        EXPECT_TRUE(model == Model::kK40 || group.models == kOnlyK50);
    };
    ForEach(refuse, false);
}

TEST_F(OperationsTest, WithNoBoardOpenAllFailAndOnlySasSaysWhy) {
    at.missing = Places::kAll;
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
        {CALL(SetOutputBit(kOutput, 9)), 0, 0, {}},
        {CALL(SetConfig(kPort0, nullptr, {})), 0, 0, {}},
        {CALL(WriteLargeSRAM(~0UL, nullptr, ~0UL)), 0, 0, {}},
        {CALL(ReadEEPROM(0, nullptr, 1)), 0, 0, {}},
        {CALL(ConfigureChangedInputsCallback(nullptr, nullptr, nullptr)), 0, 0, {}},
    });
}

TEST_F(OperationsTest, APortMustBeThereAndThenBeConfigured) {
    for (const Model each : kModels) {
        Open(each);
        AcceptEverything();
        ASSERT_EQ(Configure(kPort1), 1);
        for (const Group& group : groups) {
            if (!group.onPort || (each == Model::kK40 && group.models == kNotK40)) continue;
            for (const Operation& operation : group.operations) {
                for (const int number : {0, -1, 2, 256, -2147483647}) {
                    port = static_cast<_usbSerialPort>(number);
                    ExpectCall(operation, 0, number == 0 ? 38 : 8, {});
                }
            }
        }
    }
}

}  // namespace
