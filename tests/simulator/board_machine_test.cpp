// Inputs, lamps, coins, hoppers and reels: what a board counts and drives as time passes.
#include <random>
#include <string>

#include "board_conversation.h"

namespace simulator {
namespace {

constexpr int kBusy = 109, kNotConfigured = 106;
constexpr std::uint8_t kBack = 255, kBackOn = 254;

class MachineTest : public BoardTest, public testing::WithParamInterface<Model> {
protected:
    MachineTest() { Use({.model = GetParam()}); }

    bool IsK40() const { return GetParam() == Model::kK40; }
    // The payload without its last byte on a K40, which has no longest pulse.
    Bytes Pulsed(Bytes payload) const {
        if (IsK40()) payload.pop_back();
        return payload;
    }
    std::vector<unsigned> LampsThatAre(Lamp state) const {
        std::vector<unsigned> numbers;
        for (unsigned n = 0; n < 40; ++n) {
            if (board.outputs.LampOf(n) == state) numbers.push_back(n);
        }
        return numbers;
    }
    bool IsOn(unsigned output) const { return board.outputs.LampOf(output) == Lamp::kOn; }
    Hopper& TheHopper() { return board.hoppers.At(5); }
    // The milliseconds after which a reel has taken each step.
    std::vector<int> StepTimes(unsigned reel, int during) {
        std::vector<int> times;
        for (int ms = 1; ms <= during; ++ms) {
            const unsigned before = board.reels.At(reel).Position();
            Wait(1);
            if (board.reels.At(reel).Position() != before) times.push_back(ms);
        }
        return times;
    }
    // Of one reel: position h l, steps left h l, turning, ramp.
    Bytes ReelStatus(std::ptrdiff_t reel) {
        const Bytes all = Send(1, 92).reply;
        EXPECT_EQ(all.size(), 18U);
        return {all.begin() + 6 * reel, all.begin() + 6 * reel + 6};
    }
};

using Numbers = std::vector<unsigned>;
using Times = std::vector<int>;

INSTANTIATE_TEST_SUITE_P(Models, MachineTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(MachineTest, InputIsOneBitOfTheImagesAndEachChangeIsReportedOnce) {
    const std::pair<unsigned, Bytes> cases[] = {
        {0, {1, 0, 0, 0, 0}},
        {8, {0, 1, 0, 0, 0}},
        {31, {0, 0, 0, 128, 0}},
        {32, {0, 0, 0, 0, 1}},
    };
    for (const auto& [input, image] : cases) {
        SCOPED_TRACE(input);
        board.inputs.Set(input, true);
        Talk({{0, 1, 75, {}, image}, {0, 1, 82, {}, image}, {0, 1, 81, {}, image}});
        board.inputs.Set(input, true);  // is on already
        Talk({{0, 1, 81, {}, {0, 0, 0, 0, 0}}});
        board.inputs.Set(input, false);
        Talk({{0, 1, 75, {}, {0, 0, 0, 0, 0}}, {0, 1, 81, {}, image}});
    }
    board.inputs.Set(33, true);
    board.inputs.SetContact(5, true);
    Talk({{0, 1, 82, {}, {32, 0, 0, 0, 0}}, {0, 1, 75, {}, {0, 0, 0, 0, 0}}});
    board.inputs.SetIdentity(6);
    Talk({{0, 1, 75, {}, {0, 0, 0, 6, 0}}});
}

TEST_P(MachineTest, MatrixIsScannedWhileMultiplexingIsOn) {
    for (const unsigned n : {0U, 24U, 95U, 96U})
        board.inputs.SetMultiplexed(n, true);
    Talk({{0, 1, 115, {}, Bytes(13, 0)}, {0, 1, 114, {1}}});
    Talk({{0, 1, 115, {}, {1, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 128}}, {0, 1, 114, {0}}});
    Talk({{0, 1, 115, {}, Bytes(13, 0)}});
}

TEST_P(MachineTest, PatternsAndMasksDecideInWhichPeriodALampIsOn) {
    Talk({{0, 1, 83, {0x03, 0, 0, 0x80, 0x20}}, {0, 1, 84, {0x02, 1, 0, 0, 0x20}}});
    EXPECT_EQ(LampsThatAre(Lamp::kOnPeriod), (Numbers{0, 31}));
    EXPECT_EQ(LampsThatAre(Lamp::kOffPeriod), Numbers{8});
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{1, 37}));
    Talk({{0, 1, 77, {0x0D, 1, 0, 0, 0xC0, 0x0A, 0, 0, 0, 0}}});  // "off" wins; no output 38
    EXPECT_EQ(LampsThatAre(Lamp::kOnPeriod), Numbers{31});
    EXPECT_EQ(LampsThatAre(Lamp::kOffPeriod), Numbers{});
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{0, 2, 8, 37}));
    board.PowerUp();
    EXPECT_EQ(LampsThatAre(Lamp::kOff).size(), 40U);
    EXPECT_EQ(board.outputs.Brightness(), 10);
}

