/**
 * @file clock_test.cpp
 * @brief Clock, failure flags and security switches: commands, decoding and pointers.
 */
#include "board_test.h"

namespace {

class ClockTest : public BoardTest {};

// Every operation that reads, through results that are all numbers.
struct Read {
    const char* name;
    int command;
    bool k40, k44;  // a K50 has them all
    int (*call)(MarvaneUSB&, unsigned long* value, unsigned char* byte0, unsigned char* byte1);
    // Of the reply 0x78, 0x56, 0x34, 0xF2, 0x05, 0x06: what is in the results that it has.
    unsigned long value, byte0, byte1;
};

constexpr unsigned long kNone = 99;

const Read kReads[] = {
    // clang-format off
    {"GetClock", 21, true, true,
     [](MarvaneUSB& b, unsigned long* v, unsigned char*, unsigned char*) { return b.GetClock(v); },
     0xF2345678, kNone, kNone},
    {"ReadAndResetRTCFailure", 220, false, false,
     [](MarvaneUSB& b, unsigned long*, unsigned char* f, unsigned char*) { return b.ReadAndResetRTCFailure(f); },
     kNone, 0x78, kNone},
    {"ReadAndResetBatteryFailFlag", 119, false, true,
     [](MarvaneUSB& b, unsigned long*, unsigned char* f, unsigned char*) { return b.ReadAndResetBatteryFailFlag(f); },
     kNone, 0x78, kNone},
    {"ReadClockAtBatteryFailure", 221, false, false,
     [](MarvaneUSB& b, unsigned long* v, unsigned char*, unsigned char*) { return b.ReadClockAtBatteryFailure(v); },
     0xF2345678, kNone, kNone},
    {"NextSecuritySwitchRead", 41, true, true,
     [](MarvaneUSB& b, unsigned long* v, unsigned char* s, unsigned char*) { return b.NextSecuritySwitchRead(v, s); },
     0xF2345678, 0x05, kNone},
    {"ReadAndResetSecuritySwitchFlags", 64, true, true,
     [](MarvaneUSB& b, unsigned long*, unsigned char* f, unsigned char* g) { return b.ReadAndResetSecuritySwitchFlags(f, g); },
     kNone, 0x78, 0x56},
    {"CachedReadAndResetSecuritySwitchFlags", 67, true, true,
     [](MarvaneUSB& b, unsigned long*, unsigned char* f, unsigned char* g) { return b.CachedReadAndResetSecuritySwitchFlags(f, g); },
     kNone, 0x78, 0x56},
    // clang-format on
};

bool Has(Model model, const Read& read) {
    return model == Model::kK40 ? read.k40 : model == Model::kK44 ? read.k44 : true;
}

TEST_F(ClockTest, ReadsDecodeLowByteFirst) {
    for (const Model model : kModels) {
        Open(model);
        for (const Read& read : kReads) {
            if (!Has(model, read)) continue;
            SCOPED_TRACE(std::string(ModelName(model)) + " " + read.name);
            StartAfresh();
            driver.AnswerNext({.reply = {0x78, 0x56, 0x34, 0xF2, 0x05, 0x06}});
            unsigned long value = kNone;
            unsigned char byte0 = kNone;
            unsigned char byte1 = kNone;
            EXPECT_EQ(read.call(board, &value, &byte0, &byte1), 1);
            EXPECT_EQ(driver.Sent(), Exchanges({{read.command, 5, {}}}));
            EXPECT_EQ(value, read.value);
            EXPECT_EQ(byte0, read.byte0);
            EXPECT_EQ(byte1, read.byte1);

            driver.AnswerNext({});
            EXPECT_EQ(read.call(board, &value, &byte0, &byte1), 1);
            EXPECT_EQ(value, read.value == kNone ? kNone : 0);
            EXPECT_EQ(byte0, read.byte0 == kNone ? kNone : 0);
            EXPECT_EQ(byte1, read.byte1 == kNone ? kNone : 0);
        }
    }
}

TEST_F(ClockTest, ReadsCheckEachPointerAndLeaveResultsAloneOnFailure) {
    for (const Model model : kModels) {
        Open(model);
        for (const Read& read : kReads) {
            if (!Has(model, read)) continue;
            SCOPED_TRACE(std::string(ModelName(model)) + " " + read.name);
            unsigned long value = 7;
            unsigned char byte0 = 8;
            unsigned char byte1 = 9;
            for (int missing = 0; missing < 3; ++missing) {
                const unsigned long used[] = {read.value, read.byte0, read.byte1};
                if (used[missing] == kNone) continue;
                StartAfresh();
                EXPECT_EQ(
                    read.call(board, missing == 0 ? nullptr : &value,
                              missing == 1 ? nullptr : &byte0, missing == 2 ? nullptr : &byte1),
                    0);
                EXPECT_EQ(board.GetLastError(), 30);
                EXPECT_EQ(driver.Sent(), Exchanges());
            }
            driver.AnswerNext({.status = 9, .reply = {1, 1, 1, 1, 1, 1}});
            EXPECT_EQ(read.call(board, &value, &byte0, &byte1), 0);
            EXPECT_EQ(board.GetLastError(), 9);
            EXPECT_EQ(value, 7U);
            EXPECT_EQ(byte0, 8);
            EXPECT_EQ(byte1, 9);
        }
    }
}

TEST_F(ClockTest, OrdersAreSentOnceOnAllModels) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        AcceptEverything();
        Expect({
            // clang-format off
            {"clock",                [&] { return board.SetClock(0x12345678); },        1, 0, {{20, 5, {0x78, 0x56, 0x34, 0x12}}}},
            {"clock, above 32 bits", [&] { return board.SetClock((1UL << 32) + 258); }, 1, 0, {{20, 5, {2, 1, 0, 0}}}},
            {"log, from the start",  [&] { return board.StartSecuritySwitchRead(); },   1, 0, {{40, 5, {}}}},
            {"log, emptied",         [&] { return board.ClearSecuritySwitches(); },     1, 0, {{42, 5, {}}}},
            // clang-format on
        });
        driver.AnswerWith([](const Exchange&) { return DriverAnswer{.status = 9}; });
        Expect({
            // clang-format off
            {"clock", [&] { return board.SetClock(1); },               0, 9, {{20, 5, {1, 0, 0, 0}}}},
            {"start", [&] { return board.StartSecuritySwitchRead(); }, 0, 9, {{40, 5, {}}}},
            {"clear", [&] { return board.ClearSecuritySwitches(); },   0, 9, {{42, 5, {}}}},
            // clang-format on
        });
    }
}

}  // namespace
