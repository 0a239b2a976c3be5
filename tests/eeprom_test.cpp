/**
 * @file eeprom_test.cpp
 * @brief The EEPROM: what is recorded and sent, ranges, chunks, and the lock.
 */
#include <algorithm>
#include <cstring>

#include "board_test.h"
#include "eeprom_parts.h"
#include "forked_child.h"

namespace {

class EepromTest : public EepromBoardTest {
protected:
    void OpenRecorded(Model model, const K40EEPROM& part, int speedMbit = 480) {
        Open(model, speedMbit);
        AcceptEverything();
        ASSERT_EQ(board.ConfigureEEPROM(Told(part)), 1);
        StartAfresh();
    }

    /** The n-th byte that is read is n modulo 256. */
    void AnswerReadsByCounting(std::size_t mostPerReply = 58) {
        answered = 0;
        driver.AnswerWith([this, mostPerReply](const Exchange& exchange) {
            DriverAnswer answer;
            const std::size_t count = std::min<std::size_t>(exchange.payload[0], mostPerReply);
            for (std::size_t i = 0; i < count; ++i) {
                answer.reply.push_back(static_cast<std::uint8_t>(answered++));
            }
            return answer;
        });
    }

    std::size_t answered = 0;
};

TEST_F(EepromTest, ConfiguringRecordsThePartAndTellsTheBoard) {
    for (const Model model : kModels) {
        Open(model);
        AcceptEverything();
        for (const Part& part : kParts) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + part.name);
            StartAfresh();
            EXPECT_EQ(board.ConfigureEEPROM(Told(part.descriptor)), 1);
            EXPECT_EQ(driver.Sent(), Exchanges({{3, 2, part.told}}));
            Bytes recorded = part.record;
            recorded.insert(recorded.end(), {1, 0});
            EXPECT_EQ(entries.Get(0, 8), recorded);
        }
    }
}

TEST_F(EepromTest, ARecordStaysWhateverTheBoardAnswers) {
    OpenRecorded(Model::kK44, E24LC16);
    Expect({{"null", [this] { return board.ConfigureEEPROM(nullptr); }, 0, 30, {}}});
    EXPECT_EQ(entries.Get(0, 8), kHoldsE24LC16);

    K40EEPROM odd;
    std::memcpy(static_cast<void*>(&odd), "\1\2\3\4\5\6", 6);
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(board.ConfigureEEPROM(&odd), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(driver.Sent(), Exchanges({{3, 2, {1, 2, 4, 3, 5}}}));
    EXPECT_EQ(entries.Get(0, 8), Bytes({1, 2, 3, 4, 5, 6, 1, 0}));
}

TEST_F(EepromTest, EachDeviceNumberHasARecordOfItsOwn) {
    entries.Clear();
    driver.AddBoard(15, Model::kK50);
    ASSERT_EQ(board.InitPort(15), 1);
    ASSERT_EQ(board.ConfigureEEPROM(Told(E24LC16)), 1);
    EXPECT_EQ(entries.Get(15, 8), kHoldsE24LC16);
    for (std::size_t other = 0; other < 15; ++other) {
        EXPECT_EQ(entries.Get(other, 8), kHoldsNothing) << other;
    }
}

struct Range {
    const char* what;
    const K40EEPROM* part;  // null: nothing is recorded
    unsigned short address;
    unsigned length;
    bool hasData;
    int error;
};

// clang-format off
const Range kRanges[] = {
    {"reserved",                  &E24LC256, 7,      0,          true,  8},
    {"reserved, before pointer",  &E24LC256, 7,      0,          false, 8},
    {"first, nothing",            &E24LC256, 8,      0,          true,  0},
    {"null, even for nothing",    &E24LC256, 8,      0,          false, 30},
    {"up to the last but one",    &E24LC256, 32760,  7,          true,  0},
    {"including the last",        &E24LC256, 32760,  8,          true,  8},
    {"beyond, before pointer",    &E24LC256, 32760,  8,          false, 8},
    {"nothing at the last",       &E24LC256, 32767,  0,          true,  0},
    {"nothing behind the last",   &E24LC256, 32768,  0,          true,  8},
    {"sum of 32 bits is 0",       &E24LC256, 8,      0xFFFFFFF8, true,  8},
    {"sum of 32 bits is 65534",   &E24LC512, 0xFFFF, 0xFFFFFFFF, true,  8},
    {"largest part",              &E24LC512, 65534,  1,          true,  0},
    {"largest part, last",        &E24LC512, 65534,  2,          true,  8},
    {"smallest part",             &E24LC01,  100,    27,         true,  0},
    {"smallest part, last",       &E24LC01,  100,    28,         true,  8},
    {"no record, reserved",       nullptr,   7,      0,          true,  8},
    {"no record",                 nullptr,   8,      0,          true,  8},
};
// clang-format on

TEST_F(EepromTest, RangeIsCheckedThenThePointer) {
    for (const Model model : kModels) {
        for (const Range& range : kRanges) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + range.what);
            OpenRecorded(model, range.part != nullptr ? *range.part : E24LC256);
            if (range.part == nullptr) entries.Clear();
            AnswerReadsByCounting();
            Bytes room(64);
            unsigned char* data = range.hasData ? room.data() : nullptr;
            const std::size_t sent = range.error == 0 && range.length > 0 ? 1 : 0;

            EXPECT_EQ(board.ReadEEPROM(range.address, data, range.length), range.error == 0);
            EXPECT_EQ(board.GetLastError(), range.error);
            EXPECT_EQ(driver.Sent().size(), sent);
            StartAfresh();
            EXPECT_EQ(board.WriteEEPROM(range.address, data, range.length), range.error == 0);
            EXPECT_EQ(board.GetLastError(), range.error);
            EXPECT_EQ(driver.Sent().size(), sent);
        }
    }
}

