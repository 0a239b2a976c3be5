/**
 * @file digital_io_test.cpp
 * @brief Inputs, pulsed inputs, hoppers, reels and recordings: ranges, and what is configured.
 */
#include <algorithm>
#include <array>
#include <numeric>

#include "board_test.h"

namespace {

_usbInputBitId Input(unsigned number) {
    return static_cast<_usbInputBitId>(number);
}
_usbOutputBitId Output(unsigned number) {
    return static_cast<_usbOutputBitId>(number);
}
usbInputMultiplexing Mode(int number) {
    return static_cast<usbInputMultiplexing>(number);
}
usbRampTable Ramp(unsigned char length) {
    usbRampTable table;
    table.length = length;
    std::iota(table.steps, table.steps + 60, static_cast<unsigned char>(101));
    return table;
}

const auto kState = static_cast<ActiveState>(0x12345601);
constexpr Model kPagedModels[] = {Model::kK44, Model::kK50};

class DigitalIoTest : public BoardTest {
protected:
    void OpenAccepting(Model model) {
        Open(model);
        AcceptEverything();
    }

    unsigned bit = 77;
    unsigned char count = 77;
};

TEST_F(DigitalIoTest, InputBitIsTakenFromItsPlaceInTheImage) {
    Open(Model::kK40);
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{.reply = {1, 0x80, 0x10, 0, 1}}; });
    for (unsigned input = 0; input <= 32; ++input) {
        EXPECT_EQ(board.GetInputBit(Input(input), &bit), 1);
        EXPECT_EQ(bit, input == 0 || input == 15 || input == 20 || input == 32 ? 1U : 0U) << input;
    }
}

TEST_F(DigitalIoTest, RangesOfAllModels) {
    Bytes wholeRamp = {2, 60};
    const usbRampTable all = Ramp(60);
    wholeRamp.insert(wholeRamp.end(), all.steps, all.steps + 60);
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        OpenAccepting(model);
        ASSERT_EQ(board.ConfigureReels(3, 0, 0), 1);
        // clang-format off
        Expect({
            {CALL(GetInputBit(Input(33), &bit)),              0, 8, {}},
            {CALL(GetInputBit(Input(0x80000000), &bit)),      0, 8, {}},
            {CALL(InputMultiplexing(Mode(0))),                1, 0, {{114, 1, {0}}}},
            {CALL(InputMultiplexing(Mode(2))),                0, 8, {}},
            {CALL(InputMultiplexing(Mode(256))),              0, 8, {}},
            {CALL(GetPulsedInputStatus(Input(23), &bit, &count)), 1, 0, {{113, 1, {23}}}},
            {CALL(GetPulsedInputStatus(Input(24), &bit, &count)), 0, 8, {}},
            {CALL(ConfigureReels(4, 200, 1)),                 0, 8, {}},
            {CALL(SpinReels(0, 2, 0)),                        1, 0, {{87, 1, {0, 2, 0, 0}}}},
            {CALL(SpinReels(0, 3, 0)),                        0, 8, {}},
            {CALL(SpinReels(3, 253, 0)),                      0, 8, {}},
            {CALL(SpinReels(3, 254, 0)),                      0, 38, {}},
            {CALL(SpinRampUp(0, Ramp(0))),                    1, 0, {{88, 1, {0, 0}}}},
            {CALL(SpinRampDown(1, Ramp(2))),                  1, 0, {{89, 1, {1, 2, 101, 102}}}},
            {CALL(SpinRampUp(2, all)),                        1, 0, {{88, 1, wholeRamp}}},
            {CALL(SpinRampDown(2, Ramp(61))),                 0, 8, {}},
            {CALL(SpinRampUp(3, Ramp(61))),                   0, 16, {}},
        });
        // clang-format on
    }
}

