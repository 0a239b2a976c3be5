/**
 * @file sram_test.cpp
 * @brief Battery-backed memory: chunks, pages, limits, and reads that the board cuts short.
 */
#include <algorithm>

#include "board_test.h"

namespace {

/** Header of one chunk: length, on K44 and K50 a zero and the page, offset low, high. */
using Header = std::vector<unsigned>;

std::uint8_t PatternAt(std::size_t position) {
    return static_cast<std::uint8_t>(position * 7 + position / 256 + 1);
}

Bytes Pattern(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = PatternAt(i);
    return bytes;
}

struct Transfer {
    const char* what;
    Model model;
    int speedMbit;
    unsigned long address, length;
    std::vector<Header> chunks;
};

class SramTest : public BoardTest {
protected:
    void OpenRunning(Model model, int speedMbit = 480) {
        Open(model, speedMbit);
        ASSERT_EQ(board.DownloadHiCode(), 1);  // the board answers that it runs
        StartAfresh();
    }

    void ExpectWritten(const Transfer& transfer) {
        SCOPED_TRACE(std::string(ModelName(transfer.model)) + ": " + transfer.what);
        AcceptEverything();
        StartAfresh();
        Bytes data = Pattern(transfer.length);
        EXPECT_EQ(board.WriteLargeSRAM(transfer.address, data.data(), transfer.length), 1);

        Exchanges expected;
        auto next = data.begin();
        for (const Header& header : transfer.chunks) {
            Bytes payload(header.begin(), header.end());
            payload.insert(payload.end(), next, next + static_cast<std::ptrdiff_t>(header[0]));
            next += static_cast<std::ptrdiff_t>(header[0]);
            expected.push_back({transfer.model == Model::kK40 ? 71 : 117, 6, payload});
        }
        EXPECT_EQ(next, data.end());
        EXPECT_EQ(driver.Sent(), expected);
    }

    void ExpectRead(const Transfer& transfer) {
        SCOPED_TRACE(std::string(ModelName(transfer.model)) + ": " + transfer.what);
        StartAfresh();
        AnswerReadsWithPattern();
        Bytes data(transfer.length + 4, 0xEE);
        EXPECT_EQ(board.ReadLargeSRAM(transfer.address, data.data(), transfer.length), 1);

        Bytes expected = Pattern(transfer.length);
        expected.insert(expected.end(), 4, 0xEE);
        EXPECT_EQ(data, expected);
        Exchanges sent;
        for (const Header& header : transfer.chunks) {
            sent.push_back(
                {transfer.model == Model::kK40 ? 70 : 116, 6, Bytes(header.begin(), header.end())});
        }
        EXPECT_EQ(driver.Sent(), sent);
    }

    void AnswerReadsWithPattern() {
        answered = 0;
        driver.AnswerWith([this](const Exchange& exchange) {
            DriverAnswer answer;
            for (unsigned i = 0; i < exchange.payload[0]; ++i) {
                answer.reply.push_back(PatternAt(answered++));
            }
            return answer;
        });
    }

