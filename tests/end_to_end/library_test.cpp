/**
 * @file library_test.cpp
 * @brief The shipped library in front of simulated boards, through real paths and a real ioctl.
 *
 * Runs inside marvane-sim with a K44 (0), a K40 at 12 Mbit/s (1) and a K50 (5), and plays the
 * cabinet through marvane-sim ctl. Meets a board, or fails.
 */
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "marvaneusb.h"

namespace {

void Ctl(const std::string& words) {
    ASSERT_EQ(std::system((MARVANE_SIM " ctl " + words).c_str()), 0) << words;
}

class EndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        Ctl("0 input 5 off");
        ASSERT_EQ(board.InitPort(0), 1)
            << "no simulated board; last error " << board.GetLastError();
    }
    unsigned Input(MarvaneUSB& opened, unsigned input) {
        unsigned value = 99;
        return opened.GetInputBit(static_cast<_usbInputBitId>(input), &value) ? value : 99;
    }

    MarvaneUSB board;
};

TEST_F(EndToEndTest, EveryModelOpensThroughSysfsAndItsNode) {
    struct Case {
        int number, type, speed;
    };
    for (const Case& c : std::vector<Case>{{0, 2, 2}, {1, 1, 1}, {5, 3, 2}}) {
        SCOPED_TRACE(c.number);
        unsigned char type = 0;
        unsigned char speed = 0;
        ASSERT_EQ(board.InitPort(c.number), 1);
        EXPECT_EQ(board.GetFittedBoard(&type), 1);
        EXPECT_EQ(board.GetBoardSpeed(&speed), 1);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(speed, c.speed);

        Ctl(std::to_string(c.number) + " input 9 on");
        EXPECT_EQ(Input(board, 9), 1U);
        Ctl(std::to_string(c.number) + " input 9 off");
        EXPECT_EQ(Input(board, 9), 0U);
    }
    EXPECT_EQ(board.InitPort(2), 0);
}

TEST_F(EndToEndTest, TheIdentitySwitchChoosesTheBoard) {
    Ctl("0 identity 2");
    Ctl("5 identity 6");
    unsigned char type = 0;
    EXPECT_EQ(board.InitUSBBoard(6), 1);
    EXPECT_EQ(board.GetFittedBoard(&type), 1);
    EXPECT_EQ(type, 3);
    EXPECT_EQ(board.InitUSBBoard(7), 0);
    Ctl("0 identity 0");
    Ctl("5 identity 0");
}

TEST_F(EndToEndTest, TwoProcessesUseOneBoardAtOnce) {
    constexpr int kExchanges = 200;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MarvaneUSB own;  // a descriptor of its own
        int failures = own.InitPort(0) ? 0 : 1;
        for (int i = 0; i < kExchanges && failures == 0; ++i) {
            if (Input(own, 5) != 0) ++failures;
        }
        _exit(failures);
    }
    int failures = 0;
    for (int i = 0; i < kExchanges; ++i) {
        if (!board.InitPort(0) || Input(board, 5) != 0) ++failures;
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(failures, 0);
}

TEST_F(EndToEndTest, AnUnpluggedBoardFailsAndOpensAgainWhenItIsBack) {
    Ctl("0 unplug");
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Input(board, 5), 99U);
        EXPECT_EQ(board.GetLastError(), USB_ERR_TRANSFER_FAILED);
    }
    EXPECT_EQ(board.InitPort(0), 0);
    EXPECT_EQ(board.close(), 1);
    Ctl("0 plug");
    ASSERT_EQ(board.InitPort(0), 1);
    Ctl("0 input 5 on");
    EXPECT_EQ(Input(board, 5), 1U);
}

}  // namespace