TEST_F(DigitalIoTest, PulsedInputsAndHoppersOfK44AndK50HaveRangesAndAParameterMore) {
    for (const Model model : kPagedModels) {
        SCOPED_TRACE(ModelName(model));
        OpenAccepting(model);
        const auto release = [&](unsigned input, unsigned output) {
            return board.ReleaseParallelHopperCoins(Input(input), 10, kState, Output(output), 258,
                                                    3);
        };
        // clang-format off
        Expect({
            {CALL(ConfigurePulsedInput(Input(5), 10, kState)), 1, 0, {{107, 1, {5, 10, 1, 0}}}},
            {CALL(ConfigurePulsedInput(Input(33), 10, kState)), 0, 8, {}},
            {CALL(ConfigurePulsedInputEx(Input(32), 9, 20, kState)), 1, 0,
             {{107, 1, {32, 9, 1, 20}}}},
            {CALL(ConfigurePulsedInputEx(Input(256), 10, 20, kState)), 0, 8, {}},
            {"release", [&] { return release(32, 37); }, 1, 0,
             {{112, 1, {32, 10, 1, 37, 1, 2, 3, 0}}}},
            {"input out of range", [&] { return release(33, 37); }, 0, 8, {}},
            {"output out of range", [&] { return release(32, 38); }, 0, 8, {}},
            {CALL(StopHopperCoinRelease(Input(32))), 1, 0, {{124, 1, {32}}}},
            {CALL(StopHopperCoinRelease(Input(33))), 0, 8, {}},
        });
        // clang-format on
    }
}

TEST_F(DigitalIoTest, PulsedInputsAndHoppersOfAK40HaveNone) {
    OpenAccepting(Model::kK40);
    const auto release = [&] {
        return board.ReleaseParallelHopperCoins(Input(300), 10, kState, Output(38), 0x0102, 3);
    };
    // clang-format off
    Expect({
        {CALL(ConfigurePulsedInput(Input(33), 10, kState)), 1, 0, {{107, 1, {33, 10, 1}}}},
        {CALL(ConfigurePulsedInput(Input(256), 10, kState)), 1, 0, {{107, 1, {0, 10, 1}}}},
        {CALL(BeginPulsedInputCheck(Input(0))), 0, 38, {}},
        {CALL(SpinReels(0, 0, 0)), 0, 38, {}},  // what lies behind the last input's mark
        {CALL(ConfigurePulsedInput(Input(0), 10, kState)), 1, 0, {{107, 1, {0, 10, 1}}}},
        {CALL(BeginPulsedInputCheck(Input(0))), 1, 0, {{108, 1, {0, 1}}}},
        {"release", release, 1, 0, {{112, 1, {44, 10, 1, 38, 1, 2, 3}}}},
    });
    // clang-format on
}

TEST_F(DigitalIoTest, ChecksAndCountersWantAConfiguredInputBelow24) {
    std::array<std::function<int(unsigned)>, 5> operations = {
        [this](unsigned n) { return board.BeginPulsedInputCheck(Input(n)); },
        [this](unsigned n) { return board.EndPulsedInputCheck(Input(n)); },
        [this](unsigned n) { return board.ResetPulsedInputCounter(Input(n)); },
        [this](unsigned n) { return board.DecrementPulsedInputCounter(Input(n)); },
        [this](unsigned n) { return board.ReadPulsedInputCounter(Input(n), &count); },
    };
    for (const Model model : kModels) {
        OpenAccepting(model);
        for (const unsigned input : {22U, 24U, 32U})
            ASSERT_EQ(board.ConfigurePulsedInput(Input(input), 1, kState), 1);
        driver.AnswerNext({.status = 9});
        ASSERT_EQ(board.ConfigurePulsedInput(Input(23), 1, kState), 0);
        for (const auto& call : operations) {
            Expect({{"not configured", [&] { return call(23); }, 0, 38, {}},
                    {"configured, past the last", [&] { return call(24); }, 0, 8, {}},
                    {"low byte in range", [&] { return call(0x80000016); }, 0, 8, {}}});
        }
        ASSERT_EQ(board.ConfigurePulsedInput(Input(23), 1, kState), 1);
        driver.AnswerNext({.status = 9});
        ASSERT_EQ(board.ConfigurePulsedInput(Input(23), 2, kState), 0);
        for (const auto& call : operations)
            EXPECT_EQ(call(23), 1) << "once configured, always";
        ASSERT_EQ(board.InitPort(0), 1);
        EXPECT_EQ(board.BeginPulsedInputCheck(Input(23)), 0) << "until it is opened anew";
    }
}

