// Pay-outs: what the board counts, drives and answers, and what the hopper has left.
#include "board_hoppers.h"

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr int kMalformed = 102, kOutOfRange = 103, kBusy = 109;

class BoardHoppersTest : public testing::TestWithParam<Model> {
protected:
    // Pulses of 20 ms count, high ones unless said otherwise.
    Answer Release(std::uint8_t input, std::uint8_t output, unsigned coins, std::uint8_t rest = 0,
                   std::uint8_t state = 1) {
        Bytes payload = {input,
                         20,
                         state,
                         output,
                         static_cast<std::uint8_t>(coins >> 8),
                         static_cast<std::uint8_t>(coins),
                         rest};
        if (GetParam() != Model::kK40) payload.push_back(2);
        return board.Handle(112, 1, payload);
    }
    Answer Stop(std::uint8_t input) { return board.Handle(124, 1, Bytes{input}); }
    Answer Status(std::uint8_t input) { return board.Handle(113, 1, Bytes{input}); }
    void Wait(int ms) {
        now += milliseconds(ms);
        board.Advance();
    }
    bool IsOn(unsigned output) const { return board.outputs.LampOf(output) == Lamp::kOn; }

    Moment now{milliseconds(1'700'000'000'000)};
    Board board{{.model = GetParam(), .time = [this] { return now; }}};
};

INSTANTIATE_TEST_SUITE_P(Models, BoardHoppersTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(BoardHoppersTest, PaysWhatWasWantedToTheCoin) {
    EXPECT_EQ(Release(5, 37, 3), Accepted());
    EXPECT_TRUE(IsOn(37));
    EXPECT_EQ(Status(5), Accepted({1, 0}));
    Wait(119);
    EXPECT_EQ(Status(5), Accepted({1, 0})) << "the first coin's pulse ends after 120 ms";
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({1, 1}));
    Wait(199);
    EXPECT_TRUE(IsOn(37));
    EXPECT_EQ(Status(5), Accepted({1, 2}));
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({2, 3}));
    EXPECT_FALSE(IsOn(37));
    Wait(10000);
    EXPECT_EQ(board.hoppers.Find(5)->dropped, 3U);

    board.hoppers.At(5).rate = 25;
    EXPECT_EQ(Release(5, 37, 300), Accepted());
    Wait(300 * 40 + 19);
    EXPECT_EQ(Status(5), Accepted({1, 43})) << "299 modulo 256";
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({2, 44}));
    Wait(10000);
    EXPECT_EQ(board.hoppers.Find(5)->coins, 197U);
    EXPECT_EQ(board.hoppers.Find(5)->dropped, 303U);
    EXPECT_EQ(Release(5, 37, 0), Accepted());
    EXPECT_EQ(Status(5), Accepted({2, 0}));
}

TEST_P(BoardHoppersTest, GivesUpAfterASecondWithoutACoin) {
    board.hoppers.At(5).coins = 2;
    Release(5, 0, 10);
    Wait(220 + 999);
    EXPECT_EQ(Status(5), Accepted({1, 2}));
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({3, 2})) << "empty";
    EXPECT_FALSE(IsOn(0));

    board.hoppers.At(5) = {.coins = 10, .jammed = true};
    Release(5, 0, 10);
    Wait(600);
    board.hoppers.At(5).jammed = false;
    Wait(320);
    board.hoppers.At(5).jammed = true;
    EXPECT_EQ(Status(5), Accepted({1, 3}));
    Wait(1000);
    EXPECT_EQ(Status(5), Accepted({3, 3})) << "jammed";

    board.hoppers.At(5) = {.rate = 1};
    Release(5, 0, 2);
    Wait(2020);
    EXPECT_EQ(Status(5), Accepted({2, 2})) << "one coin a second is just quick enough";

    board.hoppers.At(5).jammed = true;
    Release(5, 0, 2);
    Wait(500);
    board.inputs.Set(5, true);
    Wait(1499);
    EXPECT_EQ(Status(5), Accepted({1, 0})) << "a coin hangs before the sensor";
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({3, 0}));
}

