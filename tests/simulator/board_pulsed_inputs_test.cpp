// The pulses that a board counts, and what it answers about them.
#include "board_pulsed_inputs.h"

#include <random>

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kMalformed = 102, kOutOfRange = 103, kNotConfigured = 106;

class BoardPulsedInputsTest : public testing::TestWithParam<Model> {
protected:
    Answer Configure(std::uint8_t input, std::uint8_t shortest, std::uint8_t state) {
        Bytes payload = {input, shortest, state};
        if (GetParam() != Model::kK40) payload.push_back(0);
        return board.Handle(107, 1, payload);
    }
    Answer Begin(std::uint8_t input) { return board.Handle(108, 1, Bytes{input, 1}); }
    Answer End(std::uint8_t input) { return board.Handle(108, 1, Bytes{input, 0}); }
    Answer Counter(std::uint8_t input) { return board.Handle(111, 1, Bytes{input}); }
    Answer Status(std::uint8_t input) { return board.Handle(113, 1, Bytes{input}); }
    void Wait(int ms) {
        now += milliseconds(ms);
        board.Advance();
    }
    void Coins(unsigned count, int periodMs = 40) {
        board.pulses.Add(3, count, milliseconds(periodMs));
    }

    Moment now{milliseconds(1'700'000'000'000)};
    Board board{{.model = GetParam(), .time = [this] { return now; }}};
};

INSTANTIATE_TEST_SUITE_P(Models, BoardPulsedInputsTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(BoardPulsedInputsTest, TakesTheModelsFormAndRefusesTheRest) {
    const bool isK40 = GetParam() == Model::kK40;
    struct Case {
        std::uint8_t command;
        int status;
        Bytes payload;
    };
    const Case cases[] = {
        {107, isK40 ? 0 : kMalformed, {32, 0, 1}},
        {107, isK40 ? kMalformed : 0, {32, 0, 1, 0}},
        {107, kOutOfRange, isK40 ? Bytes{33, 0, 1} : Bytes{33, 0, 1, 0}},
        {108, 0, {32, 1}},
        {108, kOutOfRange, {32, 2}},
        {108, kOutOfRange, {33, 1}},
        {108, kNotConfigured, {5, 1}},
        {108, kMalformed, {32}},
        {109, 0, {32}},
        {109, kNotConfigured, {5}},
        {110, kOutOfRange, {255}},
        {110, kNotConfigured, {5}},
        {111, kNotConfigured, {5}},
        {113, kOutOfRange, {33}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(board.Handle(c.command, 1, c.payload).status, c.status)
            << int{c.command} << ' ' << testing::PrintToString(c.payload);
    }
    EXPECT_EQ(Status(5), Accepted({0, 0})) << "never configured";
}

TEST_P(BoardPulsedInputsTest, CountsEveryCoinThoughTheyAreTakenOffMeanwhile) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Configure(3, 10, 1);
    Begin(3);
    Coins(200);

    int taken = 0;
    const Moment end = now + milliseconds(8000);
    while (now < end) {
        now = std::min(end, now + milliseconds(random() % 97));
        if (Status(3).reply[0] != 4) continue;
        ASSERT_EQ(board.Handle(110, 1, Bytes{3}), Accepted());
        ++taken;
    }
    EXPECT_GT(taken, 50);
    EXPECT_EQ(taken + Counter(3).reply.at(0), 200);
}

TEST_P(BoardPulsedInputsTest, CountsOnlyWhileTheCheckRuns) {
    Configure(3, 0, 1);
    Coins(1);
    Wait(40);
    EXPECT_EQ(Counter(3), Accepted({0})) << "no check was begun";

    Begin(3);
    Coins(2);
    Wait(60);
    EXPECT_EQ(Status(3), Accepted({4, 1}));
    Configure(3, 0, 1);  // as another program does that uses the input
    Begin(3);
    EXPECT_EQ(Status(3), Accepted({0, 1})) << "no pulse since this begin";
    Wait(20);
    EXPECT_EQ(Status(3), Accepted({4, 2}));

    End(3);
    Coins(1);
    Wait(40);
    EXPECT_EQ(Status(3), Accepted({4, 2}));
    EXPECT_EQ(board.Handle(109, 1, Bytes{3}), Accepted());
    EXPECT_EQ(Status(3), Accepted({0, 0}));
    EXPECT_EQ(board.Handle(110, 1, Bytes{3}), Accepted());
    EXPECT_EQ(Counter(3), Accepted({0}));

    Coins(1);
    Wait(10);
    Begin(3);
    Wait(30);
    EXPECT_EQ(Counter(3), Accepted({0})) << "it was under way at the begin";
    Coins(300, 2);
    Wait(600);
    EXPECT_EQ(Status(3), Accepted({4, 255}));

    board.PowerUp();
    EXPECT_EQ(Status(3), Accepted({0, 0}));
    EXPECT_EQ(Begin(3), Refused(kNotConfigured));
}

TEST(PulseLengthTest, SettingsSayWhichPulsesCount) {
    struct Case {
        std::uint8_t shortest, state, longestTens;
        int lengthMs;
        int count;
    };
    const Case cases[] = {
        {0, 1, 0, 1, 1},       {20, 1, 0, 19, 0},      {20, 1, 0, 20, 1},   {20, 255, 3, 30, 1},
        {20, 1, 3, 31, 0},     {255, 1, 0, 254, 0},    {255, 1, 0, 255, 1}, {0, 1, 255, 2550, 1},
        {0, 1, 255, 2551, 0},  {0, 1, 255, 900000, 0}, {0, 0, 0, 5, 1},     {6, 0, 0, 5, 0},
        {0, 1, 0, 3600000, 1},
    };
    for (const Case& c : cases) {
        Moment now{milliseconds(1'700'000'000'000)};
        Board board({.time = [&now] { return now; }});
        const auto hold = [&](bool level, int ms) {
            board.Advance();
            board.inputs.Set(7, level);
            now += milliseconds(ms);
        };
        hold(c.state == 0, 100);
        board.Handle(107, 1, Bytes{7, c.shortest, c.state, c.longestTens});
        board.Handle(108, 1, Bytes{7, 1});
        hold(c.state != 0, c.lengthMs);
        hold(c.state == 0, 100);
        EXPECT_EQ(board.Handle(111, 1, Bytes{7}).reply.at(0), c.count)
            << int{c.shortest} << ' ' << int{c.state} << ' ' << int{c.longestTens} << ' '
            << c.lengthMs;
    }
}

}  // namespace
}  // namespace simulator
