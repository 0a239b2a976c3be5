/**
 * @file sram_test.cpp
 * @brief Battery-backed memory: chunks, pages, limits, and reads that the board cuts short.
 */
#include <algorithm>

#include "board_test.h"

namespace {

std::uint8_t PatternAt(std::size_t position) {
    return static_cast<std::uint8_t>(position * 7 + position / 256 + 1);
}

struct Transfer {
    const char* what;
    Model model;
    int speedMbit;
    unsigned long address;
    std::vector<Bytes> chunks;  // length, on K44 and K50 a zero and the page, offset low, high
};

class SramTest : public BoardTest {
protected:
    void ExpectTransfer(const Transfer& transfer, bool writes) {
        SCOPED_TRACE(ModelName(transfer.model) + ": " + transfer.what);
        const bool k40 = transfer.model == Model::kK40;
        Bytes pattern;
        Exchanges expected;
        for (const Bytes& header : transfer.chunks) {
            expected.push_back({(k40 ? 70 : 116) + writes, 6, header});
            for (unsigned i = 0; i < header[0]; ++i) {
                pattern.push_back(PatternAt(pattern.size()));
                if (writes) expected.back().payload.push_back(pattern.back());
            }
        }
        const std::size_t length = pattern.size();
        StartAfresh();
        if (writes) {
            AcceptEverything();
            EXPECT_EQ(board.WriteLargeSRAM(transfer.address, pattern.data(), length), 1);
        } else {
            AnswerReadsWithPattern();
            Bytes data(length + 4, 0xEE);
            EXPECT_EQ(board.ReadLargeSRAM(transfer.address, data.data(), length), 1);
            pattern.insert(pattern.end(), 4, 0xEE);
            EXPECT_EQ(data, pattern);
        }
        EXPECT_EQ(driver.Sent(), expected);
    }

    void AnswerReadsWithPattern() {
        answered = 0;
        driver.AnswerWith([this](const Exchange& exchange) {
            DriverAnswer answer;
            for (unsigned i = 0; i < exchange.payload[0]; ++i)
                answer.reply.push_back(PatternAt(answered++));
            return answer;
        });
    }

    std::size_t answered = 0;
};

// clang-format off
const Transfer kWrites[] = {
    {"slow",               Model::kK40, 12,  0x01FF, {{57, 255, 1}, {1, 56, 2}}},
    {"fast",               Model::kK40, 480, 0x0100, {{249, 0, 1}, {1, 249, 1}}},
    {"over 16 KB",         Model::kK40, 480, 16380,  {{10, 252, 63}}},
    {"last byte",          Model::kK40, 480, 65534,  {{1, 254, 255}}},
    {"slow",               Model::kK44, 12,  55,     {{55, 0, 1, 55, 0}, {1, 0, 1, 110, 0}}},
    {"fast",               Model::kK44, 480, 0x0100, {{247, 0, 1, 0, 1}, {1, 0, 1, 247, 1}}},
    {"to a page's end",    Model::kK44, 12,  16329,  {{55, 0, 1, 201, 63}, {55, 0, 2, 0, 0}}},
    {"over the program",   Model::kK44, 480, 196607, {{1, 0, 12, 255, 63}, {1, 0, 16, 0, 0}}},
    {"behind the program", Model::kK44, 480, 212992, {{1, 0, 17, 0, 0}}},
    {"last byte",          Model::kK44, 480, 475133, {{1, 0, 32, 253, 63}}},
    {"over a page",        Model::kK50, 12,  32760,  {{8, 0, 2, 248, 63}, {2, 0, 3, 0, 0}}},
    {"last byte",          Model::kK50, 480, 999421, {{1, 0, 64, 253, 63}}},
};
const Transfer kReads[] = {
    {"slow",               Model::kK40, 12,  0x01FF, {{58, 255, 1}, {1, 57, 2}}},
    {"fast",               Model::kK40, 480, 0x0100, {{58, 0, 1}, {1, 58, 1}}},
    {"last byte",          Model::kK40, 480, 65534,  {{1, 254, 255}}},
    {"slow",               Model::kK44, 12,  0,      {{60, 0, 1, 0, 0}, {1, 0, 1, 60, 0}}},
    {"fast",               Model::kK44, 480, 0x0100, {{252, 0, 1, 0, 1}, {1, 0, 1, 252, 1}}},
    {"over the program",   Model::kK44, 480, 196606, {{2, 0, 12, 254, 63}, {6, 0, 16, 0, 0}}},
    {"last byte",          Model::kK50, 480, 999421, {{1, 0, 64, 253, 63}}},
};
const Transfer kWritesWithoutProgram[] = {
    {"one memory",         Model::kK40, 480, 0,      {{1, 0, 0}}},
    {"program's pages",    Model::kK44, 480, 16383,  {{1, 0, 13, 255, 63}, {1, 0, 14, 0, 0}}},
    {"no page left out",   Model::kK50, 480, 49152,  {{1, 0, 16, 0, 0}}},
};
// clang-format on

TEST_F(SramTest, TransfersGoInTheLongestChunksThatFit) {
    for (const Transfer& transfer : kWrites) {
        Open(transfer.model, transfer.speedMbit);
        ExpectTransfer(transfer, true);
    }
    for (const Transfer& transfer : kReads) {
        Open(transfer.model, transfer.speedMbit);
        ExpectTransfer(transfer, false);
    }
}

TEST_F(SramTest, BeforeTheProgramRunsOnlyWritesGoToItsPages) {
    for (const Transfer& transfer : kWritesWithoutProgram) {
        OpenWithoutFirmware(transfer.model);
        ExpectTransfer(transfer, true);
    }
    OpenWithoutFirmware(Model::kK44);
    ExpectTransfer({"storage", Model::kK44, 480, 16383, {{1, 0, 1, 255, 63}, {1, 0, 2, 0, 0}}},
                   false);
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
            {CALL(ReadLargeSRAM(end, &byte, 0)),             1, 0, {}},
            {CALL(ReadLargeSRAM(end, &byte, 1)),             0, error, {}},
            {CALL(ReadLargeSRAM(end + 1, &byte, 0)),         0, error, {}},
            {CALL(ReadLargeSRAM(1, &byte, ~0UL)),            0, error, {}},
            {CALL(ReadLargeSRAM(end, nullptr, 1)),           0, error, {}},
            {CALL(ReadLargeSRAM(0, nullptr, 0)),             0, 30, {}},
            {CALL(WriteLargeSRAM(end, &byte, 0)),            1, 0, {}},
            {CALL(WriteLargeSRAM(end, &byte, 1)),            0, error, {}},
            {CALL(WriteLargeSRAM(end + 1, &byte, 0)),        0, error, {}},
            {CALL(WriteLargeSRAM(1UL << 32, &byte, 1)),      0, error, {}},
            {CALL(WriteLargeSRAM(1, &byte, 0xFFFFFFFF)),     0, error, {}},
            {CALL(WriteLargeSRAM(end, nullptr, 1)),          0, error, {}},
            {CALL(WriteLargeSRAM(0, nullptr, 0)),            0, 30, {}},
        });
        // clang-format on
    }
}