TEST_P(MachineTest, PulseCoversThePatternForItsTimeOrUntilTheNext) {
    Talk({{0, 1, 77, {2, 0, 0, 0, 0, 0, 0, 0, 0, 0}}, {0, 1, 78, {255, 31}}, {0, 1, 79, {3, 1}}});
    EXPECT_EQ(LampsThatAre(Lamp::kOn), Numbers{31});
    Talk({{0, 1, 80, {}, {1, 1, 3}}, {11, 1, 80, {}, {1, 1, 2}}, {18, 1, 80, {}, {1, 1, 1}}});
    Talk({{1, 1, 80, {}, {2, 1, 0}}});
    EXPECT_EQ(LampsThatAre(Lamp::kOn), (Numbers{1, 31}));
    Wait(2519);
    EXPECT_TRUE(IsOn(31));
    Wait(1);
    EXPECT_FALSE(IsOn(31));
    Talk({{0, 1, 78, {200, 4}}, {0, 1, 79, {1, 4}}});
    EXPECT_FALSE(IsOn(4));
    Talk({{0, 1, 78, {200, 4}}, {0, 1, 78, {0, 4}}, {0, 1, 80, {}, {2, 4, 0}}});
    EXPECT_FALSE(IsOn(4));
    EXPECT_EQ(board.outputs.OnPulses(4), 3U);
    EXPECT_EQ(board.outputs.OffPulses(4), 1U);
}

TEST_P(MachineTest, CoinsPassOneAfterTheOtherAlsoWhenNobodyLooks) {
    board.inputs.Set(4, true);  // rests at the other level
    board.pulses.Add(3, 2, std::chrono::milliseconds(40));
    board.pulses.Add(3, 1, std::chrono::milliseconds(20));
    board.pulses.Add(4, 1, std::chrono::milliseconds(50));
    std::string levels3, levels4, pending;
    for (int step = 0; step < 11; ++step) {
        Wait(10);
        levels3 += board.inputs.Level(3) ? '1' : '0';
        levels4 += board.inputs.Level(4) ? '1' : '0';
        pending += std::to_string(board.pulses.Pending(3));
    }
    EXPECT_EQ(levels3, "11001100100");
    EXPECT_EQ(levels4, "00111111111") << "25 ms of 50";
    EXPECT_EQ(pending, "33322221100");
    board.pulses.Add(3, 1000, std::chrono::milliseconds(40));
    Wait(39'999);
    EXPECT_EQ(board.pulses.Pending(3), 1U);
    Wait(1);
    EXPECT_EQ(board.pulses.Pending(3), 0U);
}

TEST_P(MachineTest, EveryCoinCountsOnceThoughTheyAreTakenOffMeanwhile) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Talk({{0, 1, 107, Pulsed({3, 10, 1, 0})}, {0, 1, 108, {3, 1}}});
    board.pulses.Add(3, 200, std::chrono::milliseconds(40));
    int taken = 0;
    for (const Moment end = now + std::chrono::seconds(8); now < end;) {
        now = std::min(end, now + std::chrono::milliseconds(random() % 97));
        if (Send(1, 113, {3}).reply[0] != 4) continue;
        Talk({{0, 1, 110, {3}}});
        ++taken;
    }
    EXPECT_GT(taken, 50);
    EXPECT_EQ(taken + Send(1, 111, {3}).reply.at(0), 200);
}