TEST_P(BoardHoppersTest, RestsBetweenCoins) {
    Release(5, 0, 2, 150);
    Wait(120);
    EXPECT_FALSE(IsOn(0));
    Wait(1499);
    EXPECT_FALSE(IsOn(0));
    Wait(1);
    EXPECT_TRUE(IsOn(0));
    Wait(119);
    EXPECT_EQ(Status(5), Accepted({1, 1}));
    Wait(1);
    EXPECT_EQ(Status(5), Accepted({2, 2}));
}

TEST_P(BoardHoppersTest, RefusesWhatIsTakenOrOutOfRange) {
    const bool isK40 = GetParam() == Model::kK40;
    EXPECT_EQ(board.Handle(112, 1, Bytes(isK40 ? 8 : 7, 0)), Refused(kMalformed));
    EXPECT_EQ(Release(33, 0, 1), Refused(kOutOfRange));
    EXPECT_EQ(Release(0, 38, 1), Refused(kOutOfRange));
    EXPECT_EQ(board.hoppers.Find(0), nullptr);

    EXPECT_EQ(Release(32, 4, 1), Accepted());
    EXPECT_EQ(Release(32, 5, 1), Refused(kBusy));
    EXPECT_EQ(Release(31, 4, 1), Refused(kBusy));
    EXPECT_EQ(Release(31, 5, 1), Accepted());
    Wait(120);
    EXPECT_EQ(Release(31, 4, 1), Accepted());
    EXPECT_EQ(Status(32), Accepted({2, 1}));
}

TEST_P(BoardHoppersTest, StopsAtOnceButCountsTheCoinThatFalls) {
    if (GetParam() == Model::kK40) {
        EXPECT_NE(Stop(5).status, 0) << "a K40 cannot stop";
        return;
    }
    Release(5, 4, 10);
    Wait(310);
    EXPECT_EQ(Stop(5), Accepted());
    EXPECT_FALSE(IsOn(4));
    EXPECT_EQ(Status(5), Accepted({0, 2}));
    Wait(5000);
    EXPECT_EQ(Status(5), Accepted({0, 3}));
    EXPECT_EQ(board.hoppers.Find(5)->dropped, 3U);

    Release(5, 4, 10);
    Wait(50);
    Stop(5);
    Release(5, 4, 1);
    Wait(119);
    EXPECT_EQ(Status(5), Accepted({1, 0})) << "the hopper starts afresh";
    Wait(1);
    EXPECT_EQ(Stop(5), Accepted());
    EXPECT_EQ(Status(5), Accepted({2, 1})) << "there was nothing to stop";
    EXPECT_EQ(Stop(33), Refused(kOutOfRange));
}

TEST_P(BoardHoppersTest, StatusIsOfWhateverWasBegunLast) {
    const bool isK40 = GetParam() == Model::kK40;
    board.inputs.Set(5, true);  // rests high
    board.Handle(107, 1, isK40 ? Bytes{5, 0, 0} : Bytes{5, 0, 0, 0});
    Release(5, 4, 2, 0, 0);
    board.Handle(108, 1, Bytes{5, 1});
    EXPECT_EQ(Status(5), Accepted({0, 0}));
    Wait(220);
    EXPECT_EQ(Status(5), Accepted({4, 2})) << "the check counts a hopper's coins too";
    Release(5, 4, 1, 0, 0);
    EXPECT_EQ(Status(5), Accepted({1, 0}));
    Wait(120);
    EXPECT_EQ(Status(5), Accepted({2, 1}));
}

TEST_P(BoardHoppersTest, UnpluggedBoardPaysNothing) {
    board.Handle(79, 1, Bytes{255, 4});
    Release(5, 4, 10);
    EXPECT_TRUE(IsOn(4)) << "whatever pulses say";
    Wait(105);
    board.PowerDown();
    EXPECT_FALSE(IsOn(4));
    Wait(5000);
    EXPECT_FALSE(board.inputs.Level(5));
    board.PowerUp();
    Wait(5000);
    EXPECT_EQ(Status(5), Accepted({0, 0}));
    EXPECT_EQ(board.hoppers.Find(5)->coins, 499U);
}

}  // namespace
}  // namespace simulator
