/**
 * @file identity_test.cpp
 * @brief Versions, serial numbers, random numbers, SPI transfers and SEC frames.
 */
#include <algorithm>

#include "board_test.h"

namespace {

class IdentityTest : public BoardTest {};

struct WholeReply {
    const char* name;
    Exchange sent;
    int (*call)(MarvaneUSB&, unsigned char* target);
};

unsigned char spiData[20] = {1, 2, 3, 4};

// What hands over the whole reply, into a buffer whose size it is not told.
const WholeReply kWholeReplies[] = {
    // clang-format off
    {"Get8051Version",     { 6, 2, {}}, [](MarvaneUSB& b, unsigned char* t) { return b.Get8051Version(t); }},
    {"GetPICVersion",      {44, 5, {}}, [](MarvaneUSB& b, unsigned char* t) { return b.GetPICVersion(t); }},
    {"GetPICSerialNumber", {63, 5, {}}, [](MarvaneUSB& b, unsigned char* t) { return b.GetPICSerialNumber(t); }},
    {"SendSPI",            {96, 7, {8, 0, 5, 1}}, [](MarvaneUSB& b, unsigned char* t) { return b.SendSPI(8, spiData, 5, 0, t); }},
    {"SendSEC",            {96, 7, {32, 32, 5, 6, 7, 0, 13}}, [](MarvaneUSB& b, unsigned char* t) { return b.SendSEC(6, 7, 0, spiData, 5, 0, t); }},
    // clang-format on
};

TEST_F(IdentityTest, WholeRepliesAreCopiedAsFarAsTheyCame) {
    struct Case {
        const char* what;
        bool k40;
        DriverAnswer answer;
        int result, error;
        std::size_t sevens, zeroes;  // written
    };
    const Case cases[] = {
        // clang-format off
        {"nothing",            true,  {},                                               1, 0,   0,   0},
        {"three bytes",        true,  {.reply = Bytes(3, 7)},                           1, 0,   3,   0},
        {"longest of a K40",   true,  {.reply = Bytes(62, 7)},                          1, 0,  62,   0},
        {"longest",            false, {.reply = Bytes(256, 7)},                         1, 0, 256,   0},
        {"claims too much",    false, {.reply = Bytes(256, 7), .claimedLength = 257},   1, 0, 256,   0},
        {"sends too little",   false, {.reply = Bytes(3, 7), .claimedLength = 1 << 20}, 1, 0,   3, 253},
        {"refused",            true,  {.status = 9, .reply = Bytes(9, 7)},              0, 9,   0,   0},
        // clang-format on
    };
    for (const Model model : kModels) {
        Open(model);
        for (const WholeReply& operation : kWholeReplies) {
            for (const Case& c : cases) {
                if (model == Model::kK40 && !c.k40) continue;
                SCOPED_TRACE(std::string(ModelName(model)) + " " + operation.name + ": " + c.what);
                driver.AnswerNext(c.answer);
                Bytes target(model == Model::kK40 ? 62 : 256, 0xEE);  // AddressSanitizer guards it
                Bytes expected = target;
                std::fill_n(std::fill_n(expected.begin(), c.sevens, 7), c.zeroes, 0);
                const auto call = [&] { return operation.call(board, target.data()); };
                Expect({{"with room", call, c.result, c.error, {operation.sent}}});
                EXPECT_EQ(target, expected);
            }
            Expect({{operation.name, [&] { return operation.call(board, nullptr); }, 0, 30, {}}});
        }
    }
}

TEST_F(IdentityTest, PicSerialNumberIsSetWithEightBytes) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        AcceptEverything();
        unsigned char serial[] = {1, 2, 3, 4, 5, 6, 7, 255};
        Expect({
            // clang-format off
            {"set",  [&] { return board.SetPICSerialNumber(serial); },  1,  0, {{65, 5, {1, 2, 3, 4, 5, 6, 7, 255}}}},
            {"null", [&] { return board.SetPICSerialNumber(nullptr); }, 0, 30, {}},
            // clang-format on
        });
    }
}

