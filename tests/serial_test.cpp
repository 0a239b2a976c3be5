/**
 * @file serial_test.cpp
 * @brief Serial ports: line parameters, configuration, and sending.
 */
#include <algorithm>

#include "board_test.h"

namespace {

class SerialTest : public BoardTest {
protected:
    int SetLine(int port, unsigned long baud, unsigned flags = 0, unsigned parity = 0,
                int type = 0) {
        _DCB line = {baud, static_cast<unsigned char>(flags), static_cast<unsigned char>(parity)};
        return board.SetConfig(static_cast<_usbSerialPort>(port), &line,
                               static_cast<_usbPortType>(type));
    }

    unsigned short errors = 0;
};

TEST_F(SerialTest, EachPortHasRatesOfItsOwn) {
    // clang-format off
    struct Case { unsigned long baud; Bytes port0, port1; };  // empty: the port does not have it
    const Case cases[] = {
        {110,    {},           {0xBB, 0xCA}},    {300,    {},           {0x78, 0xEC}},
        {600,    {},           {0x3C, 0xF6}},    {1200,   {0x98, 0x00}, {0x1F, 0xFB}},
        {2400,   {0x64, 0x01}, {0x8F, 0xFD}},    {4800,   {0xB2, 0x01}, {0xC8, 0xFE}},
        {9600,   {0xD9, 0x01}, {0x64, 0xFF}},    {14400,  {},           {0x98, 0xFF}},
        {19200,  {0xEC, 0x01}, {0xB2, 0xFF}},    {38400,  {0xF6, 0x01}, {0xD8, 0xFF}},
        {57600,  {},           {0xE6, 0xFF}},    {62500,  {0xFA, 0x01}, {0xE8, 0xFF}},
        {0,      {},           {}},              {9601,   {},           {}},
        {115200, {},           {}},              {9600 + (1UL << 32), {}, {}},
    };
    // clang-format on
    Open(Model::kK44);
    for (const Case& c : cases) {
        for (const _usbSerialPort port : kPorts) {
            const Bytes& rate = port == kPort0 ? c.port0 : c.port1;
            Exchanges sent;
            if (!rate.empty()) sent = {{97, ChannelOf(port), {0, 0, 0, 0, rate[0], rate[1]}}};
            Expect({{std::to_string(c.baud), [&] { return SetLine(port, c.baud); }, !rate.empty(),
                     rate.empty() ? 10 : 0, sent}});
        }
    }
}

TEST_F(SerialTest, TypeParityAndFlagsHaveTheirPlaces) {
    // clang-format off
    struct Case { int type; unsigned parity, flags; Bytes start; };
    const Case cases[] = {
        {0, 1, 0x00, {0, 2, 0, 0}}, {1, 2,   0x00, {1, 1, 0, 0}}, {2, 3, 0x00, {2, 0, 0, 0}},
        {0, 5, 0x00, {0, 3, 0, 0}}, {3, 255, 0x00, {3, 0, 0, 0}}, {0, 0, 0x02, {0, 0, 0, 1}},
        {0, 0, 0x04, {0, 0, 1, 0}}, {0, 0,   0x08, {0, 0, 2, 0}}, {0, 0, 0xF1, {0, 0, 0, 0}},
    };
    // clang-format on
    for (const Case& c : cases) {
        Open(Model::kK50);
        EXPECT_EQ(SetLine(0, 9600, c.flags, c.parity, c.type), 1);
        Bytes payload = c.start;
        payload.insert(payload.end(), {0xD9, 0x01});
        EXPECT_EQ(driver.Sent(), Exchanges({{97, 3, payload}}));
    }
}

TEST_F(SerialTest, ParityOfType0WantsThatTypeAndARefusalConfiguresNothing) {
    Open(Model::kK44);
    AcceptEverything();
    Expect({{"port before rate", [&] { return SetLine(2, 1); }, 0, 11, {}},
            {"type 1 before rate", [&] { return SetLine(0, 1, 0, 5, 1); }, 0, 11, {}},
            {"type 3", [&] { return SetLine(1, 9600, 0, 5, 3); }, 0, 11, {}},
            {"rate", [&] { return SetLine(0, 1, 0, 5); }, 0, 10, {}},
            {CALL(GetParityErrors(kPort0, &errors)), 0, 38, {}}});
}

TEST_F(SerialTest, APortIsConfiguredFromItsFirstSuccessUntilTheBoardIsClosed) {
    Open(Model::kK44);
    AcceptEverything();
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(SetLine(0, 9600), 0);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 0);
    EXPECT_EQ(SetLine(0, 9600), 1);
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(SetLine(0, 9600), 0);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 1);
    Open(Model::kK44);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 0);
}

TEST_F(SerialTest, BytesAndWordsGoOutInChunksOfTheBusSpeed) {
    struct Case {
        int speedMbit;
        std::vector<std::size_t> chunks;
    };
    for (const Case& c : {Case{480, {2}}, Case{480, {252}}, Case{480, {252, 2}}, Case{12, {60}},
                          Case{12, {60, 60, 10}}}) {
        for (const _usbSerialPort port : kPorts) {
            OpenConfigured(Model::kK44, c.speedMbit);
            Bytes bytes;
            Exchanges expected;
            for (const std::size_t chunk : c.chunks) {
                expected.push_back({98, ChannelOf(port), {}});
                for (std::size_t i = 0; i < chunk; ++i) {
                    bytes.push_back(static_cast<std::uint8_t>(bytes.size()));
                    expected.back().payload.push_back(bytes.back());
                }
            }
            std::vector<unsigned short> words;
            for (std::size_t i = 0; i < bytes.size(); i += 2)
                words.push_back(static_cast<unsigned short>(bytes[i] * 256 + bytes[i + 1]));
            const auto length = static_cast<unsigned>(bytes.size());
            Expect({{CALL(Send(port, bytes.data(), length)), 1, 0, expected},
                    {CALL(Send9BitData(port, words.data(), length / 2)), 1, 0, expected}});
            driver.AnswerNext({.status = 9});
            Expect({{CALL(Send(port, bytes.data(), length)), 0, 9, {expected[0]}}});
        }
    }
}

}  // namespace
