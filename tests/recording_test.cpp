/**
 * @file recording_test.cpp
 * @brief Input recording and diagnostic data of a K44 and K50.
 */
#include <array>

#include "board_test.h"

namespace {

constexpr Model kRecordingModels[] = {Model::kK44, Model::kK50};

class RecordingTest : public BoardTest {};

TEST_F(RecordingTest, ConfigurationSendsSlotsPageOffsetAndLengthOrNothing) {
    struct Case {
        const char* what;
        std::array<unsigned, 4> slots;
        unsigned long address;
        unsigned short length;
        int result, error;
        Exchanges sent;
    };
    const Case cases[] = {
        // clang-format off
        {"one input",          {3, 255, 255, 255},   0,      100,    1, 0, {{125, 1, {3, 255, 255, 255,    1, 0, 0,       0, 100}}}},
        {"four inputs",        {0, 23, 7, 0},        0x4123, 0x0102, 1, 0, {{125, 1, {0, 23, 7, 0,         2, 0x01, 0x23, 1, 2}}}},
        {"last slot only",     {255, 255, 255, 1},   16383,  0xFFFF, 1, 0, {{125, 1, {255, 255, 255, 1,    1, 0x3F, 0xFF, 255, 255}}}},
        {"second page",        {3, 255, 255, 255},   16384,  1,      1, 0, {{125, 1, {3, 255, 255, 255,    2, 0, 0,       0, 1}}}},
        {"page 13 follows 12", {3, 255, 255, 255},   196608, 1,      1, 0, {{125, 1, {3, 255, 255, 255,   13, 0, 0,       0, 1}}}},
        {"ends at the limit",  {3, 255, 255, 255},   475133, 1,      1, 0, {{125, 1, {3, 255, 255, 255,   29, 0x3F, 0xFD, 0, 1}}}},
        {"lies at the limit",  {3, 255, 255, 255},   475134, 0,      1, 0, {{125, 1, {3, 255, 255, 255,   29, 0x3F, 0xFE, 0, 0}}}},
        {"ends beyond",        {3, 255, 255, 255},   475134, 1,      0, 8, {}},
        {"lies beyond",        {3, 255, 255, 255},   475135, 0,      0, 8, {}},
        {"sum would wrap",     {3, 255, 255, 255},   ~0UL,   1,      0, 8, {}},
        {"no input",           {255, 255, 255, 255}, 0,      100,    0, 8, {}},
        {"input 24",           {24, 255, 255, 255},  0,      100,    0, 8, {}},
        {"last is bad",        {0, 1, 2, 254},       0,      100,    0, 8, {}},
        {"low byte is good",   {0, 256, 2, 3},       0,      100,    0, 8, {}},
        // clang-format on
    };
    for (const Model model : kRecordingModels) {
        Open(model);
        AcceptEverything();
        for (const Case& c : cases) {
            SCOPED_TRACE(ModelName(model));
            _usbInputBitId slots[4];
            for (std::size_t i = 0; i < 4; ++i)
                slots[i] = static_cast<_usbInputBitId>(c.slots[i]);
            Expect({{c.what,
                     [&] { return board.ConfigureRecordingInputs(slots, c.address, c.length); },
                     c.result, c.error, c.sent}});
        }
        const auto noSlots = [&] { return board.ConfigureRecordingInputs(nullptr, ~0UL, 1); };
        Expect({{"no slots, out of range", noSlots, 0, 30, {}}});
    }
}

TEST_F(RecordingTest, StartTakesTenTo15000) {
    Open(Model::kK44);
    AcceptEverything();
    const auto start = [&](unsigned short parameter) {
        return [=, this] { return board.StartRecordingInputs(parameter); };
    };
    Expect({
        {"below", start(9), 0, 8, {}},
        {"lowest", start(10), 1, 0, {{126, 1, {0, 10}}}},
        {"highest", start(15000), 1, 0, {{126, 1, {0x3A, 0x98}}}},
        {"above", start(15001), 0, 8, {}},
    });
}

TEST_F(RecordingTest, StatusIsAByteAndTwoWordsHighByteFirst) {
    Open(Model::kK50);
    auto status = USB_RECORDING_STATUS_1;
    unsigned short first = 7;
    unsigned short second = 8;
    const auto get = [&] { return board.GetRecordingStatus(&status, &first, &second); };
    const auto expectValues = [&](unsigned s, unsigned f, unsigned l) {
        EXPECT_EQ(static_cast<unsigned>(status), s);
        EXPECT_EQ(first, f);
        EXPECT_EQ(second, l);
    };
    driver.AnswerNext({.status = 9, .reply = {1, 1, 1, 1, 1}});
    Expect({
        // clang-format off
        {"refused by the board", get,                                                                 0,  9, {{127, 1, {}}}},
        {"no status",            [&] { return board.GetRecordingStatus(nullptr, &first, &second); },  0, 30, {}},
        {"no first",             [&] { return board.GetRecordingStatus(&status, nullptr, &second); }, 0, 30, {}},
        {"no second",            [&] { return board.GetRecordingStatus(&status, &first, nullptr); },  0, 30, {}},
        // clang-format on
    });
    expectValues(1, 7, 8);
    driver.AnswerNext({.reply = {200, 0x01, 0x02, 0x03, 0x04}});
    Expect({{"answered", get, 1, 0, {{127, 1, {}}}}});
    expectValues(200, 0x0102, 0x0304);
    driver.AnswerNext({.reply = {2, 0x01}});
    Expect({{"cut short", get, 1, 0, {{127, 1, {}}}}});
    expectValues(2, 0x0100, 0);
}

TEST_F(RecordingTest, DiagnosticRequestsGoOutAsTheyAreWhateverTheirLength) {
    for (const Model model : kRecordingModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        AcceptEverything();
        for (const std::size_t length : {0UL, 1UL, 300UL, 5000UL}) {
            SCOPED_TRACE(length);
            Bytes data(length + 1);
            for (std::size_t i = 0; i < length; ++i)
                data[i] = static_cast<std::uint8_t>(i * 7 + 1);
            const Bytes payload(data.begin(), data.end() - 1);
            unsigned char reply[256];
            unsigned long replyLength = 99;
            Expect({
                // clang-format off
                {"write", [&] { return board.WriteDiagnosticData(data.data(), length); },                     1, 0, {{129, 1, payload}}},
                {"read",  [&] { return board.ReadDiagnosticData(data.data(), length, reply, &replyLength); }, 1, 0, {{128, 1, payload}}},
                // clang-format on
            });
            EXPECT_EQ(replyLength, 0U);
        }
    }
}

TEST_F(RecordingTest, DiagnosticReplyIsCopiedAsFarAsItCameAndNeverPast256) {
    struct Case {
        const char* what;
        DriverAnswer answer;
        int result, error;
        unsigned long length, written;  // written: so many bytes of 7
    };
    const Case cases[] = {
        {"three bytes", {.reply = Bytes(3, 7)}, 1, 0, 3, 3},
        {"longest", {.reply = Bytes(256, 7)}, 1, 0, 256, 256},
        {"more sent than claimed", {.reply = Bytes(9, 7), .claimedLength = 2}, 1, 0, 2, 2},
        {"more claimed than fits", {.reply = Bytes(256, 7), .claimedLength = 257}, 1, 0, 256, 256},
        {"far more claimed", {.reply = Bytes(256, 7), .claimedLength = ~0UL}, 1, 0, 256, 256},
        {"refused", {.status = 9, .reply = Bytes(9, 7)}, 0, 9, 99, 0},
    };
    Open(Model::kK44);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StartAfresh();
        driver.AnswerNext(c.answer);
        unsigned char request = 1;
        Bytes reply(260, 0xEE);
        unsigned long length = 99;
        EXPECT_EQ(board.ReadDiagnosticData(&request, 1, reply.data(), &length), c.result);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(length, c.length);
        Bytes expected(260, 0xEE);
        std::fill_n(expected.begin(), c.written, 7);
        EXPECT_EQ(reply, expected);
    }
    // What is claimed and did not come is 0, and nothing that lay in memory.
    driver.AnswerNext({.reply = {7}, .claimedLength = 256});
    unsigned char request = 1;
    Bytes reply(256, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(board.ReadDiagnosticData(&request, 1, reply.data(), &length), 1);
    Bytes expected(256);
    expected[0] = 7;
    EXPECT_EQ(reply, expected);
}

TEST_F(RecordingTest, DiagnosticPointersAreChecked) {
    Open(Model::kK44);
    unsigned char byte = 0;
    unsigned long length = 0;
    Expect({
        // clang-format off
        {"no request",      [&] { return board.ReadDiagnosticData(nullptr, 0, &byte, &length); }, 0, 30, {}},
        {"no reply",        [&] { return board.ReadDiagnosticData(&byte, 1, nullptr, &length); }, 0, 30, {}},
        {"no reply length", [&] { return board.ReadDiagnosticData(&byte, 1, &byte, nullptr); },   0, 30, {}},
        {"no data",         [&] { return board.WriteDiagnosticData(nullptr, 0); },                0, 30, {}},
        // clang-format on
    });
}

}  // namespace