    std::size_t answered = 0;
};

TEST_F(SramTest, WritesGoOutInTheLongestChunksThatFit) {
    const Transfer transfers[] = {
        // clang-format off
        {"two chunks",         Model::kK40, 12,  0x0100, 114,  {{57, 0, 1}, {57, 57, 1}}},
        {"one byte more",      Model::kK40, 12,  0x01FF, 58,   {{57, 255, 1}, {1, 56, 2}}},
        {"fast",               Model::kK40, 480, 0x0100, 250,  {{249, 0, 1}, {1, 249, 1}}},
        {"over 16 KB",         Model::kK40, 480, 16380,  10,   {{10, 252, 63}}},
        {"last byte",          Model::kK40, 480, 65534,  1,    {{1, 254, 255}}},
        {"slow",               Model::kK44, 12,  0,      111,  {{55, 0, 1, 0, 0}, {55, 0, 1, 55, 0}, {1, 0, 1, 110, 0}}},
        {"fast",               Model::kK44, 480, 0x0100, 248,  {{247, 0, 1, 0, 1}, {1, 0, 1, 247, 1}}},
        {"over a page",        Model::kK44, 480, 16380,  10,   {{4, 0, 1, 252, 63}, {6, 0, 2, 0, 0}}},
        {"to a page's end",    Model::kK44, 12,  16329,  110,  {{55, 0, 1, 201, 63}, {55, 0, 2, 0, 0}}},
        {"over the program",   Model::kK44, 480, 196607, 2,    {{1, 0, 12, 255, 63}, {1, 0, 16, 0, 0}}},
        {"behind the program", Model::kK44, 480, 212992, 1,    {{1, 0, 17, 0, 0}}},
        {"last byte",          Model::kK44, 480, 475133, 1,    {{1, 0, 32, 253, 63}}},
        {"over a page",        Model::kK50, 12,  32760,  10,   {{8, 0, 2, 248, 63}, {2, 0, 3, 0, 0}}},
        {"last byte",          Model::kK50, 480, 999421, 1,    {{1, 0, 64, 253, 63}}},
        // clang-format on
    };
    for (const Transfer& transfer : transfers) {
        OpenRunning(transfer.model, transfer.speedMbit);
        ExpectWritten(transfer);
    }
}

TEST_F(SramTest, ReadsAskForTheLongestChunksThatFit) {
    const Transfer transfers[] = {
        // clang-format off
        {"slow",             Model::kK40, 12,  0x01FF, 59,   {{58, 255, 1}, {1, 57, 2}}},
        {"fast",             Model::kK40, 480, 0x0100, 59,   {{58, 0, 1}, {1, 58, 1}}},
        {"last byte",        Model::kK40, 480, 65534,  1,    {{1, 254, 255}}},
        {"slow",             Model::kK44, 12,  0,      61,   {{60, 0, 1, 0, 0}, {1, 0, 1, 60, 0}}},
        {"fast",             Model::kK44, 480, 0x0100, 253,  {{252, 0, 1, 0, 1}, {1, 0, 1, 252, 1}}},
        {"over a page",      Model::kK44, 480, 16380,  10,   {{4, 0, 1, 252, 63}, {6, 0, 2, 0, 0}}},
        {"over the program", Model::kK44, 480, 196607, 2,    {{1, 0, 12, 255, 63}, {1, 0, 16, 0, 0}}},
        {"last byte",        Model::kK50, 480, 999421, 1,    {{1, 0, 64, 253, 63}}},
        // clang-format on
    };
    for (const Transfer& transfer : transfers) {
        OpenRunning(transfer.model, transfer.speedMbit);
        ExpectRead(transfer);
    }
}

TEST_F(SramTest, BeforeTheProgramRunsOnlyWritesGoToItsPages) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        OpenWithoutFirmware(model);
        ExpectWritten({"start", model, 480, 0, 1, {{1, 0, 13, 0, 0}}});
        ExpectWritten(
            {"second page", model, 480, 16383, 2, {{1, 0, 13, 255, 63}, {1, 0, 14, 0, 0}}});
        ExpectWritten({"no page left out", model, 480, 49152, 1, {{1, 0, 16, 0, 0}}});
        ExpectRead({"storage", model, 480, 16383, 2, {{1, 0, 1, 255, 63}, {1, 0, 2, 0, 0}}});
    }
    OpenWithoutFirmware(Model::kK40);
    ExpectWritten({"the K40 has one memory", Model::kK40, 480, 0, 1, {{1, 0, 0}}});
}