TEST_F(SramTest, SixteenBitPairReachesTheFirst64KilobytesAndALongLengthIsCut) {
    unsigned char data[] = {1, 2, 3, 4, 5, 6};
    Open(Model::kK44);
    AnswerReadsWithPattern();
    // clang-format off
    Expect({
        {CALL(WriteSRAM(65535, data + 1, 1)), 1, 0, {{117, 6, {1, 0, 4, 255, 63, 2}}}},
        {CALL(ReadSRAM(65535, data, 1)), 1, 0, {{116, 6, {1, 0, 4, 255, 63}}}},
        {CALL(WriteLargeSRAM(9, data + 3, (1UL << 32) + 2)), 1, 0,
         {{117, 6, {2, 0, 1, 9, 0, 4, 5}}}},
        {CALL(WriteSRAM(0, data, 0xFFFFFFFF)), 0, 8, {}},
    });
    // clang-format on
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
    struct Case {
        const char* what;
        Model model;
        DriverAnswer second;
        int error;
    };
    const Case cases[] = {
        // clang-format off
        {"short", Model::kK44, {.reply = {8, 8}}, 0},
        {"claims what did not come", Model::kK50, {.reply = {8, 8, 0}, .claimedLength = 4}, 0},
        {"empty", Model::kK40, {}, 6},
        {"empty", Model::kK44, {}, 6},
        {"one byte too long", Model::kK40, {.reply = Bytes(5, 8)}, 7},
        {"longest", Model::kK44, {.reply = Bytes(256, 8)}, 7},
        {"too long only by its claim", Model::kK44, {.reply = Bytes(4, 8), .claimedLength = 5}, 7},
        {"claims 2^32 + 1", Model::kK50, {.reply = {8}, .claimedLength = 0x100000001}, 7},
        {"claims all", Model::kK50, {.reply = Bytes(4, 8), .claimedLength = ~0UL}, 7},
        {"status", Model::kK50, {.status = 9, .reply = Bytes(4, 8)}, 9},
        {"ioctl fails", Model::kK40, {.error = 5, .reply = Bytes(4, 8)}, 6},
        // clang-format on
    };
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
        Bytes expected(first, 7);
        if (c.error != 0) {
            expected.insert(expected.end(), 4, 0xEE);
            EXPECT_EQ(driver.Sent().size(), 2U);
        } else if (c.second.claimedLength) {
            expected.insert(expected.end(), {8, 8, 0, 0});
        } else {
            expected.insert(expected.end(), {8, 8, 9, 9});
            EXPECT_EQ(driver.Sent().at(2), (Exchange{116, 6, {2, 0, 1, 254, 0}}));
        }
        EXPECT_EQ(data, expected);
    }
}

}  // namespace