TEST_F(EepromTest, ChunksAreOfOneSizeAtEitherSpeed) {
    struct Case {
        unsigned short address;
        unsigned length;
        std::vector<Bytes> reads, writes;
    };
    const Case cases[] = {
        {0x0108, 57, {{57, 8, 1}}, {{57, 8, 1}}},
        {0x0108, 58, {{58, 8, 1}}, {{57, 8, 1}, {1, 65, 1}}},
        {0x01F0, 100, {{58, 0xF0, 1}, {42, 0x2A, 2}}, {{57, 0xF0, 1}, {43, 0x29, 2}}},
    };
    for (const Model model : kModels) {
        for (const int speedMbit : {12, 480}) {
            OpenRecorded(model, E24LC256, speedMbit);
            for (const Case& c : cases) {
                SCOPED_TRACE(std::string(ModelName(model)) + " " + std::to_string(c.length));
                Bytes data(c.length + 4, 0xEE);
                AnswerReadsByCounting();
                StartAfresh();
                EXPECT_EQ(board.ReadEEPROM(c.address, data.data(), c.length), 1);
                Exchanges expected;
                for (const Bytes& read : c.reads)
                    expected.push_back({5, 2, read});
                EXPECT_EQ(driver.Sent(), expected);
                for (unsigned i = 0; i < c.length; ++i)
                    EXPECT_EQ(data[i], i);
                EXPECT_EQ(Bytes(data.end() - 4, data.end()), Bytes(4, 0xEE));

                StartAfresh();
                EXPECT_EQ(board.WriteEEPROM(c.address, data.data(), c.length), 1);
                expected.clear();
                auto next = data.begin();
                for (Bytes write : c.writes) {
                    const auto end = next + write[0];
                    write.insert(write.end(), next, end);
                    next = end;
                    expected.push_back({4, 2, write});
                }
                EXPECT_EQ(driver.Sent(), expected);
            }
        }
    }
}