TEST_F(SramTest, RangeIsCheckedThenThePointer) {
    unsigned char byte = 0;
    struct Case {
        Model model;
        unsigned long limit;
        int error;
    };
    for (const Case& c : {Case{Model::kK40, 65535, 25}, Case{Model::kK44, 475134, 8},
                          Case{Model::kK50, 999422, 8}}) {
        SCOPED_TRACE(ModelName(c.model));
        OpenRunning(c.model);
        using Access = std::function<std::function<int()>(
            unsigned long address, unsigned char* data, unsigned long length)>;
        const Access read = [&](unsigned long address, unsigned char* data, unsigned long length) {
            return [=, this] { return board.ReadLargeSRAM(address, data, length); };
        };
        const Access write = [&](unsigned long address, unsigned char* data, unsigned long length) {
            return [=, this] { return board.WriteLargeSRAM(address, data, length); };
        };
        for (const Access& access : {read, write}) {
            Expect({
                {"nothing at the limit", access(c.limit, &byte, 0), 1, 0, {}},
                {"a byte at the limit", access(c.limit, &byte, 1), 0, c.error, {}},
                {"nothing beyond", access(c.limit + 1, &byte, 0), 0, c.error, {}},
                {"ends beyond", access(0, &byte, c.limit + 1), 0, c.error, {}},
                {"sum of 64 bits wraps", access(~0UL, &byte, 1), 0, c.error, {}},
                {"sum of 32 bits wraps", access(1, &byte, 0xFFFFFFFF), 0, c.error, {}},
                {"address of 32 bits wraps", access(1UL << 32, &byte, 1), 0, c.error, {}},
                {"null beyond", access(c.limit, nullptr, 1), 0, c.error, {}},
                {"null", access(0, nullptr, c.limit), 0, 30, {}},
                {"null, nothing asked for", access(0, nullptr, 0), 0, 30, {}},
            });
        }
        Expect({{"read of 64 bits wraps", read(1, &byte, ~0UL), 0, c.error, {}}});
    }
}

TEST_F(SramTest, SixteenBitPairReachesTheFirst64KilobytesAndALongLengthIsCut) {
    OpenRunning(Model::kK44);
    driver.AnswerWith([](const Exchange& exchange) {
        return DriverAnswer{.reply = Bytes(exchange.payload[0], 5)};
    });
    unsigned char data[] = {1, 2, 3, 4, 5, 6};
    Expect({
        // clang-format off
        {"write",                [&] { return board.WriteSRAM(65535, data, 1); },                    1, 0, {{117, 6, {1, 0, 4, 255, 63, 1}}}},
        {"read",                 [&] { return board.ReadSRAM(65535, data, 1); },                     1, 0, {{116, 6, {1, 0, 4, 255, 63}}}},
        {"length above 32 bits", [&] { return board.WriteLargeSRAM(9, data + 1, (1UL << 32) + 5); }, 1, 0, {{117, 6, {5, 0, 1, 9, 0, 2, 3, 4, 5, 6}}}},
        {"32 bits of length",    [&] { return board.WriteSRAM(0, data, 0xFFFFFFFF); },               0, 8, {}},
        // clang-format on
    });
    OpenRunning(Model::kK40);
    Expect({
        // clang-format off
        {"write", [&] { return board.WriteSRAM(65535, data, 1); }, 0, 25, {}},
        {"read",  [&] { return board.ReadSRAM(65535, data, 1); },  0, 25, {}},
        // clang-format on
    });
}

TEST_F(SramTest, AFailingChunkEndsTheTransfer) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        OpenRunning(model, 12);
        Bytes data = Pattern(200);
        driver.AnswerNext({});
        driver.AnswerNext({.status = 9});
        EXPECT_EQ(board.WriteLargeSRAM(0, data.data(), 200), 0);
        EXPECT_EQ(board.GetLastError(), 9);
        EXPECT_EQ(driver.Sent().size(), 2U);

        StartAfresh();
        const std::size_t chunk = model == Model::kK40 ? 58 : 60;
        driver.AnswerNext({.reply = Bytes(chunk, 7)});
        driver.AnswerNext({.error = 5, .reply = Bytes(chunk, 8)});
        data.assign(200, 0xEE);
        EXPECT_EQ(board.ReadLargeSRAM(0, data.data(), 200), 0);
        EXPECT_EQ(board.GetLastError(), 6);
        EXPECT_EQ(driver.Sent().size(), 2U);
        Bytes expected(200, 0xEE);
        std::fill_n(expected.begin(), chunk, 7);
        EXPECT_EQ(data, expected);
    }
}

