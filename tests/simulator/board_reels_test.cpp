// Reels: when each step falls, where they stop, and what the board says of them.
#include "board_reels.h"

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kMalformed = 102, kOutOfRange = 103, kNotConfigured = 106;
constexpr std::uint8_t kBack = 255, kBackOn = 254;

class BoardReelsTest : public testing::TestWithParam<Model> {
protected:
    BoardReelsTest() { board.Handle(86, 1, Bytes{3, 0, 20, 4}); }

    int Do(std::uint8_t command, const Bytes& payload) {
        return board.Handle(command, 1, payload).status;
    }
    void Wait(int ms) {
        now += milliseconds(ms);
        board.Advance();
    }
    // Of one reel: position h l, steps left h l, turning, ramp.
    Bytes Status(std::ptrdiff_t reel) {
        const Bytes all = board.Handle(92, 1, {}).reply;
        EXPECT_EQ(all.size(), 18U);
        return {all.begin() + 6 * reel, all.begin() + 6 * reel + 6};
    }
    // The milliseconds after which a reel has taken each step, up to its stop or for a while.
    std::vector<int> StepTimes(unsigned reel, int during) {
        std::vector<int> times;
        for (int ms = 1; ms <= during; ++ms) {
            const unsigned before = board.reels.At(reel).Position();
            Wait(1);
            if (board.reels.At(reel).Position() != before) times.push_back(ms);
        }
        return times;
    }

    Moment now{milliseconds(1'700'000'000'000)};
    Board board{{.model = GetParam(), .time = [this] { return now; }}};
};

using Times = std::vector<int>;