TEST_F(EepromTest, AReadGoesOnBehindAShortReplyAndEndsWithAnEmptyOrTooLongOne) {
    struct Case {
        const char* what;
        Model model;
        DriverAnswer second;
        int result, error;
        std::size_t stored;
        Exchanges sent;
    };
    const Exchange first = {5, 2, {58, 16, 0}};
    const Exchange second = {5, 2, {58, 56, 0}};
    const Exchange third = {5, 2, {38, 76, 0}};
    const Case cases[] = {
        // clang-format off
        {"short",          Model::kK44, {.reply = Bytes(20, 7)},                    1, 0, 98, {first, second, third}},
        {"empty",          Model::kK44, {},                                         0, 6, 40, {first, second}},
        {"empty, slow",    Model::kK40, {},                                         0, 6, 40, {first, second}},
        {"too long",       Model::kK44, {.reply = Bytes(59, 7)},                    0, 7, 40, {first, second}},
        {"too long, K40",  Model::kK40, {.reply = Bytes(62, 7)},                    0, 7, 40, {first, second}},
        {"hostile claim",  Model::kK50, {.reply = {7}, .claimedLength = 1UL << 40}, 0, 7, 40, {first, second}},
        {"low 16 bits fit", Model::kK50, {.reply = {7}, .claimedLength = 65546},    0, 7, 40, {first, second}},
        {"status",         Model::kK44, {.status = 9, .reply = Bytes(20, 7)},       0, 9, 40, {first, second}},
        {"ioctl fails",    Model::kK40, {.error = 5},                               0, 6, 40, {first, second}},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        OpenRecorded(c.model, E24LC256);
        Bytes expected(98 + 4, 0xEE);
        std::fill_n(expected.begin(), c.stored, std::uint8_t{7});
        driver.AnswerNext({.reply = Bytes(40, 7)});
        driver.AnswerNext(c.second);
        if (c.sent.size() == 3) driver.AnswerNext({.reply = Bytes(38, 7)});

        Bytes data(98 + 4, 0xEE);
        EXPECT_EQ(board.ReadEEPROM(16, data.data(), 98), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(driver.Sent(), c.sent);
        EXPECT_EQ(data, expected);
    }
}

TEST_F(EepromTest, AWriteEndsWithTheFirstChunkThatIsRefused) {
    OpenRecorded(Model::kK44, E24LC256);
    driver.AnswerNext({});
    driver.AnswerNext({.status = 9});
    Bytes data(200);
    EXPECT_EQ(board.WriteEEPROM(8, data.data(), 200), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(driver.Sent().size(), 2U);
}

TEST_F(EepromTest, TheLockIsHeldFromTheCheckToTheLastChunk) {
    OpenRecorded(Model::kK44, E24LC256);
    std::vector<int> locks;
    driver.AnswerWith([&locks](const Exchange& exchange) {
        locks.push_back(SharedSemaphore(4));
        return DriverAnswer{.reply = Bytes(exchange.command == 5 ? exchange.payload[0] : 0)};
    });
    Bytes data(100);
    EXPECT_EQ(board.ReadEEPROM(8, data.data(), 100), 1);
    EXPECT_EQ(board.WriteEEPROM(8, data.data(), 100), 1);
    EXPECT_EQ(board.ConfigureEEPROM(Told(E24LC16)), 1);
    EXPECT_EQ(locks, std::vector<int>(5, 0));
    EXPECT_EQ(SharedSemaphore(4), 1);

    driver.AnswerWith([](const Exchange&) { return DriverAnswer{.status = 9}; });
    EXPECT_EQ(board.ReadEEPROM(8, data.data(), 100), 0);
    EXPECT_EQ(board.ReadEEPROM(7, data.data(), 100), 0);
    EXPECT_EQ(SharedSemaphore(4), 1) << "given back after failures, too";
}

TEST_F(EepromTest, WithoutSharedStateOperationsFailAfterTheChecksThatNeedNone) {
    Open(Model::kK44);
    const int result = RunInChild([this] {
        LoseSharedState();
        Expect({
            // clang-format off
            {"configure, null",   [this] { return board.ConfigureEEPROM(nullptr); },         0, 30, {}},
            {"configure",         [this] { return board.ConfigureEEPROM(Told(E24LC16)); }, 0, 38, {}},
            {"check, null",       [this] { return board.CheckEEPROM(nullptr); },             0, 30, {}},
            {"check",             [this] { K40EEPROM part; return board.CheckEEPROM(&part); }, 0, 38, {}},
            {"read, reserved",    [this] { return board.ReadEEPROM(7, nullptr, 1); },        0, 8,  {}},
            {"read, null, beyond", [this] { return board.ReadEEPROM(8, nullptr, 70000); },   0, 38, {}},
            {"write, reserved",   [this] { return board.WriteEEPROM(7, nullptr, 1); },       0, 8,  {}},
            {"write, null, beyond", [this] { return board.WriteEEPROM(8, nullptr, 70000); }, 0, 38, {}},
            {"open",              [this] { return board.InitPort(0); },                      0, 38, {{74, 6, {}}}},
            // clang-format on
        });
    });
    if (result == kChildCannotRun) GTEST_SKIP() << "IPC objects of its own are refused";
    EXPECT_EQ(result, 0);
}

}  // namespace
