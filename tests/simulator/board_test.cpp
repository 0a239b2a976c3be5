// What a board refuses, its program, and the small families: clock, switches, identity, SPI.
#include "board/board.h"

#include "board_conversation.h"

namespace simulator {
namespace {

constexpr Model kK40 = Model::kK40, kK44 = Model::kK44, kK50 = Model::kK50;
constexpr int kUnknown = 100, kChannel = 101, kMalformed = 102, kOutOfRange = 103, kTooLong = 104;
constexpr int kNoDownload = 105, kNotConfigured = 106, kSwitchedOff = 108;

Bytes With(Bytes bytes, std::size_t count) {
    bytes.resize(bytes.size() + count);
    return bytes;
}

struct Refusals {
    Model model;
    std::uint32_t channel;
    std::uint8_t command;
    int status;
    std::vector<Bytes> payloads;
    int speedMbit = 480;
};

class RefusalsTest : public BoardTest {
protected:
    void Expect(const std::vector<Refusals>& cases, const std::vector<Step>& preparation) {
        for (const Refusals& c : cases) {
            for (const Bytes& payload : c.payloads) {
                SCOPED_TRACE(testing::Message()
                             << "K40-44-50 #" << int(c.model) << ", command " << int{c.command}
                             << ", payload " << testing::PrintToString(payload));
                Use({.model = c.model, .speedMbit = c.speedMbit});
                Talk(preparation);
                EXPECT_EQ(Send(c.channel, c.command, payload).status, c.status);
            }
        }
    }
};

TEST_F(RefusalsTest, ABoardTakesItsOwnCommandsUpToTheirLimits) {
    Bytes rampTooLong = With({0, 61}, 61), pollLongest = With({}, 63), pollTooLong = With({}, 39);
    pollLongest[11] = pollLongest[12] = pollLongest[13] = pollLongest[38] = 25;
    pollTooLong[11] = pollTooLong[13] = 26;
    const std::vector<Step> preparation = {
        {0, 1, 86, {1, 0, 20, 4}},         {0, 2, 3, {64, 2, 0x7F, 0xFF, 0x51}}, {0, 7, 94},
        {0, 3, 97, {1, 0, 0, 0, 0xD9, 1}}, {0, 4, 97, {0, 0, 0, 0, 0x64, 0xFF}},
    };
    // clang-format off
    Expect({
        {kK44, 1,   0, kUnknown,       {{}}},
        {kK44, 2,  75, kChannel,       {{}}},
        {kK50, 0xFFFFFFFF, 75, kChannel, {{}}},
        {kK40, 1,  70, kChannel,       {{1, 0, 0}}},
        // What other models have.
        {kK40, 6, 116, kUnknown,       {{1, 0, 1, 0, 0}}},
        {kK44, 6,  70, kUnknown,       {{1, 0, 0}}},
        {kK40, 5, 119, kUnknown,       {{}}},
        {kK44, 5, 220, kUnknown,       {{}}},
        {kK40, 1, 124, kUnknown,       {{5}}},
        {kK40, 3, 122, kUnknown,       {{5}}},
        {kK40, 1, 125, kUnknown,       {With({}, 9)}},
        // Memory: count, place, data.
        {kK40, 6,  71, 0,              {{1, 0, 0, 9}, {1, 254, 255, 9}}},
        {kK40, 6,  71, kOutOfRange,    {{1, 255, 255, 9}, {2, 255, 255, 9, 9}, {0, 0, 0}}},
        {kK40, 6,  71, kMalformed,     {{3, 0, 0, 9, 9}, {1, 0, 0, 9, 9}, {1, 0}}},
        {kK40, 6,  70, 0,              {{58, 0, 0}}},
        {kK40, 6,  70, kTooLong,       {{59, 0, 0}}},
        {kK40, 6,  70, kOutOfRange,    {{0, 0, 0}, {2, 254, 255}}},
        {kK44, 6, 116, 0,              {{1, 0, 32, 253, 63}}},
        {kK44, 6, 116, kOutOfRange,    {{2, 0, 1, 255, 63}, {1, 0, 13, 0, 0}, {1, 0, 15, 255, 63},
                                        {1, 0, 32, 254, 63}}},
        {kK44, 6, 117, 0,              {{1, 0, 1, 0, 0, 9}, {1, 0, 13, 0, 0, 9},
                                        {1, 0, 32, 255, 63, 9}}},
        {kK44, 6, 117, kOutOfRange,    {{1, 0, 0, 0, 0, 9}, {1, 0, 33, 0, 0, 9},
                                        {2, 0, 1, 255, 63, 9, 9}, {1, 0, 1, 0, 64, 9}}},
        {kK44, 6, 117, kMalformed,     {{1, 1, 1, 0, 0, 9}}},
        {kK44, 6, 116, kTooLong,       {{253, 0, 1, 0, 0}}},
        {kK50, 6, 117, 0,              {{1, 0, 64, 255, 63, 9}}},
        {kK50, 6, 117, kOutOfRange,    {{1, 0, 65, 0, 0, 9}}},
        {kK40, 6,  71, 0,              {With({57, 0, 0}, 57)}, 12},
        {kK40, 6,  71, kTooLong,       {With({58, 0, 0}, 58)}, 12},
        {kK40, 6,  71, kTooLong,       {With({250, 0, 0}, 250)}},
        {kK44, 6, 117, 0,              {With({55, 0, 1, 0, 0}, 55)}, 12},
        {kK44, 6, 117, kTooLong,       {With({56, 0, 1, 0, 0}, 56)}, 12},
        {kK50, 6, 117, 0,              {With({247, 0, 1, 0, 0}, 247)}},
        {kK50, 6, 117, kTooLong,       {With({248, 0, 1, 0, 0}, 248)}},
        {kK50, 6, 116, kTooLong,       {{61, 0, 1, 0, 0}}, 12},
        // EEPROM.
        {kK44, 2,   5, 0,              {{58, 0, 0}}},
        {kK44, 2,   5, kTooLong,       {{59, 0, 0}}},
        {kK44, 2,   4, 0,              {With({57, 8, 0}, 57), {1, 254, 255, 9}}},
        {kK44, 2,   4, kTooLong,       {With({58, 8, 0}, 58)}},
        {kK44, 2,   4, kMalformed,     {{2, 8, 0, 9}, {1, 8, 0, 9, 9}}},
        {kK44, 2,   4, kOutOfRange,    {{0, 8, 0}, {1, 7, 0, 9}, {1, 255, 255, 9}}},
        {kK44, 2,   3, kOutOfRange,    {{0, 2, 0x7F, 0xFF, 0x51}, {64, 0, 0x7F, 0xFF, 0x51},
                                        {64, 3, 0x7F, 0xFF, 0x51}}},
        // Inputs and outputs.
        {kK44, 1, 114, kMalformed,     {{}, {1, 0}}},
        {kK44, 1, 114, kOutOfRange,    {{2}}},
        {kK44, 1,  85, 0,              {{10}}},
        {kK44, 1,  85, kOutOfRange,    {{11}}},
        {kK44, 1,  78, kOutOfRange,    {{5, 32}}},
        {kK40, 1, 107, 0,              {{32, 0, 1}}},
        {kK44, 1, 107, 0,              {{32, 0, 1, 0}}},
        {kK40, 1, 107, kMalformed,     {{32, 0, 1, 0}}},
        {kK44, 1, 107, kOutOfRange,    {{33, 0, 1, 0}}},
        {kK44, 1, 108, kOutOfRange,    {{24, 1}, {23, 2}}},
        {kK40, 1, 109, kOutOfRange,    {{24}}},
        {kK44, 1, 110, kOutOfRange,    {{32}}},
        {kK50, 1, 111, kOutOfRange,    {{24}}},
        {kK44, 1, 113, 0,              {{23}}},
        {kK40, 1, 113, kOutOfRange,    {{24}}},
        {kK40, 1, 112, kMalformed,     {With({}, 8)}},
        {kK44, 1, 112, kOutOfRange,    {{33, 20, 1, 0, 0, 1, 0, 0}, {0, 20, 1, 38, 0, 1, 0, 0}}},
        {kK44, 1, 124, kOutOfRange,    {{33}}},
        // Reels.
        {kK44, 1,  86, kOutOfRange,    {{4, 0, 20, 4}}},
        {kK44, 1,  87, kOutOfRange,    {{3, 1, 0, 1}, {0, 3, 0, 1}, {0, 253, 0, 1},
                                        {0, 128, 0, 1}}},
        {kK44, 1,  87, kNotConfigured, {{1, 1, 0, 1}}},
        {kK44, 1,  88, 0,              {With({0, 60}, 60), {1, 1, 9}}},
        {kK44, 1,  88, kOutOfRange,    {{3, 0}}},
        {kK44, 1,  88, kMalformed,     {rampTooLong}},
        // Recording: four inputs, page, offset, length; diagnosis.
        {kK44, 1, 125, 0,              {{0, 23, 255, 255, 1, 0, 0, 255, 255},
                                        {255, 255, 255, 7, 29, 63, 254, 0, 0}}},
        {kK44, 1, 125, kOutOfRange,    {{255, 255, 255, 7, 29, 63, 254, 0, 1},
                                        {3, 255, 255, 255, 0, 0, 0, 0, 9},
                                        {3, 255, 255, 255, 1, 64, 0, 0, 9},
                                        {24, 3, 255, 255, 1, 0, 0, 0, 9},
                                        {255, 255, 255, 255, 1, 0, 0, 0, 9}}},
        {kK44, 1, 126, kOutOfRange,    {{0, 9}, {0x3A, 0x99}}},
        {kK44, 1, 128, kTooLong,       {With({}, 257)}},
        // Serial ports.
        {kK44, 3,  97, kOutOfRange,    {{4, 0, 0, 0, 0xD9, 1}, {0, 4, 0, 0, 0xD9, 1},
                                        {1, 3, 0, 0, 0xD9, 1}, {0, 0, 4, 0, 0xD9, 1},
                                        {0, 0, 0, 2, 0xD9, 1}, {0, 0, 0, 0, 0xD9, 0},
                                        {0, 0, 0, 0, 0x64, 0xFF}}},
        {kK44, 4,  97, kOutOfRange,    {{0, 0, 0, 0, 0xD9, 1}, {0, 0, 0, 0, 0xFF, 0x64}}},
        {kK44, 3,  98, kMalformed,     {{}, {0, 1, 0}}},
        {kK40, 4,  98, 0,              {With({}, 252)}},
        {kK44, 4,  98, kTooLong,       {With({}, 253), With({}, 600)}},
        {kK40, 4,  98, 0,              {With({}, 60)}, 12},
        {kK50, 4,  98, kTooLong,       {With({}, 61)}, 12},
        {kK44, 3,  99, kMalformed,     {{}}},
        {kK44, 4,  99, kMalformed,     {{0}}},
        {kK44, 3, 101, kOutOfRange,    {{1, 61}}},
        {kK44, 3, 101, kMalformed,     {{1, 2, 7}}},
        {kK44, 3, 103, 0,              {pollLongest, With({0, 0, 0, 0, 24}, 8),
                                        {0, 1, 0, 0, 2, 1, 1, 0, 0, 0, 0, 2, 1, 7, 7, 8}}},
        {kK44, 3, 103, kOutOfRange,    {pollTooLong, With({4}, 12), With({0, 4}, 11),
                                        With({0, 1, 5}, 10), With({0, 0, 0, 0, 25}, 8)}},
        {kK44, 3, 103, kMalformed,     {With({}, 12), With({}, 14),
                                        {0, 1, 0, 1, 1, 5, 1, 0, 0, 0, 0, 5, 0, 2, 0, 1, 229, 24},
                                        {0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 2, 1},
                                        {0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 1, 2}}},
        {kK44, 4, 104, kOutOfRange,    {{4}}},
        {kK44, 4, 105, kOutOfRange,    {{255}}},
        {kK44, 4, 106, kOutOfRange,    {{4}}},
        {kK44, 4, 121, kOutOfRange,    {{4, 1}}},
        {kK44, 3, 122, kOutOfRange,    {{128}}},
        {kK44, 3, 123, kOutOfRange,    {{3, 0}}},
        // PIC and SPI.
        {kK44, 5,  65, kMalformed,     {With({}, 7)}},
        {kK44, 7,  96, kOutOfRange,    {{0, 8, 0}, With({161, 8, 0}, 21), {8, 161, 0, 7}}},
        {kK44, 7,  96, kMalformed,     {{9, 8, 0, 7}, {8, 8, 0, 7, 8}}},
    }, preparation);
    // clang-format on
}

TEST_F(RefusalsTest, ABoardKnowsNothingThatItWasNotTold) {
    // clang-format off
    Expect({
        {kK44, 2,   5, kNotConfigured, {{1, 0, 0}}},
        {kK44, 1, 108, kNotConfigured, {{5, 1}}},
        {kK44, 1, 110, kNotConfigured, {{5}}},
        {kK44, 1, 126, kNotConfigured, {{0, 10}}},
        {kK44, 3,  98, kNotConfigured, {{1}}},
        {kK44, 4,  99, kNotConfigured, {{}}},
        {kK44, 3, 122, kNotConfigured, {{1}}},
        {kK44, 4, 124, kNotConfigured, {{}}},
        {kK44, 5,  68, kSwitchedOff,   {{}}},
        {kK44, 6,  73, kNoDownload,    {{}}},
        {kK44, 7,  96, kSwitchedOff,   {{8, 8, 5, 9}}},
    }, {});
    // clang-format on
}

TEST_F(BoardTest, ProgramRunsFromTheEndOfADownloadToTheNextOneOrAPowerUp) {
    for (const Model model : {kK40, kK44, kK50}) {
        Use({.model = model, .identity = 5});
        board.inputs.Set(0, true);
        Talk({{0, 6, 72}, {0, 6, 74, {}, {0}}, {0, 6, 73}, {0, 6, 74, {}, {1}}});
        Talk({{0, 6, 73}, {0, 6, 72}, {0, 6, 74, {}, {0}}, {0, 6, 73}});
        board.PowerUp();
        Talk({{0, 6, 74, {}, {0}}, {0, 1, 75, {}, {1, 0, 0, 5, 0}}});
    }
    Use({.firmwareRunning = true});
    Talk({{0, 6, 74, {}, {1}}, {0, 6, 72}});
    board.PowerUp();
    Talk({{0, 6, 74, {}, {1}}});
}

TEST_F(BoardTest, ClockCountsSecondsAndFailuresShowOnce) {
    Use({.model = kK50});
    Talk({{999, 5, 21, {}, {0, 3, 2, 1}}, {1, 5, 21, {}, {1, 3, 2, 1}}});
    Talk({{0, 5, 20, {0xFE, 0xFF, 0xFF, 0xFF}}, {3000, 5, 21, {}, {1, 0, 0, 0}}});
    board.clock.FailBattery();
    board.PowerUp();
    Talk({{0, 5, 119, {}, {1}}, {0, 5, 119, {}, {0}}, {5000, 5, 221, {}, {1, 0, 0, 0}}});
    Talk({{0, 5, 21, {}, {6, 0, 0, 0}}, {0, 5, 220, {}, {0}}});
    board.clock.FailClock();
    Talk({{2000, 5, 21, {}, {2, 0, 0, 0}}, {0, 5, 220, {}, {1}}, {0, 5, 220, {}, {0}}});
}

TEST_F(BoardTest, SecuritySwitchesLeaveALogAndTwoPairsOfFlags) {
    board.clock.SetSwitch(0, true);
    Wait(1000);
    board.clock.SetSwitch(7, true);
    board.clock.SetSwitch(7, true);  // is open already
    board.clock.SetSwitch(8, true);  // there is none
    Talk({{0, 5, 64, {}, {0x81, 0}}, {0, 5, 64, {}, {0, 0}}});
    Wait(1000);
    board.clock.SetSwitch(0, false);
    Talk({{0, 5, 67, {}, {0x81, 1}}, {0, 5, 67, {}, {0, 0}}, {0, 5, 64, {}, {0, 1}}});

    const Step end = {0, 5, 41, {}, {0, 0, 0, 0, 0}}, first = {0, 5, 41, {}, {0, 3, 2, 1, 0x81}};
    Talk({first, {0, 5, 41, {}, {1, 3, 2, 1, 0x88}}, {0, 5, 41, {}, {2, 3, 2, 1, 1}}, end, end});
    Talk({{0, 5, 40}, first});
    board.PowerUp();
    Talk({first, {0, 5, 42}, end});
}

TEST_F(BoardTest, TellsVersionsNumbersAndRandomNumbers) {
    std::uint16_t next = 0x1234;
    Use({.serialNumber = 0x01020304, .random = [&next] { return next++; }});
    Talk({{0, 2, 6, {}, {1, 2}}, {0, 5, 44, {}, {2, 5}}});
    Talk({{0, 5, 120, {}, {1, 4, 3, 2, 1, 0, 0, 3}}});
    Talk({{0, 5, 63, {}, {'1', '6', '9', '0', '9', '0', '6', '0'}}, {0, 5, 65, Bytes(8, 9)}});
    board.PowerUp();
    Talk({{0, 5, 63, {}, Bytes(8, 9)}, {0, 5, 69, {1, 2, 3, 4}}, {0, 5, 68, {}, {0x34, 0x12}}});
    Talk({{0, 5, 68, {}, {0x35, 0x12}}, {0, 5, 118}, {0, 5, 68, {}, {}, kSwitchedOff}});
}

TEST_F(BoardTest, SpiSendsBackFramesTurnedRoundQueuedRepliesOrWhatCame) {
    Talk({{0, 7, 94}});
    board.spi.QueueReply({1, 2, 3});
    board.spi.QueueReply({4});
    // clang-format off
    Talk({
        {0, 7, 96, {32, 16, 0, 1, 2, 0, 3},               {1, 2}},
        {0, 7, 96, {8, 16, 5, 9},                         {4, 0}},
        {0, 7, 96, {8, 17, 0, 7},                         {7, 0, 0}},
        {0, 7, 96, {8, 0, 0, 7},                          {}},
        {0, 7, 96, With({160, 160, 0}, 20),               Bytes(20, 0)},
        {0, 7, 96, {48, 48, 0, 0x90, 0xA0, 2, 5, 6, 0x3D}, {0xA0, 0x90, 2, 5, 6, 0x3D}},
        {0, 7, 96, {32, 40, 0, 1, 2, 0, 3},               {2, 1, 1, 0, 4}},
        {0, 7, 96, {32, 24, 0, 1, 2, 0, 3},               {2, 1, 0}},
        {0, 7, 96, {32, 32, 0, 1, 2, 0, 4},               {1, 2, 0, 4}},        // wrong sum
        {0, 7, 95},
        {0, 7, 96, {8, 8, 0, 9}, {}, kSwitchedOff},
    });
    // clang-format on
    EXPECT_EQ(board.spi.RightFrames(), 4U);
    EXPECT_EQ(board.spi.WrongFrames(), 1U);
}

}  // namespace
}  // namespace simulator