TEST_P(MachineTest, CoinsCountOnlyWhileTheCheckRuns) {
    const auto coins = [&](unsigned count, int ms) {
        board.pulses.Add(3, count, std::chrono::milliseconds(ms));
    };
    const Bytes settings = Pulsed({3, 0, 1, 0});
    Talk({{0, 1, 107, settings}, {0, 1, 113, {3}, {0, 0}}});
    coins(1, 40);
    Talk({{40, 1, 111, {3}, {0}}, {0, 1, 108, {3, 1}}});
    coins(2, 40);
    // Configured and begun again, as by another program: no coin is lost, none has come since.
    Talk({{60, 1, 113, {3}, {4, 1}}, {0, 1, 107, settings}, {0, 1, 108, {3, 1}}});
    Talk({{0, 1, 113, {3}, {0, 1}}, {20, 1, 113, {3}, {4, 2}}, {0, 1, 108, {3, 0}}});
    coins(1, 40);
    Talk({{40, 1, 113, {3}, {4, 2}}, {0, 1, 109, {3}}, {0, 1, 110, {3}}, {0, 1, 111, {3}, {0}}});
    coins(1, 40);
    Talk({{10, 1, 108, {3, 1}}, {30, 1, 111, {3}, {0}}});  // was under way at the begin
    coins(300, 2);
    Talk({{600, 1, 113, {3}, {4, 255}}});
    board.PowerUp();
    Talk({{0, 1, 113, {3}, {0, 0}}, {0, 1, 108, {3, 1}, {}, kNotConfigured}});
}

TEST_F(BoardTest, TheLengthOfAPulseDecidesWhetherItCounts) {
    struct Case {
        std::uint8_t shortest, state, longestTens;
        int lengthMs;
        std::uint8_t count;
    };
    const Case cases[] = {
        {0, 1, 0, 1, 1},        {20, 1, 0, 19, 0},   {20, 1, 0, 20, 1},    {20, 255, 3, 30, 1},
        {20, 1, 3, 31, 0},      {255, 1, 0, 254, 0}, {0, 1, 255, 2550, 1}, {0, 1, 255, 2551, 0},
        {0, 1, 255, 900000, 0}, {0, 0, 0, 5, 1},     {6, 0, 0, 5, 0},      {0, 1, 0, 3600000, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << int{c.shortest} << ' ' << int{c.state} << ' '
                                        << int{c.longestTens} << ' ' << c.lengthMs);
        Use({});
        board.inputs.Set(7, c.state == 0);
        Talk({{0, 1, 107, {7, c.shortest, c.state, c.longestTens}}, {0, 1, 108, {7, 1}}});
        board.inputs.Set(7, c.state != 0);
        Wait(c.lengthMs);
        board.inputs.Set(7, c.state == 0);
        Talk({{100, 1, 111, {7}, {c.count}}});
    }
}

TEST_P(MachineTest, HopperPaysWhatWasWantedToTheCoin) {
    Talk({{0, 1, 112, Pulsed({5, 20, 1, 37, 0, 3, 0, 2})}, {0, 1, 113, {5}, {1, 0}}});
    Talk({{119, 1, 113, {5}, {1, 0}}, {1, 1, 113, {5}, {1, 1}}, {199, 1, 113, {5}, {1, 2}}});
    EXPECT_TRUE(IsOn(37));
    Talk({{1, 1, 113, {5}, {2, 3}}});
    EXPECT_FALSE(IsOn(37));
    Wait(10000);
    EXPECT_EQ(TheHopper().dropped, 3U);

    TheHopper().rate = 25;
    Talk({{0, 1, 112, Pulsed({5, 20, 1, 37, 1, 44, 0, 2})}});
    Talk({{300 * 40 + 19, 1, 113, {5}, {1, 43}}, {1, 1, 113, {5}, {2, 44}}});  // modulo 256
    Wait(10000);
    EXPECT_EQ(TheHopper().dropped, 303U);
    EXPECT_EQ(TheHopper().coins, 197U);

    TheHopper().rate = 10;
    Talk({{0, 1, 112, Pulsed({5, 20, 1, 0, 0, 2, 150, 2})}});
    Wait(120);
    EXPECT_FALSE(IsOn(0)) << "rests for 1500 ms";
    Wait(1499);
    EXPECT_FALSE(IsOn(0));
    Wait(1);
    EXPECT_TRUE(IsOn(0));
    Talk({{119, 1, 113, {5}, {1, 1}}, {1, 1, 113, {5}, {2, 2}}});
}