TEST_F(DigitalIoTest, PulsedInputStatusIsOneOnlyWhenTheBoardSaysFour) {
    Open(Model::kK50);
    for (const std::uint8_t said : Bytes{0, 1, 2, 3, 4, 5, 255}) {
        driver.AnswerNext({.reply = {said, 9}});
        Expect({{CALL(GetPulsedInputStatus(Input(3), &bit, &count)), 1, 0, {{113, 1, {3}}}}});
        EXPECT_EQ(bit, said == 4 ? 1U : 0U) << static_cast<int>(said);
        EXPECT_EQ(count, 9);
    }
    // No failure leaves an old 1.
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{.status = 9, .reply = {4, 4}}; });
    for (const Call& failure : std::vector<Call>{
             {CALL(GetPulsedInputStatus(Input(24), &bit, &count)), 0, 8, {}},
             {CALL(GetPulsedInputStatus(Input(24), &bit, nullptr)), 0, 30, {}},
             {CALL(GetPulsedInputStatus(Input(7), &bit, &count)), 0, 9, {{113, 1, {7}}}}}) {
        bit = 1;
        Expect({failure});
        EXPECT_EQ(bit, 0U) << failure.what;
        EXPECT_EQ(count, 9);
    }
    Expect({{CALL(GetPulsedInputStatus(Input(24), nullptr, &count)), 0, 30, {}}});
}

TEST_F(DigitalIoTest, OnlyConfiguredReelsSpin) {
    OpenAccepting(Model::kK40);
    const auto expectSpinning = [&](int reels, unsigned char configured, int status) {
        driver.AnswerNext({.status = status});
        EXPECT_EQ(board.ConfigureReelsEx(configured, 0, 0), status == 0 ? 1 : 0);
        for (unsigned char reel = 0; reel <= 3; ++reel)
            EXPECT_EQ(board.SpinReels(reel, 0, 0), reel < reels ? 1 : 0) << reels << " " << +reel;
    };
    expectSpinning(0, 3, 9);
    expectSpinning(2, 2, 0);
    expectSpinning(2, 1, 0);
    expectSpinning(3, 3, 0);
    expectSpinning(3, 1, 9);
}

TEST_F(DigitalIoTest, RecordingSendsSlotsPageOffsetAndLengthOrNothing) {
    struct Case {
        const char* what;
        std::array<unsigned, 4> slots;
        unsigned long address;
        unsigned short length;
        Bytes sent;  // empty: refused
    };
    constexpr std::array kThird = {3U, 255U, 255U, 255U};
    const Case cases[] = {
        // clang-format off
        {"four inputs", {0, 23, 7, 0}, 0x4123, 258, {0, 23, 7, 0, 2, 1, 0x23, 1, 2}},
        {"last slot only", {255, 255, 255, 1}, 16383, 65535,
         {255, 255, 255, 1, 1, 63, 255, 255, 255}},
        {"page 13 follows 12", kThird, 196608, 1, {3, 255, 255, 255, 13, 0, 0, 0, 1}},
        {"ends at the limit", kThird, 475133, 1, {3, 255, 255, 255, 29, 63, 253, 0, 1}},
        {"lies at the limit", kThird, 475134, 0, {3, 255, 255, 255, 29, 63, 254, 0, 0}},
        {"ends beyond", kThird, 475134, 1, {}},
        {"sum would wrap", kThird, ~0UL, 1, {}},
        {"no input", {255, 255, 255, 255}, 0, 100, {}},
        {"input 24", {24, 255, 255, 255}, 0, 100, {}},
        {"last is bad", {0, 1, 2, 256}, 0, 100, {}},
        // clang-format on
    };
    for (const Model model : kPagedModels) {
        OpenAccepting(model);
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            std::array<_usbInputBitId, 4> slots{};
            std::transform(c.slots.begin(), c.slots.end(), slots.begin(), Input);
            const bool good = !c.sent.empty();
            Expect({{CALL(ConfigureRecordingInputs(slots.data(), c.address, c.length)), good,
                     good ? 0 : 8, good ? Exchanges{{125, 1, c.sent}} : Exchanges{}}});
        }
        Expect({
            {CALL(StartRecordingInputs(9)), 0, 8, {}},
            {CALL(StartRecordingInputs(15000)), 1, 0, {{126, 1, {0x3A, 0x98}}}},
            {CALL(StartRecordingInputs(15001)), 0, 8, {}},
        });
    }
}

}  // namespace
