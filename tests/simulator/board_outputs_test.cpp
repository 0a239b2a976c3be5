// The output patterns, the brightness and the pulses, and what a lamp shows of them.
#include "board_outputs.h"

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kOutOfRange = 103;

class BoardOutputsTest : public testing::TestWithParam<Model> {
protected:
    // Output numbers of lamps that are in a state.
    std::vector<unsigned> LampsThatAre(Lamp state) const {
        std::vector<unsigned> numbers;
        for (unsigned n = 0; n < 40; ++n) {
            if (board.outputs.LampOf(n) == state) numbers.push_back(n);
        }
        return numbers;
    }

    Moment now{milliseconds(1'700'000'000'000)};
    Board board{{.model = GetParam(), .time = [this] { return now; }}};
};

using Numbers = std::vector<unsigned>;

INSTANTIATE_TEST_SUITE_P(Models, BoardOutputsTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(BoardOutputsTest, PatternsDecideInWhichPeriodALampIsOn) {
    EXPECT_EQ(board.Handle(83, 1, Bytes{0x03, 0, 0, 0x80, 0x20}), Accepted());
    EXPECT_EQ(board.Handle(84, 1, Bytes{0x02, 1, 0, 0, 0x20}), Accepted());
    EXPECT_EQ(LampsThatAre(Lamp::kOnPeriod), (Numbers{0, 31}));
    EXPECT_EQ(LampsThatAre(Lamp::kOffPeriod), (Numbers{8}));
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{1, 37}));

    EXPECT_EQ(board.Handle(83, 1, Bytes{0, 0, 0, 0, 0xC0}), Accepted()) << "outputs 38 and 39";
    EXPECT_EQ(LampsThatAre(Lamp::kOnPeriod), Numbers{});
    EXPECT_EQ(LampsThatAre(Lamp::kOffPeriod), (Numbers{1, 8, 37}));
}

TEST_P(BoardOutputsTest, MasksChangeBothPatternsAndOffWins) {
    board.Handle(83, 1, Bytes{0x10, 0, 0, 0, 0});
    board.Handle(84, 1, Bytes{0x20, 0, 0, 0, 0});
    EXPECT_EQ(board.Handle(77, 1, Bytes{0x05, 0, 0, 0, 0x20, 0x14, 0, 0, 0, 0xC0}), Accepted());
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{0, 37}));
    EXPECT_EQ(LampsThatAre(Lamp::kOnPeriod), Numbers{});
    EXPECT_EQ(LampsThatAre(Lamp::kOffPeriod), (Numbers{5}));
}

TEST_P(BoardOutputsTest, RefusedLevelsAndPulsesChangeNothing) {
    EXPECT_EQ(board.Handle(85, 1, Bytes{4}), Accepted());
    EXPECT_EQ(board.Handle(85, 1, Bytes{11}), Refused(kOutOfRange));
    EXPECT_EQ(board.outputs.Brightness(), 4);
    EXPECT_EQ(board.Handle(85, 1, Bytes{10}), Accepted());
    EXPECT_EQ(board.Handle(85, 1, Bytes{0}), Accepted());
    EXPECT_EQ(board.outputs.Brightness(), 0);

    EXPECT_EQ(board.Handle(78, 1, Bytes{5, 32}), Refused(kOutOfRange));
    EXPECT_EQ(board.Handle(79, 1, Bytes{5, 255}), Refused(kOutOfRange));
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({0, 0, 0}));
}

TEST_P(BoardOutputsTest, PulseCoversThePatternForItsTime) {
    board.Handle(77, 1, Bytes{0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(board.Handle(78, 1, Bytes{255, 31}), Accepted());
    EXPECT_EQ(board.Handle(79, 1, Bytes{3, 1}), Accepted());
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({1, 1, 3}));
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{31}));

    now += milliseconds(11);
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({1, 1, 2}));
    now += milliseconds(18);
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({1, 1, 1}));
    now += milliseconds(1);
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({2, 1, 0}));
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{1, 31}));
    now += milliseconds(2519);
    EXPECT_TRUE(board.outputs.IsPulsing(31));
    now += milliseconds(1);
    EXPECT_FALSE(board.outputs.IsPulsing(31));
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{1}));
}

TEST_P(BoardOutputsTest, NewPulseTakesTheOldOnesPlace) {
    board.Handle(78, 1, Bytes{200, 4});
    board.Handle(79, 1, Bytes{1, 4});
    EXPECT_EQ(board.outputs.LampOf(4), Lamp::kOff);
    board.Handle(78, 1, Bytes{200, 4});
    board.Handle(78, 1, Bytes{0, 4});
    EXPECT_FALSE(board.outputs.IsPulsing(4));
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({2, 4, 0}));
    EXPECT_EQ(board.outputs.OnPulses(4), 3u);
    EXPECT_EQ(board.outputs.OffPulses(4), 1u);
    EXPECT_EQ(board.outputs.OnPulses(37), 0u) << "cannot be pulsed";
}

TEST_P(BoardOutputsTest, PowerUpSwitchesAllOff) {
    board.Handle(83, 1, Bytes{255, 255, 255, 255, 255});
    board.Handle(84, 1, Bytes{255, 255, 255, 255, 255});
    board.Handle(78, 1, Bytes{200, 4});
    board.Handle(85, 1, Bytes{2});
    board.PowerUp();
    EXPECT_EQ(LampsThatAre(Lamp::kOff).size(), 40u);
    EXPECT_EQ(board.Handle(80, 1, {}), Accepted({0, 0, 0}));
    EXPECT_EQ(board.outputs.Brightness(), 10);
    EXPECT_EQ(board.outputs.OnPulses(4), 0u);
}

}  // namespace
}  // namespace simulator