TEST_P(MachineTest, HopperGivesUpAfterASecondWithoutACoin) {
    const Step tenCoins = {0, 1, 112, Pulsed({5, 20, 1, 0, 0, 10, 0, 2})};
    TheHopper().coins = 2;
    Talk({tenCoins, {220 + 999, 1, 113, {5}, {1, 2}}, {1, 1, 113, {5}, {3, 2}}});
    EXPECT_FALSE(IsOn(0));

    TheHopper() = {.coins = 10, .jammed = true};
    Talk({tenCoins});
    Wait(600);
    TheHopper().jammed = false;
    Wait(320);
    TheHopper().jammed = true;
    Talk({{0, 1, 113, {5}, {1, 3}}, {1000, 1, 113, {5}, {3, 3}}, tenCoins});
    Wait(500);
    board.inputs.Set(5, true);  // a coin hangs before the sensor
    Talk({{1499, 1, 113, {5}, {1, 0}}, {1, 1, 113, {5}, {3, 0}}});
    board.inputs.Set(5, false);

    Wait(100);
    TheHopper() = {.rate = 1};  // is just quick enough
    Talk({{0, 1, 112, Pulsed({5, 20, 1, 0, 0, 2, 0, 2})}, {2020, 1, 113, {5}, {2, 2}}});
}

TEST_P(MachineTest, HopperOrOutputThatPaysIsBusyUntilItHasPaid) {
    Talk({
        {0, 1, 112, Pulsed({23, 20, 1, 4, 0, 1, 0, 2})},
        {0, 1, 112, Pulsed({23, 20, 1, 5, 0, 1, 0, 2}), {}, kBusy},
        {0, 1, 112, Pulsed({32, 20, 1, 4, 0, 1, 0, 2}), {}, kBusy},
        {0, 1, 112, Pulsed({32, 20, 1, 5, 0, 1, 0, 2})},
        {120, 1, 112, Pulsed({32, 20, 1, 4, 0, 1, 0, 2})},
        {0, 1, 113, {23}, {2, 1}},
    });
}

TEST_P(MachineTest, StoppedHopperIsOffAtOnceButTheCoinThatFallsCounts) {
    if (IsK40()) return;  // cannot stop one
    Talk({{0, 1, 112, {5, 20, 1, 4, 0, 10, 0, 2}}, {310, 1, 124, {5}}});
    EXPECT_FALSE(IsOn(4));
    Talk({{0, 1, 113, {5}, {0, 2}}, {5000, 1, 113, {5}, {0, 3}}});
    EXPECT_EQ(TheHopper().dropped, 3U);
    Talk({{0, 1, 112, {5, 20, 1, 4, 0, 10, 0, 2}}, {50, 1, 124, {5}}});
    Talk({{0, 1, 112, {5, 20, 1, 4, 0, 1, 0, 2}}, {119, 1, 113, {5}, {1, 0}}});  // afresh
    Talk({{1, 1, 124, {5}}, {0, 1, 113, {5}, {2, 1}}});  // there was nothing to stop
}

TEST_P(MachineTest, StatusIsOfTheCheckOrReleaseBegunLast) {
    board.inputs.Set(5, true);  // rests high
    Talk({{0, 1, 107, Pulsed({5, 0, 0, 0})}, {0, 1, 112, Pulsed({5, 20, 0, 4, 0, 2, 0, 2})}});
    Talk({{0, 1, 108, {5, 1}}, {0, 1, 113, {5}, {0, 0}}, {220, 1, 113, {5}, {4, 2}}});
    Talk({{0, 1, 112, Pulsed({5, 20, 0, 4, 0, 1, 0, 2})}, {0, 1, 113, {5}, {1, 0}}});
    Talk({{120, 1, 113, {5}, {2, 1}}});
}

TEST_P(MachineTest, UnpluggedBoardPaysNothing) {
    Talk({{0, 1, 79, {255, 4}}, {0, 1, 112, Pulsed({5, 20, 1, 4, 0, 10, 0, 2})}});
    EXPECT_TRUE(IsOn(4)) << "whatever pulses say";
    Wait(105);
    board.PowerDown();
    EXPECT_FALSE(IsOn(4));
    Wait(5000);
    EXPECT_FALSE(board.inputs.Level(5)) << "the coin has fallen";
    board.PowerUp();
    Talk({{5000, 1, 113, {5}, {0, 0}}});
    EXPECT_EQ(TheHopper().coins, 499U);
}