TEST_F(IdentityTest, DallasNumberHasEightBytesAndIsValidWhenItsCrcIsRight) {
    const Bytes right = {0x02, 0x1C, 0xB8, 0x01, 0x00, 0x00, 0x00, 0xA2};
    struct Case {
        const char* what;
        DriverAnswer answer;
        Bytes serial;
        int valid;
    };
    std::vector<Case> cases = {
        {"right", {.reply = right}, right, 1},
        {"another",
         {.reply = {9, 17, 34, 51, 68, 85, 102, 0x84}},
         {9, 17, 34, 51, 68, 85, 102, 0x84},
         1},
        {"eight zeroes", {.reply = Bytes(8)}, Bytes(8), 1},
        {"more than eight", {.reply = {0x02, 0x1C, 0xB8, 0x01, 0, 0, 0, 0xA2, 5, 6}}, right, 1},
        {"nothing", {}, Bytes(8), 0},
        {"seven zeroes", {.reply = Bytes(7)}, Bytes(8), 0},
        {"three", {.reply = {1, 2, 3}}, {1, 2, 3, 0, 0, 0, 0, 0}, 0},
    };
    for (unsigned bit = 0; bit < 64; ++bit) {
        Bytes wrong = right;
        wrong[bit / 8] = static_cast<std::uint8_t>(wrong[bit / 8] ^ 1U << bit % 8);
        cases.push_back({"one bit wrong", {.reply = wrong}, wrong, 0});
    }
    for (const Model model : {Model::kK44, Model::kK50}) {
        Open(model);
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            driver.AnswerNext(c.answer);
            Bytes serial(8, 0xEE);
            unsigned char valid = 99;
            const auto read = [&] { return board.GetDallasSerialNumber(serial.data(), &valid); };
            Expect({{"read", read, 1, 0, {{120, 5, {}}}}});
            EXPECT_EQ(serial, c.serial);
            EXPECT_EQ(valid, c.valid);
        }
    }
}

TEST_F(IdentityTest, DallasNumberIsUntouchedOnFailure) {
    Open(Model::kK44);
    Bytes serial(8, 0xEE);
    unsigned char valid = 99;
    driver.AnswerNext({.status = 9, .reply = Bytes(8)});
    Expect({
        // clang-format off
        {"refused by the board", [&] { return board.GetDallasSerialNumber(serial.data(), &valid); },  0,  9, {{120, 5, {}}}},
        {"no serial",            [&] { return board.GetDallasSerialNumber(nullptr, &valid); },        0, 30, {}},
        {"no valid",             [&] { return board.GetDallasSerialNumber(serial.data(), nullptr); }, 0, 30, {}},
        // clang-format on
    });
    EXPECT_EQ(serial, Bytes(8, 0xEE));
    EXPECT_EQ(valid, 99);
}

TEST_F(IdentityTest, RandomNumbersComeLowByteFirst) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        unsigned short number = 7;
        const auto get = [&] { return board.GetRandomNumber(&number); };
        driver.AnswerNext({.status = 9, .reply = {1, 1}});
        Expect({{"refused", get, 0, 9, {{68, 5, {}}}},
                {"null", [&] { return board.GetRandomNumber(nullptr); }, 0, 30, {}}});
        EXPECT_EQ(number, 7);
        driver.AnswerNext({.reply = {0x34, 0x12, 0x56}});
        Expect({{"answered", get, 1, 0, {{68, 5, {}}}}});
        EXPECT_EQ(number, 0x1234);
        driver.AnswerNext({.reply = {0x34}});
        Expect({{"cut short", get, 1, 0, {{68, 5, {}}}}});
        EXPECT_EQ(number, 0x34);

        AcceptEverything();
        Expect({
            // clang-format off
            {"on",  [&] { return board.EnableRandomNumberGenerator(0x1F2345678); }, 1, 0, {{69, 5, {0x78, 0x56, 0x34, 0xF2}}}},
            {"off", [&] { return board.DisableRandomNumberGenerator(); },           1, 0, {{118, 5, {}}}},
            // clang-format on
        });
    }
}