TEST_F(SramTest, AShortReplyIsAskedOnFromWhereItEnded) {
    OpenRunning(Model::kK44);
    driver.AnswerNext({.reply = {1, 2}});
    driver.AnswerNext({.reply = {3, 4}});
    driver.AnswerNext({.reply = {5}});
    driver.AnswerNext({.reply = {6, 7, 8, 9, 10}});
    Bytes data(11, 0xEE);
    EXPECT_EQ(board.ReadLargeSRAM(16380, data.data(), 10), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{116, 6, {4, 0, 1, 252, 63}},
                                        {116, 6, {2, 0, 1, 254, 63}},
                                        {116, 6, {6, 0, 2, 0, 0}},
                                        {116, 6, {5, 0, 2, 1, 0}}}));
    EXPECT_EQ(data, Bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0xEE}));

    // What a reply only claims to hold is 0, and nothing that lay in memory.
    driver.AnswerNext({.reply = {1}, .claimedLength = 200});
    data.assign(200, 0xEE);
    EXPECT_EQ(board.ReadLargeSRAM(0, data.data(), 200), 1);
    Bytes expected(200);
    expected[0] = 1;
    EXPECT_EQ(data, expected);
}

TEST_F(SramTest, AnEmptyOrTooLongReplyEndsTheReadAndIsNotStored) {
    struct Case {
        const char* what;
        bool k40;
        DriverAnswer answer;
        int error;
    };
    const Case cases[] = {
        {"empty", true, {}, 6},
        {"one byte too long", true, {.reply = Bytes(5, 8)}, 7},
        {"longest of a K40", true, {.reply = Bytes(62, 8)}, 7},
        {"longest", false, {.reply = Bytes(256, 8)}, 7},
        {"too long only by its claim", false, {.reply = Bytes(4, 8), .claimedLength = 5}, 7},
        {"claims 2^32 + 1", false, {.reply = Bytes(1, 8), .claimedLength = (1UL << 32) + 1}, 7},
        {"claims all", false, {.reply = Bytes(4, 8), .claimedLength = ~0UL}, 7},
    };
    for (const Model model : kModels) {
        OpenRunning(model);
        const std::size_t first = model == Model::kK40 ? 58 : 252;
        for (const Case& c : cases) {
            if (model == Model::kK40 && !c.k40) continue;
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            StartAfresh();
            driver.AnswerNext({.reply = Bytes(first, 7)});
            driver.AnswerNext(c.answer);
            Bytes data(first + 4, 0xEE);  // AddressSanitizer guards its end
            EXPECT_EQ(board.ReadLargeSRAM(0, data.data(), first + 4), 0);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(driver.Sent().size(), 2U);
            Bytes expected(first, 7);
            expected.insert(expected.end(), 4, 0xEE);
            EXPECT_EQ(data, expected);
        }
    }
}

TEST_F(SramTest, ASimulatedBoardKeepsWhatIsWrittenInTheFewestExchanges) {
    struct Case {
        Model model;
        int speedMbit;
        unsigned long address;
        std::size_t writes, reads;  // of 65,535 bytes
    };
    const Case cases[] = {
        // clang-format off
        {Model::kK40, 12,  0,          1150, 1130},
        {Model::kK40, 480, 0,           264, 1130},
        {Model::kK44, 12,  0,          1192, 1096},  // four pages of 298 and 274
        {Model::kK44, 480, 0,           268,  264},  // four pages of 67 and 66
        {Model::kK50, 480, 933887,      269,  265},  // begins with the last byte of a page
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(ModelName(c.model)) + " " + std::to_string(c.speedMbit));
        OpenRunning(c.model, c.speedMbit);
        Bytes data = Pattern(65535);
        ASSERT_EQ(board.WriteLargeSRAM(c.address, data.data(), data.size()), 1);
        EXPECT_EQ(driver.Sent().size(), c.writes);
        StartAfresh();
        data.assign(data.size(), 0xEE);
        ASSERT_EQ(board.ReadLargeSRAM(c.address, data.data(), data.size()), 1);
        EXPECT_EQ(driver.Sent().size(), c.reads);
        EXPECT_EQ(data, Pattern(65535));
    }
}

}  // namespace
