/**
 * @file digital_io_test.cpp
 * @brief Inputs, pulsed inputs, hoppers, reels and recordings: what is configured, and their forms.
 */
#include <algorithm>
#include <array>

#include "board_test.h"

namespace {

_usbInputBitId Input(unsigned number) {
    return static_cast<_usbInputBitId>(number);
}
_usbOutputBitId Output(unsigned number) {
    return static_cast<_usbOutputBitId>(number);
}
const auto kState = static_cast<ActiveState>(0x12345601);

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

TEST_F(DigitalIoTest, PulsedInputsAndHoppersOfAK40HaveNoRangesAndAParameterLess) {
    OpenAccepting(Model::kK40);
    // clang-format off
    Expect({
        {CALL(ConfigurePulsedInput(Input(33), 10, kState)), 1, 0, {{107, 1, {33, 10, 1}}}},
        {CALL(ConfigurePulsedInput(Input(256), 10, kState)), 1, 0, {{107, 1, {0, 10, 1}}}},
        {CALL(BeginPulsedInputCheck(Input(0))), 0, 38, {}},
        {CALL(SpinReels(0, 0, 0)), 0, 38, {}},  // what lies behind the last input's mark
        {CALL(ConfigurePulsedInput(Input(0), 10, kState)), 1, 0, {{107, 1, {0, 10, 1}}}},
        {CALL(BeginPulsedInputCheck(Input(0))), 1, 0, {{108, 1, {0, 1}}}},
        {CALL(ReleaseParallelHopperCoins(Input(300), 10, kState, Output(38), 0x0102, 3)), 1, 0,
         {{112, 1, {44, 10, 1, 38, 1, 2, 3}}}},
    });
    // clang-format on
}

TEST_F(DigitalIoTest, ChecksAndCountersWantAnInputOnceConfigured) {
    for (const Model model : kModels) {
        OpenAccepting(model);
        const auto configure = [&](unsigned input, int status) {
            driver.AnswerNext({.status = status});
            EXPECT_EQ(board.ConfigurePulsedInput(Input(input), 1, kState), status == 0 ? 1 : 0);
        };
        configure(22, 0);
        configure(24, 0);
        configure(23, 9);
        Expect({{CALL(BeginPulsedInputCheck(Input(23))), 0, 38, {}}});
        configure(23, 0);
        configure(23, 9);
        EXPECT_EQ(board.BeginPulsedInputCheck(Input(23)), 1) << "once configured, always";
        ASSERT_EQ(board.InitPort(0), 1);
        EXPECT_EQ(board.BeginPulsedInputCheck(Input(23)), 0) << "until it is opened anew";
    }
}

TEST_F(DigitalIoTest, PulsedInputStatusIsOneOnlyWhenTheBoardSaysFourAndNoFailureLeavesAnOldOne) {
    Open(Model::kK50);
    for (const std::uint8_t said : Bytes{0, 1, 2, 3, 4, 5, 255}) {
        driver.AnswerNext({.reply = {said, 9}});
        Expect({{CALL(GetPulsedInputStatus(Input(23), &bit, &count)), 1, 0, {{113, 1, {23}}}}});
        EXPECT_EQ(bit, said == 4 ? 1U : 0U) << static_cast<int>(said);
        EXPECT_EQ(count, 9);
    }
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
    for (const Model model : {Model::kK44, Model::kK50}) {
        OpenAccepting(model);
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            std::array<_usbInputBitId, 4> slots{};
            std::transform(c.slots.begin(), c.slots.end(), slots.begin(), Input);
            const bool good = !c.sent.empty();
            Expect({{CALL(ConfigureRecordingInputs(slots.data(), c.address, c.length)), good,
                     good ? 0 : 8, good ? Exchanges{{125, 1, c.sent}} : Exchanges{}}});
        }
    }
}

}  // namespace
