/**
 * @file reels_test.cpp
 * @brief Reels: what is sent, which reels count as configured, and how their status is read.
 */
#include <cstring>
#include <numeric>

#include "board_test.h"

namespace {

class ReelsTest : public BoardTest {
protected:
    void OpenAccepting(Model model) {
        Open(model);
        AcceptEverything();
    }

    std::function<int()> Spin(unsigned char reel, unsigned char setting) {
        return [=, this] { return board.SpinReels(reel, setting, 0x0102); };
    }
};

TEST_F(ReelsTest, SettingsAreSentHighByteFirst) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        OpenAccepting(model);
        Expect({
            // clang-format off
            {"reels",            [&] { return board.ConfigureReels(2, 200, 1); },      1, 0, {{86, 1, {2, 0, 200, 1}}}},
            {"reels, wide",      [&] { return board.ConfigureReelsEx(3, 0x0102, 4); }, 1, 0, {{86, 1, {3, 1, 2, 4}}}},
            {"four reels",       [&] { return board.ConfigureReels(4, 200, 1); },      0, 8, {}},
            {"four reels, wide", [&] { return board.ConfigureReelsEx(4, 1, 1); },      0, 8, {}},
            {"spin",             Spin(2, 1),                                           1, 0, {{87, 1, {2, 1, 1, 2}}}},
            {"duty cycle",       [&] { return board.SetDutyCycle(1, 2, 255); },        1, 0, {{90, 1, {1, 2, 255}}}},
            {"synchronise",      [&] { return board.ReelSynchroniseEnable(200); },     1, 0, {{91, 1, {200}}}},
            // clang-format on
        });
    }
}

TEST_F(ReelsTest, SpinSettingIsASignedByteFromMinusTwoToTwo) {
    OpenAccepting(Model::kK44);
    ASSERT_EQ(board.ConfigureReelsEx(1, 0, 0), 1);
    for (unsigned setting = 0; setting <= 255; ++setting) {
        SCOPED_TRACE(setting);
        const auto byte = static_cast<unsigned char>(setting);
        if (setting <= 2 || setting >= 254) {
            Expect({{"accepted", Spin(0, byte), 1, 0, {{87, 1, {0, byte, 1, 2}}}}});
        } else {
            Expect({{"refused", Spin(0, byte), 0, 8, {}},
                    {"before the reel is looked at", Spin(3, byte), 0, 8, {}}});
        }
    }
}

TEST_F(ReelsTest, OnlyConfiguredReelsSpin) {
    OpenAccepting(Model::kK40);
    const auto configure = [&](unsigned char count, int status) {
        if (status != 0) driver.AnswerNext({.status = status});
        EXPECT_EQ(board.ConfigureReelsEx(count, 0, 0), status == 0 ? 1 : 0);
    };
    const auto expectSpinning = [&](unsigned char count) {
        for (unsigned char reel = 0; reel <= 3; ++reel) {
            SCOPED_TRACE(static_cast<int>(reel));
            if (reel < count) {
                Expect({{"configured", Spin(reel, 0), 1, 0, {{87, 1, {reel, 0, 1, 2}}}}});
            } else {
                Expect({{"not configured", Spin(reel, 0), 0, 38, {}}});
            }
        }
        Expect({{"no such reel", Spin(255, 0), 0, 38, {}}});
    };
    expectSpinning(0);
    configure(0, 0);
    expectSpinning(0);
    configure(3, 9);
    expectSpinning(0);
    configure(2, 0);
    expectSpinning(2);
    configure(1, 0);
    expectSpinning(2);
    configure(3, 0);
    expectSpinning(3);
    configure(1, 9);
    expectSpinning(3);
}

