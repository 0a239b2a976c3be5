// Recordings of inputs, where they lie in the memory, and diagnostic requests.
#include "board_recording.h"

#include <algorithm>

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kMalformed = 102, kOutOfRange = 103, kTooLong = 104, kNotConfigured = 106;

class BoardRecordingTest : public testing::TestWithParam<Model> {
protected:
    int Do(std::uint8_t command, const Bytes& payload) {
        return board.Handle(command, 1, payload).status;
    }
    Answer Status() { return board.Handle(127, 1, {}); }
    void Wait(int ms) {
        now += milliseconds(ms);
        board.Advance();
    }

    Moment now{milliseconds(1'700'000'000'000)};
    Board board{{.model = GetParam(), .time = [this] { return now; }}};
};

INSTANTIATE_TEST_SUITE_P(Models, BoardRecordingTest, testing::Values(Model::kK44, Model::kK50));

TEST_P(BoardRecordingTest, RefusesWhatIsOutOfRange) {
    EXPECT_EQ(Do(126, {0, 10}), kNotConfigured);
    EXPECT_EQ(Status(), Accepted({0, 0, 0, 0, 0}));
    struct Case {
        Bytes payload;
        int status;
    };
    const Case cases[] = {
        {{0, 23, 255, 255, 1, 0, 0, 255, 255}, 0},
        {{255, 255, 255, 7, 29, 63, 254, 0, 0}, 0},  // at the limit
        {{255, 255, 255, 7, 29, 63, 254, 0, 1}, kOutOfRange},
        {{255, 255, 255, 7, 29, 63, 255, 0, 0}, kOutOfRange},
        {{255, 255, 255, 7, 30, 0, 0, 0, 0}, kOutOfRange},
        {{3, 255, 255, 255, 0, 0, 0, 0, 9}, kOutOfRange},
        {{3, 255, 255, 255, 1, 64, 0, 0, 9}, kOutOfRange},
        {{24, 3, 255, 255, 1, 0, 0, 0, 9}, kOutOfRange},
        {{3, 255, 255, 254, 1, 0, 0, 0, 9}, kOutOfRange},
        {{255, 255, 255, 255, 1, 0, 0, 0, 9}, kOutOfRange},
        {{3, 255, 255, 255, 1, 0, 0, 9}, kMalformed},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Do(125, c.payload), c.status) << testing::PrintToString(c.payload);
    EXPECT_EQ(Do(126, {0, 9}), kOutOfRange);
    EXPECT_EQ(Do(126, {0x3A, 0x99}), kOutOfRange) << 15001;
    EXPECT_EQ(Do(126, {0x3A, 0x98}), 0);
    EXPECT_EQ(Status(), Accepted({2, 0, 0, 0, 0})) << "no room at all";
}

TEST_P(BoardRecordingTest, RecordsAcrossTheProgramsPages) {
    const Payload program = board.memory.Bytes(13, 0, 16384);
    ASSERT_EQ(Do(125, {5, 255, 23, 0, 12, 0x3F, 0xFE, 0, 4}), 0);
    EXPECT_EQ(Status(), Accepted({0, 0, 0, 0, 4}));
    Wait(1000);
    ASSERT_EQ(Do(126, {0x01, 0x2C}), 0);
    const Bytes levels[] = {{0, 5}, {23}, {5, 23}, {1, 2, 3}};
    for (const Bytes& on : levels) {
        for (unsigned n = 0; n < 24; ++n)
            board.inputs.Set(n, std::ranges::find(on, n) != on.end());
        Wait(299);
        EXPECT_EQ(Status().reply.at(0), 1);
        Wait(1);
    }
    EXPECT_EQ(Status(), Accepted({2, 0, 4, 0, 0}));
    EXPECT_EQ(board.Handle(116, 6, Bytes{3, 0, 12, 0xFD, 0x3F}), Accepted({0, 9, 4}));
    EXPECT_EQ(board.Handle(116, 6, Bytes{3, 0, 16, 0, 0}), Accepted({5, 0, 0}));
    EXPECT_EQ(std::ranges::count(program, 0), 16384) << "the program is left alone";
}

TEST_P(BoardRecordingTest, StartBeginsAgainAndConfigurationStops) {
    board.inputs.Set(9, true);
    Do(125, {9, 255, 255, 255, 13, 0, 0, 0x01, 0x2C});
    Do(126, {0, 10});
    Wait(2619);
    EXPECT_EQ(Status(), Accepted({1, 1, 5, 0, 39}));
    board.inputs.Set(9, false);
    Do(126, {0, 20});
    Wait(39);
    EXPECT_EQ(Status(), Accepted({1, 0, 1, 1, 43}));
    EXPECT_EQ(board.Handle(116, 6, Bytes{3, 0, 16, 0, 0}), Accepted({0, 1, 1}));

    Do(125, {9, 255, 255, 255, 1, 0, 0, 0, 2});
    Wait(1000);
    EXPECT_EQ(Status(), Accepted({0, 0, 0, 0, 2}));
    Do(126, {0, 10});
    board.PowerDown();
    Wait(1000);
    board.PowerUp();
    EXPECT_EQ(Status(), Accepted({0, 0, 0, 0, 0}));
    EXPECT_EQ(Do(126, {0, 10}), kNotConfigured);
    EXPECT_EQ(board.Handle(116, 6, Bytes{2, 0, 16, 1, 0}), Accepted({1, 1})) << "samples stay";
}

TEST_P(BoardRecordingTest, DiagnosticRequestsAreSentBack) {
    EXPECT_EQ(board.Handle(128, 1, {}), Accepted());
    EXPECT_EQ(board.Handle(128, 1, Bytes{3, 0, 7}), Accepted({3, 0, 7}));
    EXPECT_EQ(board.Handle(128, 1, Bytes(256, 5)), Accepted(Bytes(256, 5)));
    EXPECT_EQ(board.Handle(128, 1, Bytes(257, 5)), Refused(kTooLong));
    EXPECT_EQ(board.Handle(128, 1, Bytes(4096, 5)), Refused(kTooLong));
    EXPECT_EQ(board.Handle(129, 1, {}), Accepted());
    EXPECT_EQ(board.Handle(129, 1, Bytes(4096, 5)), Accepted());
}

TEST(BoardRecordingOfK40Test, AK40HasNone) {
    Board board({.model = Model::kK40});
    for (std::uint8_t command = 125; command <= 129; ++command)
        EXPECT_NE(board.Handle(command, 1, Bytes(9, 0)).status, 0) << int{command};
}

}  // namespace
}  // namespace simulator