TEST_P(MachineTest, StepsOfAReelFallToTheMillisecond) {
    Talk({{0, 1, 86, {3, 0, 20, 4}}, {0, 1, 87, {1, 1, 0, 3}}});
    EXPECT_EQ(StepTimes(1, 100), (Times{4, 8, 12})) << "full speed";
    Talk({{0, 1, 88, {1, 3, 9, 7, 0}}, {0, 1, 89, {1, 2, 6, 8}}, {0, 1, 87, {1, 1, 0, 7}}});
    EXPECT_EQ(StepTimes(1, 100), (Times{9, 16, 17, 21, 25, 31, 39}));
    Talk({{0, 1, 87, {1, kBack, 0, 4}}});
    EXPECT_EQ(StepTimes(1, 100), (Times{9, 16, 22, 30})) << "both ramps meet";
    Talk({{0, 1, 87, {1, 2, 0, 1}}});
    EXPECT_EQ(StepTimes(1, 22), (Times{9, 16, 17, 21})) << "then 1 ms of a step has passed";
    Talk({{0, 1, 87, {1, 0, 0, 0}}});
    EXPECT_EQ(StepTimes(1, 100), (Times{5, 13}));
    Talk({{0, 1, 86, {1, 0, 0, 0}}, {0, 1, 87, {0, 2, 0, 0}}});
    Wait(5 * 201);
    EXPECT_EQ(ReelStatus(0), (Bytes{0, 1, 255, 255, 1, 0})) << "200 steps of 5 ms";
    Wait(3'600'000 + 7 * 5);
    EXPECT_EQ(ReelStatus(0), (Bytes{0, 8, 255, 255, 1, 0})) << "an hour on";
}

TEST_P(MachineTest, StatusFollowsASpin) {
    Talk({{0, 1, 86, {3, 0, 20, 4}}, {0, 1, 88, {2, 1, 10}}, {0, 1, 89, {2, 1, 10}}});
    Talk({{0, 1, 87, {2, kBack, 1, 2}}});
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 0, 1, 2, 1, 1}));
    Wait(10);
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 19, 1, 1, 1, 0}));
    Talk({{0, 1, 87, {2, kBack, 0, 3}}});
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 19, 0, 3, 1, 0})) << "no new ramp up";
    Wait(8);
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 17, 0, 1, 1, 2}));
    Talk({{0, 1, 87, {2, 1, 0, 9}}});
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 17, 0, 9, 1, 1})) << "afresh in the other direction";
    Talk({{0, 1, 87, {2, 1, 0, 0}}, {0, 1, 86, {3, 0, 10, 4}}});
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 7, 0, 0, 0, 0})) << "17 modulo 10";
}

TEST_P(MachineTest, SynchronisedReelsBeginTogetherAndLoseAllButTheirPlaceWithoutPower) {
    Talk({{0, 1, 86, {3, 0, 20, 4}}, {0, 1, 91, {7}}, {0, 1, 87, {0, 1, 0, 5}}});
    Talk({{0, 1, 87, {2, kBackOn, 0, 0}}});
    Wait(1000);
    EXPECT_EQ(ReelStatus(0), (Bytes{0, 0, 0, 5, 0, 0}));
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 0, 255, 255, 0, 0}));
    Talk({{0, 1, 87, {1, 1, 0, 1}}});
    Wait(4);
    EXPECT_EQ(ReelStatus(0), (Bytes{0, 1, 0, 4, 1, 0}));
    EXPECT_EQ(ReelStatus(1), (Bytes{0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 19, 255, 255, 1, 0}));
    Talk({{0, 1, 87, {1, 1, 0, 1}}, {0, 1, 87, {0, 1, 0, 9}}, {0, 1, 87, {0, 0, 0, 0}}});
    Talk({{0, 1, 91, {0}}});
    Wait(4);
    EXPECT_EQ(ReelStatus(0), (Bytes{0, 1, 0, 0, 0, 0})) << "a stop forgets what waits";
    EXPECT_EQ(ReelStatus(1), (Bytes{0, 2, 0, 0, 0, 0}));
    board.PowerDown();
    Wait(1000);
    board.PowerUp();
    EXPECT_EQ(ReelStatus(2), (Bytes{0, 18, 0, 0, 0, 0}));
    Talk({{0, 1, 87, {2, 1, 0, 1}, {}, kNotConfigured}});
}

}  // namespace
}  // namespace simulator