INSTANTIATE_TEST_SUITE_P(Models, BoardReelsTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(BoardReelsTest, RefusesWhatIsOutOfRangeOrNotConfigured) {
    EXPECT_EQ(Do(86, {4, 0, 20, 4}), kOutOfRange);
    EXPECT_EQ(Do(87, {3, 1, 0, 1}), kOutOfRange);
    for (const std::uint8_t setting : Bytes{3, 253, 128})
        EXPECT_EQ(Do(87, {0, setting, 0, 1}), 103);
    EXPECT_EQ(Do(88, {3, 0}), kOutOfRange);
    EXPECT_EQ(Do(89, {0, 2, 1}), kMalformed);
    EXPECT_EQ(Do(89, {0, 0, 1}), kMalformed);
    Bytes longest(62, 1);
    longest[1] = 60;
    EXPECT_EQ(Do(88, longest), 0);
    ++longest[1];
    longest.push_back(1);
    EXPECT_EQ(Do(88, longest), kMalformed);

    board.PowerUp();
    EXPECT_EQ(Do(86, {1, 0, 20, 4}), 0);
    EXPECT_EQ(Do(86, {0, 0, 0, 0}), 0);
    EXPECT_EQ(Do(87, {0, 0, 0, 0}), 0) << "still configured";
    EXPECT_EQ(Do(87, {1, 1, 0, 1}), kNotConfigured);
    EXPECT_EQ(Do(88, {1, 1, 9}), 0) << "a ramp may come first";
}

TEST_P(BoardReelsTest, StepsFallToTheMillisecond) {
    Do(87, {1, 1, 0, 3});
    EXPECT_EQ(StepTimes(1, 100), (Times{4, 8, 12})) << "full speed";

    Do(88, {1, 3, 9, 7, 0});
    Do(89, {1, 2, 6, 8});
    Do(87, {1, 1, 0, 7});
    EXPECT_EQ(StepTimes(1, 100), (Times{9, 16, 17, 21, 25, 31, 39}));
    Do(87, {1, kBack, 0, 4});
    EXPECT_EQ(StepTimes(1, 100), (Times{9, 16, 22, 30})) << "both ramps meet";
    Do(87, {1, 1, 0, 1});
    EXPECT_EQ(StepTimes(1, 100), (Times{8}));
    EXPECT_EQ(Status(1), (Bytes{0, 7, 0, 0, 0, 0}));

    Do(87, {1, 2, 0, 1});
    EXPECT_EQ(StepTimes(1, 22), (Times{9, 16, 17, 21})) << "then 1 ms of a step has passed";
    Do(87, {1, 0, 0, 0});
    EXPECT_EQ(StepTimes(1, 100), (Times{5, 13}));
    EXPECT_EQ(Status(0), Bytes(6, 0));

    Do(86, {1, 0, 0, 0});
    Do(87, {0, 2, 0, 0});
    Wait(5 * 201);
    EXPECT_EQ(Status(0), (Bytes{0, 1, 255, 255, 1, 0})) << "200 steps of 5 ms";
    Do(87, {0, 0, 0, 0});
    EXPECT_EQ(Status(0), (Bytes{0, 1, 0, 0, 0, 0})) << "at once without a ramp";
}

TEST_P(BoardReelsTest, StatusFollowsASpin) {
    Do(88, {2, 1, 10});
    Do(89, {2, 1, 10});
    Do(87, {2, kBack, 1, 2});
    EXPECT_EQ(Status(2), (Bytes{0, 0, 1, 2, 1, 1}));
    Wait(10);
    EXPECT_EQ(Status(2), (Bytes{0, 19, 1, 1, 1, 0}));
    Do(87, {2, kBack, 0, 3});
    EXPECT_EQ(Status(2), (Bytes{0, 19, 0, 3, 1, 0})) << "no new ramp up";
    Wait(8);
    EXPECT_EQ(Status(2), (Bytes{0, 17, 0, 1, 1, 2}));
    Do(87, {2, 1, 0, 9});
    EXPECT_EQ(Status(2), (Bytes{0, 17, 0, 9, 1, 1})) << "afresh in the other direction";
    Do(87, {2, 1, 0, 0});
    EXPECT_EQ(Status(2), (Bytes{0, 17, 0, 0, 0, 0}));
    Do(86, {3, 0, 10, 4});
    EXPECT_EQ(Status(2), (Bytes{0, 7, 0, 0, 0, 0})) << "17 modulo 10";
}

TEST_P(BoardReelsTest, SynchronisedReelsBeginTogether) {
    Do(91, {7});
    Do(87, {0, 1, 0, 5});
    Do(87, {2, kBackOn, 0, 0});
    Wait(1000);
    EXPECT_EQ(Status(0), (Bytes{0, 0, 0, 5, 0, 0}));
    EXPECT_EQ(Status(2), (Bytes{0, 0, 255, 255, 0, 0}));
    Do(87, {1, 1, 0, 1});
    Wait(4);
    EXPECT_EQ(Status(0), (Bytes{0, 1, 0, 4, 1, 0}));
    EXPECT_EQ(Status(1), (Bytes{0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(Status(2), (Bytes{0, 19, 255, 255, 1, 0}));

    Do(87, {1, 1, 0, 1});
    Do(87, {0, 1, 0, 9});
    Do(87, {0, 0, 0, 0});
    Do(91, {0});
    Wait(4);
    EXPECT_EQ(Status(0), (Bytes{0, 1, 0, 0, 0, 0})) << "a stop forgets what waits";
    EXPECT_EQ(Status(1), (Bytes{0, 2, 0, 0, 0, 0}));
}

TEST_P(BoardReelsTest, ReelsStayWhereTheyAreWithoutPower) {
    Do(90, {1, 2, 3});
    Do(88, {0, 1, 100});
    Do(87, {0, 2, 0, 0});
    Wait(100 + 4 * 4);
    EXPECT_EQ(board.reels.DutyCycle()[2], 3);
    board.PowerDown();
    Wait(1000);
    board.PowerUp();
    EXPECT_EQ(Status(0), (Bytes{0, 5, 0, 0, 0, 0}));
    EXPECT_EQ(board.reels.DutyCycle()[2], 0);
    EXPECT_EQ(Do(87, {0, 1, 0, 1}), kNotConfigured);
    Do(86, {1, 0, 20, 4});
    Do(87, {0, 1, 0, 1});
    Wait(4);
    EXPECT_EQ(Status(0), (Bytes{0, 6, 0, 0, 0, 0})) << "its ramp is forgotten";
}

TEST_P(BoardReelsTest, AnHourOfSpinningIsCaughtUpExactly) {
    for (const std::uint8_t reel : Bytes{0, 1, 2})
        Do(87, {reel, 2, 0, 0});
    Wait(3'600'000 + 7 * 4);
    EXPECT_EQ(Status(0), (Bytes{0, 7, 255, 255, 1, 0})) << "900007 steps";
}

}  // namespace
}  // namespace simulator