TEST_F(IdentityTest, SpiSendsWholeBytesWithinItsLimits) {
    unsigned char data[20];
    for (unsigned char i = 0; i < 20; ++i)
        data[i] = static_cast<unsigned char>(101 + i);
    unsigned char reply[256];
    const auto send = [&](unsigned char sendBits, unsigned char receiveBits) {
        return [&, sendBits, receiveBits] {
            return board.SendSPI(sendBits, data, 200, receiveBits, reply);
        };
    };
    const auto sendTo = [&](unsigned char* from, unsigned char* to) {
        return [=, this] { return board.SendSPI(0, from, 200, 161, to); };
    };
    Bytes longest = {160, 160, 200};
    longest.insert(longest.end(), data, data + 20);
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        AcceptEverything();
        Expect({
            {"on", [&] { return board.EnableSPI(); }, 1, 0, {{94, 7, {}}}},
            {"off", [&] { return board.DisableSPI(); }, 1, 0, {{95, 7, {}}}},
            {"one bit", send(1, 0), 1, 0, {{96, 7, {1, 0, 200, 101}}}},
            {"eight bits", send(8, 3), 1, 0, {{96, 7, {8, 3, 200, 101}}}},
            {"nine bits", send(9, 3), 1, 0, {{96, 7, {9, 3, 200, 101, 102}}}},
            {"as many as may be", send(160, 160), 1, 0, {{96, 7, longest}}},
            {"no bit", send(0, 160), 0, 2, {}},
            {"a bit too many", send(161, 160), 0, 2, {}},
            {"far too many", send(255, 160), 0, 2, {}},
            {"a bit too many back", send(160, 161), 0, 2, {}},
            {"no reply, bad length", sendTo(data, nullptr), 0, 30, {}},
            {"no data, bad length", sendTo(nullptr, reply), 0, 30, {}},
        });
    }
}

TEST_F(IdentityTest, SecFrameHasHeadersLengthDataAndChecksum) {
    unsigned char data[16];
    std::fill_n(data, 16, static_cast<unsigned char>(200));
    unsigned char reply[256];
    const auto send = [&](unsigned char length, unsigned char replyLength) {
        return [&, length, replyLength] {
            return board.SendSEC(250, 10, length, data, 77, replyLength, reply);
        };
    };
    const auto sendTo = [&](unsigned char* from, unsigned char* to) {
        return [=, this] { return board.SendSEC(1, 2, 17, from, 0, 17, to); };
    };
    Open(Model::kK50);
    AcceptEverything();
    Expect({
        // bits out, bits back, control; then the frame
        {"no data", send(0, 0), 1, 0, {{96, 7, {32, 32, 77, 250, 10, 0, 4}}}},
        {"two bytes", send(2, 3), 1, 0, {{96, 7, {48, 56, 77, 250, 10, 2, 200, 200, 150}}}},
        {"longest", send(16, 16), 1, 0, {{96, 7, {160, 160, 77,  250, 10,  16,  200, 200,
                                                  200, 200, 200, 200, 200, 200, 200, 200,
                                                  200, 200, 200, 200, 200, 200, 148}}}},
        {"data too long", send(17, 16), 0, 2, {}},
        {"reply too long", send(16, 17), 0, 2, {}},
        {"data's bits wrap to a legal number", send(44, 0), 0, 2, {}},
        {"reply's bits wrap to a legal number", send(0, 44), 0, 2, {}},
        {"no reply, bad length", sendTo(data, nullptr), 0, 30, {}},
        {"no data, bad length", sendTo(nullptr, reply), 0, 30, {}},
    });
}

}  // namespace
