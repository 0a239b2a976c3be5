// Inputs, lamps, coins, hoppers and reels: what a board counts and drives as time passes.
#include <random>

#include "board_conversation.h"

namespace simulator {
namespace {

class MachineTest : public BoardModelTest, public testing::WithParamInterface<Model> {
protected:
    MachineTest() {
        Use({.model = GetParam()});
        Word("contact", [this](auto& n) { board.inputs.SetContact(n.at(0), n.at(1) != 0); });
        Word("switch", [this](auto& n) { board.inputs.SetMultiplexed(n.at(0), true); });
        Word("on", [this](auto&) { return LampsThatAre(Lamp::kOn); });
        Word("on-period", [this](auto&) { return LampsThatAre(Lamp::kOnPeriod); });
        Word("off-period", [this](auto&) { return LampsThatAre(Lamp::kOffPeriod); });
        Word("coins", [this](auto& n) {  // input, how many, milliseconds each
            board.pulses.Add(n.at(0), n.at(1), std::chrono::milliseconds(n.at(2)));
        });
        Word("pending", [this](auto& n) { return board.pulses.Pending(n.at(0)); });
        Word("level", [this](auto& n) { return board.inputs.Level(n.at(0)); });
        // The hopper on input 5.
        Word("dropped", [this](auto&) { return TheHopper().dropped; });
        Word("fill", [this](auto& n) { TheHopper().coins = n.at(0); });
        Word("left", [this](auto&) { return TheHopper().coins; });
        Word("rate", [this](auto& n) { TheHopper().rate = n.at(0); });
        Word("jam", [this](auto& n) { TheHopper().jammed = n.at(0) != 0; });
        // Of one reel: position h l, steps left h l, turning, ramp.
        Word("reel", [this](auto& n) {
            const Bytes all = Send("1/92", {}).reply;
            const auto status = all.begin() + 6 * n.at(0);
            return all.size() == 18 ? Numbers(status, status + 6) : Numbers();
        });
        // The milliseconds after which a reel takes each step, in a while.
        Word("steps", [this](auto& n) { return StepTimes(n.at(0), n.at(1)); });
    }

