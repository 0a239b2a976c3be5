// The clock, the failure flags, and the security switches with their log and flags.
#include "board_clock.h"

#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kUnknown = 100;

class BoardClockTest : public testing::Test {
protected:
    Board MakeBoard(Model model) {
        return Board({.model = model, .time = [this] { return now; }});
    }
    Answer Send(std::uint8_t command, const Bytes& payload = {}) {
        return board.Handle(command, 5, payload);
    }

    Moment now{seconds(0x01020304)};
    Board board = MakeBoard(Model::kK50);
};

const Answer kNoFlags = Accepted({0, 0});
const Answer kEndOfLog = Accepted({0, 0, 0, 0, 0});

TEST_F(BoardClockTest, CountsSecondsSince1970OrFromWhatItIsSetTo) {
    now += milliseconds(999);
    EXPECT_EQ(Send(21), Accepted({4, 3, 2, 1}));
    now += milliseconds(1);
    EXPECT_EQ(Send(21), Accepted({5, 3, 2, 1}));

    EXPECT_EQ(Send(20, {0xFE, 0xFF, 0xFF, 0xFF}), Accepted());
    EXPECT_EQ(Send(21), Accepted({0xFE, 0xFF, 0xFF, 0xFF}));
    now += seconds(3);
    EXPECT_EQ(Send(21), Accepted({1, 0, 0, 0})) << "past the highest value";

    board.PowerUp();
    EXPECT_EQ(Send(21), Accepted({1, 0, 0, 0}));
}

TEST_F(BoardClockTest, FailuresShowOnce) {
    EXPECT_EQ(Send(220), Accepted({0}));
    EXPECT_EQ(Send(119), Accepted({0}));
    EXPECT_EQ(Send(221), Accepted({0, 0, 0, 0}));

    board.clock.FailBattery();
    board.PowerUp();
    now += seconds(5);
    EXPECT_EQ(Send(119), Accepted({1}));
    EXPECT_EQ(Send(119), Accepted({0}));
    EXPECT_EQ(Send(221), Accepted({4, 3, 2, 1})) << "and is not reset";
    EXPECT_EQ(Send(21), Accepted({9, 3, 2, 1}));
    EXPECT_EQ(Send(220), Accepted({0})) << "the other failure";

    board.clock.FailClock();
    now += seconds(2);
    EXPECT_EQ(Send(21), Accepted({2, 0, 0, 0}));
    EXPECT_EQ(Send(220), Accepted({1}));
    EXPECT_EQ(Send(220), Accepted({0}));
}

TEST_F(BoardClockTest, ModelsHaveTheirFlags) {
    struct Case {
        Model model;
        int batteryFlag, clockFlag, clockAtFailure;
    };
    const Case cases[] = {
        {Model::kK40, kUnknown, kUnknown, kUnknown},
        {Model::kK44, 0, kUnknown, kUnknown},
        {Model::kK50, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.model));
        board = MakeBoard(c.model);
        EXPECT_EQ(Send(119).status, c.batteryFlag);
        EXPECT_EQ(Send(220).status, c.clockFlag);
        EXPECT_EQ(Send(221).status, c.clockAtFailure);
        EXPECT_EQ(Send(21).status, 0);
        EXPECT_EQ(Send(41).status, 0);
    }
}

TEST_F(BoardClockTest, LogIsReadInPassesAndEndsWithZeroes) {
    board.clock.SetSwitch(0, true);
    now += seconds(1);
    board.clock.SetSwitch(7, true);
    board.clock.SetSwitch(7, true);   // is open already
    board.clock.SetSwitch(1, false);  // is closed already
    board.clock.SetSwitch(8, true);   // there is none
    now += seconds(1);
    board.clock.SetSwitch(0, false);

    const Answer entries[] = {Accepted({4, 3, 2, 1, 0x81}), Accepted({5, 3, 2, 1, 0x88}),
                              Accepted({6, 3, 2, 1, 0x01}), kEndOfLog, kEndOfLog};
    for (const Answer& entry : entries)
        EXPECT_EQ(Send(41), entry);

    EXPECT_EQ(Send(40), Accepted());
    EXPECT_EQ(Send(41), entries[0]);
    board.PowerUp();
    EXPECT_EQ(Send(41), entries[0]) << "a new pass";
    EXPECT_EQ(Send(42), Accepted());
    EXPECT_EQ(Send(41), kEndOfLog);
    board.clock.SetSwitch(2, true);
    EXPECT_EQ(Send(41), Accepted({6, 3, 2, 1, 0x83}));
}

TEST_F(BoardClockTest, FullLogLosesItsOldestEntries) {
    const auto operate = [&](int times) {
        for (int i = 0; i < times; ++i) {
            board.clock.SetSwitch(3, !board.clock.IsSwitchOpen(3));
            now += seconds(1);
        }
    };
    operate(255);
    EXPECT_EQ(Send(41), Accepted({4, 3, 2, 1, 0x84}));
    EXPECT_EQ(Send(41), Accepted({5, 3, 2, 1, 0x04}));
    operate(2);
    EXPECT_EQ(Send(41), Accepted({6, 3, 2, 1, 0x84})) << "the pass goes on where it was";
    Send(40);
    EXPECT_EQ(Send(41), Accepted({5, 3, 2, 1, 0x04}));
    for (int i = 1; i < 256; ++i)
        EXPECT_NE(Send(41), kEndOfLog) << i;
    EXPECT_EQ(Send(41), kEndOfLog);
}

TEST_F(BoardClockTest, FlagPairsAreResetEachByItsOwnRead) {
    EXPECT_EQ(Send(64), kNoFlags);
    board.clock.SetSwitch(0, true);
    board.clock.SetSwitch(7, true);
    board.clock.SetSwitch(7, false);
    EXPECT_EQ(Send(64), Accepted({0x81, 0x80}));
    EXPECT_EQ(Send(64), kNoFlags);
    board.clock.SetSwitch(0, false);
    EXPECT_EQ(Send(67), Accepted({0x81, 0x81}));
    EXPECT_EQ(Send(67), kNoFlags);
    board.PowerUp();
    EXPECT_EQ(Send(64), Accepted({0, 0x01}));
}

}  // namespace
}  // namespace simulator
