// The pulses that the cabinet gives on inputs.
#include "model_expectations.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

TEST(BoardPulsesTest, CoinsPassOneAfterTheOtherAlsoWhenNobodyLooks) {
    Moment now{milliseconds(1'700'000'000'000)};
    Board board({.time = [&now] { return now; }});
    board.inputs.Set(4, true);  // rests at the other level
    board.pulses.Add(3, 2, milliseconds(40));
    board.pulses.Add(3, 1, milliseconds(20));
    board.pulses.Add(4, 1, milliseconds(50));
    board.pulses.Add(33, 1, milliseconds(40));

    std::string levels3, levels4, pending;
    for (int step = 0; step < 11; ++step) {
        now += milliseconds(10);
        board.Advance();
        levels3 += board.inputs.Level(3) ? '1' : '0';
        levels4 += board.inputs.Level(4) ? '1' : '0';
        pending += std::to_string(board.pulses.Pending(3));
    }
    EXPECT_EQ(levels3, "11001100100");
    EXPECT_EQ(levels4, "00111111111") << "25 ms of 50";
    EXPECT_EQ(pending, "33322221100");

    board.pulses.Add(3, 1000, milliseconds(40));
    now += milliseconds(39'999);
    board.Advance();
    EXPECT_EQ(board.pulses.Pending(3), 1U);
    now += milliseconds(1);
    EXPECT_EQ(board.Handle(81, 1, {}), Accepted({0x18, 0, 0, 0, 0}));
    EXPECT_EQ(board.pulses.Pending(3), 0U);
}

}  // namespace
}  // namespace simulator
