/**
 * @file eeprom_test.cpp
 * @brief The EEPROM: how its part is found out, recorded and told, ranges, chunks, and the lock.
 */
#include "board/eeprom.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include "board_test.h"
#include "shared_entries.h"

using simulator::BoardEeprom;
using simulator::EepromPart;

namespace {

struct Part {
    const K40EEPROM& descriptor;
    EepromPart fitted;
    Bytes record;  // what stands in the shared entry
    Bytes told;    // what the board is told
};

// clang-format off
const Part kParts[] = {
    {E24LC01,  EepromPart::k24LC01,  {  8, 1, 0x7F, 0x00, 0x50, 0}, {  8, 1, 0x00, 0x7F, 0x50}},
    {E24LC02,  EepromPart::k24LC02,  {  8, 1, 0xFF, 0x00, 0x50, 0}, {  8, 1, 0x00, 0xFF, 0x50}},
    {E24LC04,  EepromPart::k24LC04,  { 16, 1, 0xFF, 0x01, 0x50, 0}, { 16, 1, 0x01, 0xFF, 0x50}},
    {E24LC08,  EepromPart::k24LC08,  { 16, 1, 0xFF, 0x03, 0x50, 0}, { 16, 1, 0x03, 0xFF, 0x50}},
    {E24LC16,  EepromPart::k24LC16,  { 16, 1, 0xFF, 0x07, 0x50, 0}, { 16, 1, 0x07, 0xFF, 0x50}},
    {E24LC32,  EepromPart::k24LC32,  { 32, 2, 0xFF, 0x0F, 0x51, 0}, { 32, 2, 0x0F, 0xFF, 0x51}},
    {E24LC64,  EepromPart::k24LC64,  { 32, 2, 0xFF, 0x1F, 0x51, 0}, { 32, 2, 0x1F, 0xFF, 0x51}},
    {E24LC128, EepromPart::k24LC128, { 64, 2, 0xFF, 0x3F, 0x51, 0}, { 64, 2, 0x3F, 0xFF, 0x51}},
    {E24LC256, EepromPart::k24LC256, { 64, 2, 0xFF, 0x7F, 0x51, 0}, { 64, 2, 0x7F, 0xFF, 0x51}},
    {E24LC512, EepromPart::k24LC512, {128, 2, 0xFF, 0xFF, 0x51, 0}, {128, 2, 0xFF, 0xFF, 0x51}},
};
// clang-format on

const Bytes kHoldsE24LC16 = {16, 1, 0xFF, 0x07, 0x50, 0, 1, 0};
const Bytes kHoldsE24LC256 = {64, 2, 0xFF, 0x7F, 0x51, 0, 1, 0};
const Exchange kTellE24LC16 = {3, 2, {16, 1, 0x07, 0xFF, 0x50}};
const Exchange kTellE24LC256 = {3, 2, {64, 2, 0x7F, 0xFF, 0x51}};
constexpr int kNoAcknowledge = 107;  // the simulated board's status for a silent part

/** The descriptors are constants, and the library only reads what it is told. */
K40EEPROM* Told(const K40EEPROM& part) {
    return const_cast<K40EEPROM*>(&part);
}

Bytes BytesOf(const K40EEPROM& part) {
    Bytes bytes(sizeof part);
    std::memcpy(bytes.data(), &part, sizeof part);
    return bytes;
}

unsigned short Address(std::size_t number) {
    return static_cast<unsigned short>(number);
}

DriverAnswer AnswerOf(BoardEeprom& part, const Exchange& exchange) {
    simulator::Answer answer;
    if (exchange.command == 74) return {.reply = {1}};
    if (exchange.command == 3) answer = part.Configure(exchange.payload);
    if (exchange.command == 5) answer = part.Read(exchange.payload);
    return {.status = answer.status, .reply = answer.reply};
}

class EepromTest : public BoardTest {
protected:
    ~EepromTest() override { entries.Clear(); }

    /** The board's program runs; its EEPROM is `part`, and nothing else answers with data. */
    void Fit(BoardEeprom& part) {
        driver.AnswerWith([&part](const Exchange& exchange) { return AnswerOf(part, exchange); });
    }

    void OpenRecorded(Model model, const K40EEPROM& part = E24LC256) {
        Open(model);
        AcceptEverything();
        ASSERT_EQ(board.ConfigureEEPROM(Told(part)), 1);
        StartAfresh();
    }

