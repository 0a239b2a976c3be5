/**
 * @file sram_test.cpp
 * @brief Battery-backed memory: chunks, pages, limits, and reads that the board cuts short.
 */
#include <algorithm>

#include "board_test.h"

namespace {

using SramTest = BoardTest;

TEST_F(SramTest, ChunksSayWhereTheyGoAndOnlyBeforeTheProgramRunsWritesGoToItsPages) {
    unsigned char d[] = {1, 2}, read[2];
    // clang-format off
    struct Case { Model model; bool programRuns; Call call; };
    const Case cases[] = {
        {Model::kK40, true,  {CALL(WriteSRAM(0x1FF, d, 2)), 1, 0, {{71, 6, {2, 255, 1, 1, 2}}}}},
        {Model::kK40, false, {CALL(WriteSRAM(0xFFFE, d, 1)), 1, 0, {{71, 6, {1, 254, 255, 1}}}}},
        {Model::kK40, true,  {CALL(ReadSRAM(0x1FF, read, 2)), 1, 0, {{70, 6, {2, 255, 1}}}}},
        {Model::kK44, true,  {CALL(WriteLargeSRAM(196607, d, 2)), 1, 0,
                              {{117, 6, {1, 0, 12, 255, 63, 1}}, {117, 6, {1, 0, 16, 0, 0, 2}}}}},
        {Model::kK50, true,  {CALL(ReadLargeSRAM(999420, read, 2)), 1, 0,
                              {{116, 6, {2, 0, 64, 252, 63}}}}},
        {Model::kK44, false, {CALL(WriteSRAM(16383, d, 2)), 1, 0,
                              {{117, 6, {1, 0, 13, 255, 63, 1}}, {117, 6, {1, 0, 14, 0, 0, 2}}}}},
        {Model::kK50, false, {CALL(WriteSRAM(49152, d, 1)), 1, 0, {{117, 6, {1, 0, 16, 0, 0, 1}}}}},
        {Model::kK44, false, {CALL(ReadSRAM(16383, read, 2)), 1, 0,
                              {{116, 6, {1, 0, 1, 255, 63}}, {116, 6, {1, 0, 2, 0, 0}}}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        c.programRuns ? Open(c.model) : OpenWithoutFirmware(c.model);
        Expect({c.call});
    }
}

TEST_F(SramTest, WhatIsWrittenIsThereInAsFewChunksAsPossible) {
    struct Case {
        Model model;
        int speedMbit;
        std::size_t end, longestWrite, longestRead;
    };
    const Case cases[] = {
        {Model::kK40, 12, 65535, 57, 58},  {Model::kK40, 480, 65535, 249, 58},
        {Model::kK44, 12, 475134, 55, 60}, {Model::kK44, 480, 475134, 247, 252},
        {Model::kK50, 12, 999422, 55, 60}, {Model::kK50, 480, 999422, 247, 252},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(ModelName(c.model) + " " + std::to_string(c.speedMbit));
        Open(c.model, c.speedMbit);
        const bool k40 = c.model == Model::kK40;
        ExpectToKeepWhatIsWritten({
            .write = [&](auto... of) { return board.WriteLargeSRAM(of...); },
            .read = [&](auto... of) { return board.ReadLargeSRAM(of...); },
            .first = 0,
            .end = c.end,
            .edges = {16384, 196608, c.end},
            .longestWrite = c.longestWrite,
            .longestRead = c.longestRead,
            .contents = simulated->memory.Contents(),
            .placeOf = [k40](std::size_t at) { return k40 || at < 196608 ? at : at + 49152; },
            .pageSize = k40 ? 65536U : 16384U,
        });
    }
}

TEST_F(SramTest, RangeIsCheckedThenThePointer) {
    unsigned char byte = 0;
    struct Limit {
        Model model;
        unsigned long end;
        int error;
    };
    for (const auto& [model, end, error] :
         {Limit{Model::kK40, 65535, 25}, Limit{Model::kK44, 475134, 8},
          Limit{Model::kK50, 999422, 8}}) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        // clang-format off
        Expect({
            {CALL(ReadLargeSRAM(end, &byte, 0)),        1, 0, {}},
            {CALL(ReadLargeSRAM(end, nullptr, 1)),      0, error, {}},
            {CALL(ReadLargeSRAM(end + 1, &byte, 0)),    0, error, {}},
            {CALL(ReadLargeSRAM(1, &byte, ~0UL)),       0, error, {}},
            {CALL(ReadLargeSRAM(0, nullptr, 0)),        0, 30, {}},
            {CALL(WriteLargeSRAM(end, &byte, 0)),       1, 0, {}},
            {CALL(WriteLargeSRAM(end, nullptr, 1)),     0, error, {}},
            {CALL(WriteLargeSRAM(1UL << 32, &byte, 1)), 0, error, {}},
            {CALL(WriteSRAM(1, &byte, 0xFFFFFFFF)),     0, error, {}},
            {CALL(WriteLargeSRAM(0, nullptr, 0)),       0, 30, {}},
        });
        // clang-format on
    }
}

TEST_F(SramTest, SixteenBitPairReachesTheFirst64KilobytesAndALongLengthIsCut) {
    unsigned char data[] = {1, 2, 3, 4, 5, 6};
    Open(Model::kK44);
    const Exchanges cut = {{117, 6, {2, 0, 1, 9, 0, 4, 5}}};
    Expect({{CALL(WriteSRAM(65535, data + 1, 1)), 1, 0, {{117, 6, {1, 0, 4, 255, 63, 2}}}},
            {CALL(ReadSRAM(65535, data, 1)), 1, 0, {{116, 6, {1, 0, 4, 255, 63}}}},
            {CALL(WriteLargeSRAM(9, data + 3, (1UL << 32) + 2)), 1, 0, cut}});
    EXPECT_EQ(data[0], 2);
}

TEST_F(SramTest, AFailingChunkEndsTheTransfer) {
    for (const Model model : kModels) {
        Open(model, 12);
        Bytes data(200, 0xEE);
        driver.AnswerNext({});
        driver.AnswerNext({.status = 9});
        EXPECT_EQ(board.WriteLargeSRAM(0, data.data(), 200), 0);
        EXPECT_EQ(board.GetLastError(), 9);
        EXPECT_EQ(driver.Sent().size(), 2U);
    }
}

TEST_F(SramTest, AReadGoesOnBehindAShortReplyAndEndsWithAnEmptyOrTooLongOne) {
    const Bytes none(4, 0xEE), more = {8, 8, 9, 9}, zeroes = {8, 8, 0, 0};
    // clang-format off
    struct Case { const char* what; Model model; DriverAnswer second; int error; Bytes lastFour; };
    const Case cases[] = {
        {"short",            Model::kK44, {.reply = {8, 8}},                             0, more},
        {"short by claim",   Model::kK50, {.reply = {8, 8, 0}, .claimedLength = 4},      0, zeroes},
        {"empty",            Model::kK40, {},                                            6, none},
        {"empty",            Model::kK44, {},                                            6, none},
        {"a byte too long",  Model::kK40, {.reply = Bytes(5, 8)},                        7, none},
        {"longest",          Model::kK44, {.reply = Bytes(256, 8)},                      7, none},
        {"long by claim",    Model::kK44, {.reply = Bytes(4, 8), .claimedLength = 5},    7, none},
        {"claims 2^32 + 1",  Model::kK50, {.reply = {8}, .claimedLength = 0x100000001},  7, none},
        {"claims all",       Model::kK50, {.reply = Bytes(4, 8), .claimedLength = ~0UL}, 7, none},
        {"status",           Model::kK50, {.status = 9, .reply = Bytes(4, 8)},           9, none},
        {"ioctl fails",      Model::kK40, {.error = 5, .reply = Bytes(4, 8)},            6, none},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(ModelName(c.model) + ": " + c.what);
        Open(c.model);
        const std::size_t first = c.model == Model::kK40 ? 58 : 252;
        driver.AnswerNext({.reply = Bytes(first, 7)});
        driver.AnswerNext(c.second);
        driver.AnswerNext({.reply = {9, 9}});
        Bytes data(first + 4, 0xEE);  // AddressSanitizer guards its end
        EXPECT_EQ(board.ReadLargeSRAM(0, data.data(), first + 4), c.error == 0);
        EXPECT_EQ(board.GetLastError(), c.error);
        Exchanges sent = driver.Sent();
        if (c.lastFour[2] == 9) {
            EXPECT_EQ(sent.back(), (Exchange{116, 6, {2, 0, 1, 254, 0}}));
            sent.pop_back();
        }
        EXPECT_EQ(sent.size(), 2U);
        Bytes expected(first, 7);
        expected.insert(expected.end(), c.lastFour.begin(), c.lastFour.end());
        EXPECT_EQ(data, expected);
    }
}

}  // namespace