TEST_F(ReelsTest, RampsSendTheStepsInUseOfAnyReelConfiguredOrNot) {
    struct Ramp {
        const char* name;
        int command;
        int (MarvaneUSB::*send)(unsigned char, usbRampTable);
    };
    const Ramp ramps[] = {{"up", 88, &MarvaneUSB::SpinRampUp},
                          {"down", 89, &MarvaneUSB::SpinRampDown}};
    Bytes all = {2, 60};
    usbRampTable table;
    std::iota(table.steps, table.steps + 60, static_cast<unsigned char>(101));
    all.insert(all.end(), table.steps, table.steps + 60);
    static_assert(sizeof(usbRampTable) == 61);

    for (const Model model : kModels) {
        OpenAccepting(model);
        for (const Ramp& ramp : ramps) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + ramp.name);
            const auto send = [&](unsigned char reel, unsigned char length) {
                return [&, reel, length] {
                    table.length = length;
                    return (board.*ramp.send)(reel, table);
                };
            };
            Expect({
                {"no step", send(0, 0), 1, 0, {{ramp.command, 1, {0, 0}}}},
                {"two steps", send(1, 2), 1, 0, {{ramp.command, 1, {1, 2, 101, 102}}}},
                {"all steps", send(2, 60), 1, 0, {{ramp.command, 1, all}}},
                {"too many steps", send(2, 61), 0, 8, {}},
                {"far too many steps", send(2, 255), 0, 8, {}},
                {"no such reel", send(3, 1), 0, 16, {}},
                {"no such reel, too many steps", send(3, 61), 0, 16, {}},
            });
        }
    }
}

TEST_F(ReelsTest, StatusIsSixBytesPerReel) {
    const Bytes whole = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x11, 0x12, 0x13, 0x14,
                         0x15, 0x16, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x31};
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        ReelStatusEx wide;
        driver.AnswerNext({.reply = whole});
        Expect({{"wide", [&] { return board.GetReelStatusEx(&wide); }, 1, 0, {{92, 1, {}}}}});
        const ReelStatusEx expectedWide = {{0x0102, 0x1112, 0x2122},
                                           {0x0304, 0x1314, 0x2324},
                                           {0x05, 0x15, 0x25},
                                           {0x06, 0x16, 0x26}};
        static_assert(sizeof wide == 18);
        EXPECT_EQ(std::memcmp(&wide, &expectedWide, sizeof wide), 0);

        usbReelStatus narrow;
        driver.AnswerNext({.reply = whole});
        Expect({{"narrow", [&] { return board.GetReelStatus(&narrow); }, 1, 0, {{92, 1, {}}}}});
        const usbReelStatus expectedNarrow = {
            {0x02, 0x12, 0x22}, {0x04, 0x14, 0x24}, {0x05, 0x15, 0x25}, {0x06, 0x16, 0x26}};
        static_assert(sizeof narrow == 12);
        EXPECT_EQ(std::memcmp(&narrow, &expectedNarrow, sizeof narrow), 0);
    }
}

TEST_F(ReelsTest, StatusIsZeroWhereNothingCameAndUntouchedOnFailure) {
    Open(Model::kK50);
    ReelStatusEx wide;
    usbReelStatus narrow;
    std::memset(&wide, 0xEE, sizeof wide);
    std::memset(&narrow, 0xEE, sizeof narrow);
    driver.AnswerNext({.status = 9, .reply = Bytes(18, 1)});
    driver.AnswerNext({.status = 9, .reply = Bytes(18, 1)});
    Expect({
        // clang-format off
        {"wide",         [&] { return board.GetReelStatusEx(&wide); },   0,  9, {{92, 1, {}}}},
        {"narrow",       [&] { return board.GetReelStatus(&narrow); },   0,  9, {{92, 1, {}}}},
        {"wide, null",   [&] { return board.GetReelStatusEx(nullptr); }, 0, 30, {}},
        {"narrow, null", [&] { return board.GetReelStatus(nullptr); },   0, 30, {}},
        // clang-format on
    });
    EXPECT_EQ(wide.word1[0], 0xEEEE);
    EXPECT_EQ(wide.byte2[2], 0xEE);
    EXPECT_EQ(narrow.word1[0], 0xEE);
    EXPECT_EQ(narrow.byte2[2], 0xEE);

    driver.AnswerNext({.reply = {1}});
    EXPECT_EQ(board.GetReelStatusEx(&wide), 1);
    EXPECT_EQ(wide.word1[0], 0x0100);
    EXPECT_EQ(wide.byte2[2], 0);
}

}  // namespace