    SharedEntries entries = SharedEntries::OfEeproms();
    K40EEPROM found = E24LC08;
};

TEST_F(EepromTest, EveryPartIsDetectedAndABlankOneAsTheSmallestOfItsClass) {
    for (const bool blank : {false, true}) {
        for (const Part& part : kParts) {
            const bool isShort = part.descriptor.addressBytes == 1;
            const Bytes& record = kParts[isShort ? 0 : 5].record;
            BoardEeprom fitted(part.fitted, blank);
            Open(Model::kK40);
            Fit(fitted);
            EXPECT_EQ(board.CheckEEPROM(&found), 1);
            // A K40 keeps old errors, so the detection has to clear that of a silent part.
            EXPECT_EQ(board.GetLastError(), 0);
            EXPECT_EQ(BytesOf(found), blank ? record : part.record);
            EXPECT_EQ(entries.Get(0, 8), isShort ? kHoldsE24LC16 : kHoldsE24LC256);
        }
    }
}

TEST_F(EepromTest, DetectionProbesWhereTheSmallerPartsEnd) {
    Open(Model::kK44);
    BoardEeprom fitted(EepromPart::k24LC64, false);
    Fit(fitted);
    const Exchanges twoBytes = {
        kTellE24LC256,          {5, 2, {58, 0, 0}},    {5, 2, {42, 58, 0}},   {5, 2, {58, 0, 0x10}},
        {5, 2, {42, 58, 0x10}}, {5, 2, {58, 0, 0x20}}, {5, 2, {42, 58, 0x20}}};
    Expect({{CALL(CheckEEPROM(&found)), 1, 0, twoBytes}});
    BoardEeprom smaller(EepromPart::k24LC02, false);
    Fit(smaller);
    const Exchanges oneByte = {kTellE24LC256,        {5, 2, {58, 0, 0}},  kTellE24LC16,
                               {5, 2, {58, 0, 0}},   {5, 2, {42, 58, 0}}, {5, 2, {58, 128, 0}},
                               {5, 2, {42, 186, 0}}, {5, 2, {58, 0, 1}},  {5, 2, {42, 58, 1}}};
    Expect({{CALL(CheckEEPROM(&found)), 1, 0, oneByte}});
    // All hundred bytes count: this content is the same at every probe but for the last of them.
    driver.AnswerWith([](const Exchange& exchange) {
        DriverAnswer answer;
        if (exchange.command == 5) answer.reply.assign(exchange.payload[0], 7);
        if (exchange.command == 5 && exchange.payload[2] != 0) answer.reply.back() = 8;
        return answer;
    });
    ASSERT_EQ(board.CheckEEPROM(&found), 1);
    EXPECT_EQ(BytesOf(found), kParts[9].record);
}

TEST_F(EepromTest, AFailedDetectionLeavesThePartThatItProbedWith) {
    struct Case {
        const char* what;
        EepromPart fitted;
        unsigned failing;  // which exchange the board refuses with status 9
        int error;
        unsigned sent;
        Bytes entry;
    };
    using enum EepromPart;
    const Case cases[] = {
        // clang-format off
        {"first configuration",      k24LC512, 0,  9,              1,  kHoldsE24LC256},
        {"reference, second half",   k24LC512, 2,  kNoAcknowledge, 5,  kHoldsE24LC16},
        {"last probe, second half",  k24LC512, 10, 9,              11, kHoldsE24LC256},
        {"second configuration",     k24LC16,  2,  9,              3,  kHoldsE24LC16},
        {"second reference",         k24LC16,  3,  9,              4,  kHoldsE24LC16},
        {"last short probe",         k24LC16,  11, 9,              12, kHoldsE24LC16},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Open(Model::kK44);
        entries.Clear();
        BoardEeprom fitted(c.fitted, false);
        driver.AnswerWith([&](const Exchange& exchange) {
            return driver.Sent().size() == c.failing + 1 ? DriverAnswer{.status = 9}
                                                         : AnswerOf(fitted, exchange);
        });
        EXPECT_EQ(board.CheckEEPROM(&found), 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(driver.Sent().size(), c.sent);
        EXPECT_EQ(entries.Get(0, 8), c.entry);
        EXPECT_EQ(BytesOf(found), kParts[3].record) << "as it was";
    }
}

TEST_F(EepromTest, OnlyTheFirstOpeningDetectsEvenWhenThatFails) {
    BoardEeprom fitted(EepromPart::k24LC128, false);
    MarvaneUSB another;
    for (const bool fails : {false, true}) {
        driver.Reset();
        driver.AddBoard(0, Model::kK50);
        Fit(fitted);
        entries.Clear();
        if (fails) driver.AnswerNext({.reply = {1}});
        if (fails) driver.AnswerNext({.status = 9});
        EXPECT_EQ(board.InitPort(0), fails ? 0 : 1);
        EXPECT_EQ(board.GetLastError(), fails ? 9 : 0);
        EXPECT_EQ(entries.Get(0, 8),
                  fails ? kHoldsE24LC256 : Bytes({64, 2, 0xFF, 0x3F, 0x51, 0, 1, 0}));
        EXPECT_EQ(driver.Sent().back(), fails ? kTellE24LC256 : (Exchange{3, 2, kParts[7].told}));
        StartAfresh();
        ASSERT_EQ(another.InitPort(0), 1);
        EXPECT_EQ(driver.Sent(), Exchanges({{74, 6, {}}}));
    }
}

TEST_F(EepromTest, TwoFirstOpeningsAtOnceDetectOnce) {
    for (int round = 0; round < 50; ++round) {
        driver.Reset();
        driver.AddBoard(0, Model::kK44);
        entries.Clear();
        BoardEeprom fitted(EepromPart::k24LC64, false);
        std::mutex guard;
        driver.AnswerWith([&](const Exchange& exchange) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            const std::lock_guard lock(guard);
            return AnswerOf(fitted, exchange);
        });
        const auto openFirst = [&](MarvaneUSB& own) {
            EXPECT_EQ(own.InitPort(0), 1);
            const std::lock_guard lock(guard);
            EXPECT_EQ(fitted.Setting()->highestAddress, 0x1FFF) << "still probing";
        };
        MarvaneUSB other;
        std::thread thread([&] { openFirst(other); });
        openFirst(board);
        thread.join();
        const Exchanges sent = driver.Sent();
        const auto isConfiguration = [](const Exchange& exchange) { return exchange.command == 3; };
        ASSERT_EQ(std::count_if(sent.begin(), sent.end(), isConfiguration), 2) << round;
        driver.AnswerWith(nullptr);
    }
}

TEST_F(EepromTest, ConfiguringRecordsThePartOfItsBoardAndTellsTheBoard) {
    entries.Clear();
    driver.AddBoard(15, Model::kK50);
    ASSERT_EQ(board.InitPort(15), 1);
    AcceptEverything();
    for (const Part& part : kParts) {
        Expect({{CALL(ConfigureEEPROM(Told(part.descriptor))), 1, 0, {{3, 2, part.told}}}});
        EXPECT_EQ(entries.Get(15, 6), part.record);
    }
    for (std::size_t other = 0; other < 15; ++other)
        EXPECT_EQ(entries.Get(other, 8), Bytes(8)) << other;
    // The record stays whatever the board answers.
    std::memcpy(static_cast<void*>(&found), "\1\2\3\4\5\6", 6);
    driver.AnswerNext({.status = 9});
    Expect({{CALL(ConfigureEEPROM(&found)), 0, 9, {{3, 2, {1, 2, 4, 3, 5}}}}});
    EXPECT_EQ(entries.Get(15, 8), Bytes({1, 2, 3, 4, 5, 6, 1, 0}));
    Expect({{CALL(ConfigureEEPROM(nullptr)), 0, 30, {}}, {CALL(CheckEEPROM(nullptr)), 0, 30, {}}});
}

TEST_F(EepromTest, ARangeEndsBeforeTheLastByteOfThePartAndIsCheckedBeforeThePointer) {
    unsigned char byte = 7;
    OpenRecorded(Model::kK40);
    Expect({{CALL(ReadEEPROM(8, &byte, 0)), 1, 0, {}},
            {CALL(ReadEEPROM(8, nullptr, 0)), 0, 30, {}},
            {CALL(ReadEEPROM(32760, nullptr, 8)), 0, 8, {}},
            {CALL(WriteEEPROM(32768, &byte, 0)), 0, 8, {}},
            {CALL(ReadEEPROM(8, &byte, 0xFFFFFFF8)), 0, 8, {}}});  // a sum of 32 bits would be 0
    OpenRecorded(Model::kK44, E24LC512);
    Expect({{CALL(WriteEEPROM(65534, &byte, 1)), 1, 0, {{4, 2, {1, 254, 255, 7}}}},
            {CALL(WriteEEPROM(65534, &byte, 2)), 0, 8, {}}});
}

TEST_F(EepromTest, WhatIsWrittenIsThereInAsFewChunksAsPossibleAtEitherSpeed) {
    for (const int speedMbit : {12, 480}) {
        Open(Model::kK44, speedMbit);
        ASSERT_EQ(board.ConfigureEEPROM(Told(E24LC256)), 1);
        ExpectToKeepWhatIsWritten({
            .write = [&](auto at, auto... of) { return board.WriteEEPROM(Address(at), of...); },
            .read = [&](auto at, auto... of) { return board.ReadEEPROM(Address(at), of...); },
            .first = 8,
            .end = 32767,
            .edges = {256, 32767},
            .longestWrite = 57,
            .longestRead = 58,
            .contents = simulated->eeprom.Chip().Contents(),
            .placeOf = [](std::size_t at) { return at; },
        });
    }
}

TEST_F(EepromTest, AFailingChunkEndsTheTransfer) {
    OpenRecorded(Model::kK44);
    Bytes data(100, 1), first = {57, 0xF0, 1};
    first.insert(first.end(), 57, 1);
    driver.AnswerNext({.status = 9});
    Expect({{CALL(WriteEEPROM(0x01F0, data.data(), 100)), 0, 9, {{4, 2, first}}}});
    driver.AnswerNext({.reply = Bytes(58, 2)});
    driver.AnswerNext({.status = 9, .reply = Bytes(42, 3)});
    const Exchanges both = {{5, 2, {58, 0xF0, 1}}, {5, 2, {42, 0x2A, 2}}};
    Expect({{CALL(ReadEEPROM(0x01F0, data.data(), 100)), 0, 9, both}});
}

TEST_F(EepromTest, TheLockIsHeldFromTheCheckToTheLastChunk) {
    OpenRecorded(Model::kK44);
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

}  // namespace