    std::string Do(const std::string& word, const Numbers& numbers) override {
        // A K40 knows no longest pulse, which comes last.
        const bool hasOneLess = GetParam() == Model::kK40 && (word == "1/107" || word == "1/112");
        return BoardModelTest::Do(word, {numbers.begin(), numbers.end() - (hasOneLess ? 1 : 0)});
    }
    Numbers LampsThatAre(Lamp state) const {
        Numbers numbers;
        for (unsigned n = 0; n < 40; ++n) {
            if (board.outputs.LampOf(n) == state) numbers.push_back(n);
        }
        return numbers;
    }
    Hopper& TheHopper() { return board.hoppers.At(5); }
    Numbers StepTimes(unsigned reel, unsigned during) {
        Numbers times;
        for (unsigned ms = 1; ms <= during; ++ms) {
            const unsigned before = board.reels.At(reel).Position();
            now += std::chrono::milliseconds(1);
            board.Advance();
            if (board.reels.At(reel).Position() != before) times.push_back(ms);
        }
        return times;
    }
};

INSTANTIATE_TEST_SUITE_P(Models, MachineTest,
                         testing::Values(Model::kK40, Model::kK44, Model::kK50));

TEST_P(MachineTest, InputIsOneBitOfTheImagesAndEachChangeIsReportedOnce) {
    const std::pair<const char*, const char*> cases[] = {
        {"set 0", " = 1 0 0 0 0"},
        {"set 8", " = 0 1 0 0 0"},
        {"set 31", " = 0 0 0 128 0"},
        {"set 32", " = 0 0 0 0 1"},
    };
    for (const auto& [set, image] : cases) {
        Talk(set + " 1; 1/75"s + image + "; 1/82" + image + "; 1/81" + image);
        Talk(set + " 1; 1/81 = 0*5"s);  // is on already
        Talk(set + " 0; 1/75 = 0*5; 1/81"s + image);
        Talk(set + " 1; "s + set + " 0; 1/81" + image);  // has changed, if not for long
    }
    Talk("set 33 1; contact 5 1; 1/82 = 32 0 0 0 0; 1/75 = 0*5");
    board.inputs.SetIdentity(6);
    Talk("1/75 = 0 0 0 6 0");
}

TEST_P(MachineTest, MatrixIsScannedWhileMultiplexingIsOn) {
    Talk(R"(
        switch 0; switch 24; switch 95; switch 96; 1/115 = 0*13
        1/114 1; 1/115 = 1 1 0 0 1 0 0 0 0 0 0 0 128; 1/114 0; 1/115 = 0*13)");
}

TEST_P(MachineTest, PatternsAndMasksDecideInWhichPeriodALampIsOn) {
    Talk(R"(
        1/83 0x03 0 0 0x80 0x20; 1/84 0x02 1 0 0 0x20
        on-period = 0 31; off-period = 8; on = 1 37
        1/77 0x0D 1 0 0 0xC0  0x0A 0 0 0 0  # "off" wins; there is no output 38
        on-period = 31; off-period; on = 0 2 8 37
        1/85 3; power-up; on-period; off-period; on)");
    EXPECT_EQ(board.outputs.Brightness(), 10);
}

TEST_P(MachineTest, PulseCoversThePatternForItsTimeOrUntilTheNext) {
    Talk(R"(
        1/77 2 0*9; 1/78 255 31; 1/79 3 1; on = 31
        1/80 = 1 1 3; +11 1/80 = 1 1 2; +18 1/80 = 1 1 1; +1 1/80 = 2 1 0; on = 1 31
        +2519 on = 1 31; +1 on = 1
        1/78 200 4; 1/79 1 4; on = 1
        1/78 200 4; 1/78 0 4; 1/80 = 2 4 0; on = 1)");
    EXPECT_EQ(board.outputs.OnPulses(4), 3U);
    EXPECT_EQ(board.outputs.OffPulses(4), 1U);
}

TEST_P(MachineTest, CoinsPassOneAfterTheOtherAlsoWhenNobodyLooks) {
    Talk("set 4 1; coins 3 2 40; coins 3 1 20; coins 4 1 50");  // input 4 rests at the other level
    std::string seen;  // every 10 ms: both levels, and how many are to come on input 3
    for (int step = 0; step < 11; ++step) {
        Talk("+10");
        seen += Do("level", {3}) + Do("level", {4}) + Do("pending", {3}) + ",";
    }
    EXPECT_EQ(seen,
              " 1 0 3, 1 0 3, 0 1 3, 0 1 2, 1 1 2, 1 1 2, 0 1 2, 0 1 1, 1 1 1, 0 1 0, 0 1 0,");
    Talk("coins 3 1000 40; +39999 pending 3 = 1; +1 pending 3 = 0");
}

TEST_P(MachineTest, EveryCoinCountsOnceThoughTheyAreTakenOffMeanwhile) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Talk("1/107 3 10 1 0; 1/108 3 1; coins 3 200 40");
    int taken = 0;
    for (const Moment end = now + std::chrono::seconds(8); now < end;) {
        now = std::min(end, now + std::chrono::milliseconds(random() % 97));
        if (Send("1/113", {3}).reply.at(0) != 4) continue;
        Talk("1/110 3");
        ++taken;
    }
    EXPECT_GT(taken, 50);
    EXPECT_EQ(taken + Send("1/111", {3}).reply.at(0), 200);
}

TEST_P(MachineTest, CoinsCountOnlyWhileTheCheckRuns) {
    Talk(R"(
        1/107 3 0 1 0; 1/113 3 = 0 0; coins 3 1 40; +40 1/111 3 = 0
        1/108 3 1; coins 3 2 40; +60 1/113 3 = 4 1
        # Configured and begun again, as by another program: no coin is lost, none has come since.
        1/107 3 0 1 0; 1/108 3 1; 1/113 3 = 0 1; +20 1/113 3 = 4 2
        1/108 3 0; coins 3 1 40; +40 1/113 3 = 4 2; 1/109 3; 1/110 3; 1/111 3 = 0
        coins 3 1 40; +10 1/108 3 1; +30 1/111 3 = 0  # was under way at the begin
        coins 3 300 2; +600 1/113 3 = 4 255
        power-up; 1/113 3 = 0 0; 1/108 3 1 !106)");
}

TEST_F(BoardModelTest, TheLengthOfAPulseDecidesWhetherItCounts) {
    // Of one input the shortest pulse, active state and longest pulse, and how long one lasts.
    Word("pulse", [this](auto& n) {
        const bool rest = n.at(1) == 0;
        Use({});
        board.inputs.Set(7, rest);
        Talk("1/107 7 " + Text(Numbers(n.begin(), n.begin() + 3)) + "; 1/108 7 1");
        board.inputs.Set(7, !rest);
        Talk("+" + std::to_string(n.at(3)) + " set 7 " + Text(rest) + "; +100");
        return Send("1/111", {7});
    });
    Talk(R"(
        pulse 0 1 0 1 = 1; pulse 0 1 0 3600000 = 1; pulse 0 0 0 5 = 1; pulse 6 0 0 5 = 0
        pulse 20 1 0 19 = 0; pulse 20 1 0 20 = 1; pulse 255 1 0 254 = 0
        pulse 20 255 3 30 = 1; pulse 20 1 3 31 = 0
        pulse 0 1 255 2550 = 1; pulse 0 1 255 2551 = 0; pulse 0 1 255 900000 = 0)");
}

TEST_P(MachineTest, HopperPaysWhatWasWantedToTheCoin) {
    Talk(R"(
        1/112 5 20 1 37 0 3 0 2; 1/113 5 = 1 0
        +119 1/113 5 = 1 0; +1 1/113 5 = 1 1; +199 1/113 5 = 1 2; on = 37
        +1 1/113 5 = 2 3; on; +10000 dropped = 3

        rate 25; 1/112 5 20 1 37 1 44 0 2
        +12019 1/113 5 = 1 43; +1 1/113 5 = 2 44  # modulo 256
        +10000 dropped = 303; left = 197

        rate 10; 1/112 5 20 1 0 0 2 150 2; +120 on; +1499 on; +1 on = 0  # rests for 1500 ms
        +119 1/113 5 = 1 1; +1 1/113 5 = 2 2)");
}

TEST_P(MachineTest, HopperGivesUpAfterASecondWithoutACoin) {
    Talk(R"(
        fill 2; 1/112 5 20 1 0 0 10 0 2; +1219 1/113 5 = 1 2; +1 1/113 5 = 3 2; on
        fill 10; jam 1; 1/112 5 20 1 0 0 10 0 2; +600 jam 0; +320 jam 1
        1/113 5 = 1 3; +1000 1/113 5 = 3 3
        1/112 5 20 1 0 0 10 0 2; +500 set 5 1  # a coin hangs before the sensor
        +1499 1/113 5 = 1 0; +1 1/113 5 = 3 0
        set 5 0; +100 fill 500; jam 0; rate 1  # is just quick enough
        1/112 5 20 1 0 0 2 0 2; +2020 1/113 5 = 2 2)");
}

TEST_P(MachineTest, HopperOrOutputThatPaysIsBusyUntilItHasPaid) {
    Talk(R"(
        1/112 23 20 1 4 0 1 0 2; 1/112 23 20 1 5 0 1 0 2 !109; 1/112 32 20 1 4 0 1 0 2 !109
        1/112 32 20 1 5 0 1 0 2; +120 1/112 32 20 1 4 0 1 0 2; 1/113 23 = 2 1)");
}

TEST_P(MachineTest, StoppedHopperIsOffAtOnceButTheCoinThatFallsCounts) {
    if (GetParam() == Model::kK40) return;  // cannot stop one
    Talk(R"(
        1/112 5 20 1 4 0 10 0 2; +310 1/124 5; on; 1/113 5 = 0 2; +5000 1/113 5 = 0 3; dropped = 3
        1/112 5 20 1 4 0 10 0 2; +50 1/124 5
        1/112 5 20 1 4 0 1 0 2; +119 1/113 5 = 1 0  # afresh
        +1 1/124 5; 1/113 5 = 2 1                 # there was nothing to stop)");
}

TEST_P(MachineTest, StatusIsOfTheCheckOrReleaseBegunLast) {
    Talk(R"(
        set 5 1; 1/107 5 0 0 0; 1/112 5 20 0 4 0 2 0 2  # rests high
        1/108 5 1; 1/113 5 = 0 0; +220 1/113 5 = 4 2
        1/112 5 20 0 4 0 1 0 2; 1/113 5 = 1 0; +120 1/113 5 = 2 1)");
}

TEST_P(MachineTest, UnpluggedBoardPaysNothing) {
    Talk(R"(
        1/79 255 4; 1/112 5 20 1 4 0 10 0 2; on = 4  # whatever pulses say
        +105 power-down; on; +5000 level 5 = 0     # the coin has fallen
        power-up; +5000 1/113 5 = 0 0; left = 499)");
}

TEST_P(MachineTest, StepsOfAReelFallToTheMillisecond) {
    Talk(R"(
        1/86 3 0 20 4; 1/87 1 1 0 3; steps 1 100 = 4 8 12  # full speed
        1/88 1 3 9 7 0; 1/89 1 2 6 8; 1/87 1 1 0 7; steps 1 100 = 9 16 17 21 25 31 39
        1/87 1 255 0 4; steps 1 100 = 9 16 22 30           # both ramps meet
        1/87 1 2 0 1; steps 1 22 = 9 16 17 21              # then 1 ms of a step has passed
        1/87 1 0 0 0; steps 1 100 = 5 13
        1/87 1 1 0 9; 1/87 1 0 0 0; steps 1 100 = 6 14     # only the ramp down is left
        1/86 1 0 0 0; 1/87 0 2 0 0; +1005 reel 0 = 0 1 255 255 1 0  # 200 steps of 5 ms
        +3600035 reel 0 = 0 8 255 255 1 0                           # an hour on)");
}

TEST_P(MachineTest, StatusFollowsASpin) {
    Talk(R"(
        1/86 3 0 20 4; 1/88 2 1 10; 1/89 2 1 10
        1/87 2 255 1 2; reel 2 = 0 0 1 2 1 1; +10 reel 2 = 0 19 1 1 1 0
        1/87 2 255 0 3; reel 2 = 0 19 0 3 1 0  # no new ramp up
        +8 reel 2 = 0 17 0 1 1 2
        1/87 2 1 0 9; reel 2 = 0 17 0 9 1 1    # afresh in the other direction
        1/87 2 1 0 0; 1/86 3 0 10 4; reel 2 = 0 7 0 0 0 0  # 17 modulo 10)");
}

TEST_P(MachineTest, SynchronisedReelsBeginTogetherAndLoseAllButTheirPlaceWithoutPower) {
    Talk(R"(
        1/86 3 0 20 4; 1/91 7; 1/87 0 1 0 5; 1/87 2 254 0 0
        +1000 reel 0 = 0 0 0 5 0 0; reel 2 = 0 0 255 255 0 0
        1/87 1 1 0 1; +4 reel 0 = 0 1 0 4 1 0; reel 1 = 0 1 0 0 0 0; reel 2 = 0 19 255 255 1 0
        1/87 1 1 0 1; 1/87 0 1 0 9; 1/87 0 0 0 0; 1/91 0
        +4 reel 0 = 0 1 0 0 0 0; reel 1 = 0 2 0 0 0 0  # a stop forgets what waits
        1/91 7; 1/87 1 1 0 5; power-down; +1000 power-up; reel 1 = 0 2 0 0 0 0
        reel 2 = 0 18 0 0 0 0; 1/87 2 1 0 1 !106)");
}

}  // namespace
}  // namespace simulator
