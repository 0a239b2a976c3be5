/**
 * @file serial_test.cpp
 * @brief Serial ports: line parameters, order of checks, sending, and parity errors.
 */
#include "serial_test.h"

#include <cerrno>

namespace {

using Words = std::vector<unsigned short>;

/** Bytes that count from 0. */
Bytes Count(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

class SerialPortTest : public SerialTest {
protected:
    int SetLine(_usbSerialPort port, unsigned long baud, unsigned char flags = 0,
                unsigned char parity = 0, int type = 0) {
        _DCB line = {baud, flags, parity};
        return board.SetConfig(port, &line, static_cast<_usbPortType>(type));
    }
};

TEST_F(SerialPortTest, EachPortHasRatesOfItsOwn) {
    struct Case {
        unsigned long baud;
        Bytes port0, port1;  // empty: the port does not have it
    };
    const Case cases[] = {
        // clang-format off
        {110,    {},           {0xBB, 0xCA}},
        {300,    {},           {0x78, 0xEC}},
        {600,    {},           {0x3C, 0xF6}},
        {1200,   {0x98, 0x00}, {0x1F, 0xFB}},
        {2400,   {0x64, 0x01}, {0x8F, 0xFD}},
        {4800,   {0xB2, 0x01}, {0xC8, 0xFE}},
        {9600,   {0xD9, 0x01}, {0x64, 0xFF}},
        {14400,  {},           {0x98, 0xFF}},
        {19200,  {0xEC, 0x01}, {0xB2, 0xFF}},
        {38400,  {0xF6, 0x01}, {0xD8, 0xFF}},
        {57600,  {},           {0xE6, 0xFF}},
        {62500,  {0xFA, 0x01}, {0xE8, 0xFF}},
        {0,      {},           {}},
        {9601,   {},           {}},
        {115200, {},           {}},
        {9600 + (1UL << 32), {}, {}},
        // clang-format on
    };
    for (const Model model : kModels) {
        Open(model);
        AcceptEverything();
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + std::to_string(c.baud));
            for (const _usbSerialPort port : kPorts) {
                const Bytes& rate = port == kPort0 ? c.port0 : c.port1;
                StartAfresh();
                EXPECT_EQ(SetLine(port, c.baud), rate.empty() ? 0 : 1);
                EXPECT_EQ(board.GetLastError(), rate.empty() ? 10 : 0);
                Exchanges sent;
                if (!rate.empty()) {
                    sent.push_back({97, ChannelOf(port), {0, 0, 0, 0, rate[0], rate[1]}});
                }
                EXPECT_EQ(driver.Sent(), sent);
            }
        }
    }
}

TEST_F(SerialPortTest, TypeParityAndFlagsHaveTheirPlaces) {
    struct Case {
        const char* what;
        int type;
        unsigned char parity, flags;
        Bytes start;
    };
    const Case cases[] = {
        // clang-format off
        {"none",                0, 0,   0x00, {0, 0, 0, 0}},
        {"first sense",         0, 1,   0x00, {0, 2, 0, 0}},
        {"second sense",        1, 2,   0x00, {1, 1, 0, 0}},
        {"3 is none",           2, 3,   0x00, {2, 0, 0, 0}},
        {"4 is none",           1, 4,   0x00, {1, 0, 0, 0}},
        {"5 with type 0",       0, 5,   0x00, {0, 3, 0, 0}},
        {"6 is none",           3, 6,   0x00, {3, 0, 0, 0}},
        {"255 is none",         1, 255, 0x00, {1, 0, 0, 0}},
        {"bit 1",               0, 0,   0x02, {0, 0, 0, 1}},
        {"bit 2",               0, 0,   0x04, {0, 0, 1, 0}},
        {"bit 3",               0, 0,   0x08, {0, 0, 2, 0}},
        {"all flags",           0, 0,   0xFF, {0, 0, 3, 1}},
        {"flags of no meaning", 0, 0,   0xF1, {0, 0, 0, 0}},
        // clang-format on
    };
    Open(Model::kK50);
    AcceptEverything();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StartAfresh();
        EXPECT_EQ(SetLine(kPort0, 9600, c.flags, c.parity, c.type), 1);
        Bytes payload = c.start;
        payload.insert(payload.end(), {0xD9, 0x01});
        EXPECT_EQ(driver.Sent(), Exchanges({{97, 3, payload}}));
    }
}

TEST_F(SerialPortTest, LineParametersAreCheckedInOrder) {
    struct Case {
        const char* what;
        bool hasLine;
        int type, parity, port;
        unsigned long baud;
        int error;
    };
    const Case cases[] = {
        // clang-format off
        {"null before all",      false, 4,         5, 2,  1,    30},
        {"type above 3",         true,  4,         0, 0,  9600, 11},
        {"type negative",        true,  -1,        0, 0,  9600, 11},
        {"type, low byte 0",     true,  256,       0, 0,  9600, 11},
        {"type before rate",     true,  4,         0, 0,  1,    11},
        {"parity 5 with type 1", true,  1,         5, 0,  1,    11},
        {"parity 5 with type 3", true,  3,         5, 1,  9600, 11},
        {"port before rate",     true,  0,         0, 2,  1,    11},
        {"port negative",        true,  0,         0, -1, 9600, 11},
        {"rate",                 true,  0,         5, 0,  1,    10},
        // clang-format on
    };
    Open(Model::kK44);
    AcceptEverything();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StartAfresh();
        _DCB line = {c.baud, 0, static_cast<unsigned char>(c.parity)};
        EXPECT_EQ(board.SetConfig(static_cast<_usbSerialPort>(c.port), c.hasLine ? &line : nullptr,
                                  static_cast<_usbPortType>(c.type)),
                  0);
        EXPECT_EQ(board.GetLastError(), c.error);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
    unsigned short errors = 0;
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 0);
    EXPECT_EQ(board.GetLastError(), 38) << "nothing of that counts as configuration";
}

TEST_F(SerialPortTest, APortIsConfiguredFromItsFirstSuccessUntilTheBoardIsClosed) {
    unsigned short errors = 0;
    Open(Model::kK44);
    AcceptEverything();
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(Configure(kPort0), 0);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 0);
    EXPECT_EQ(board.GetLastError(), 38);

    EXPECT_EQ(Configure(kPort0), 1);
    EXPECT_EQ(SetLine(kPort0, 1), 0);
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(Configure(kPort0), 0);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 1);
    MarvaneUSB copy(board);
    EXPECT_EQ(copy.GetParityErrors(kPort0, &errors), 1);

    Open(Model::kK44);
    EXPECT_EQ(board.GetParityErrors(kPort0, &errors), 0);
    EXPECT_EQ(board.GetLastError(), 38);
}

unsigned char someBytes[256];
unsigned short someWords[128];
unsigned long someLength;

TEST_F(SerialPortTest, PointersThenPortThenConfiguration) {
    const std::vector<PortOperation> operations = {
        // clang-format off
        {"Send",              [this](auto port) { return board.Send(port, someBytes, 1); },
                              [this](auto port) { return board.Send(port, nullptr, 0); }},
        {"Send nothing",      [this](auto port) { return board.Send(port, someBytes, 0); }},
        {"Send9BitData",      [this](auto port) { return board.Send9BitData(port, someWords, 1); },
                              [this](auto port) { return board.Send9BitData(port, nullptr, 0); }},
        {"Receive",           [this](auto port) { return board.Receive(port, someBytes, &someLength); },
                              [this](auto port) { return board.Receive(port, nullptr, &someLength); }},
        {"Receive, length",   [this](auto port) { return board.Receive(port, someBytes, &someLength); },
                              [this](auto port) { return board.Receive(port, someBytes, nullptr); }},
        {"ReceiveEx",         [this](auto port) { return board.ReceiveEx(port, someBytes, 256, &someLength); },
                              [this](auto port) { return board.ReceiveEx(port, nullptr, 0, &someLength); }},
        {"ReceiveEx, length", [this](auto port) { return board.ReceiveEx(port, someBytes, 256, &someLength); },
                              [this](auto port) { return board.ReceiveEx(port, someBytes, 0, nullptr); }},
        {"Receive9BitData",   [this](auto port) { return board.Receive9BitData(port, someWords, &someLength); },
                              [this](auto port) { return board.Receive9BitData(port, nullptr, &someLength); }},
        {"Receive9BitData, count",
                              [this](auto port) { return board.Receive9BitData(port, someWords, &someLength); },
                              [this](auto port) { return board.Receive9BitData(port, someWords, nullptr); }},
        {"Receive9BitDataEx", [this](auto port) { return board.Receive9BitDataEx(port, someWords, 128, &someLength); },
                              [this](auto port) { return board.Receive9BitDataEx(port, nullptr, 0, &someLength); }},
        {"Receive9BitDataEx, count",
                              [this](auto port) { return board.Receive9BitDataEx(port, someWords, 128, &someLength); },
                              [this](auto port) { return board.Receive9BitDataEx(port, someWords, 0, nullptr); }},
        {"GetParityErrors",   [this](auto port) { return board.GetParityErrors(port, someWords); },
                              [this](auto port) { return board.GetParityErrors(port, nullptr); }},
        // clang-format on
    };
    ExpectPortChecks(operations);
}

struct Sending {
    int speedMbit;
    std::size_t length;  // bytes
    std::vector<std::size_t> chunks;
};
const Sending kSendings[] = {
    {480, 0, {}},           {480, 2, {2}},  {480, 252, {252}}, {480, 254, {252, 2}},
    {480, 504, {252, 252}}, {12, 60, {60}}, {12, 62, {60, 2}}, {12, 130, {60, 60, 10}},
};

TEST_F(SerialPortTest, BytesAndWordsGoOutInChunksOfTheBusSpeed) {
    for (const Model model : kModels) {
        for (const Sending& sending : kSendings) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + std::to_string(sending.length));
            OpenConfigured(model, sending.speedMbit);
            Bytes bytes = Count(sending.length + 1);
            Words words;
            for (std::size_t i = 0; i < sending.length; i += 2) {
                words.push_back(static_cast<unsigned short>(bytes[i] * 256 + bytes[i + 1]));
            }
            words.push_back(0);
            for (const _usbSerialPort port : kPorts) {
                Exchanges expected;
                auto next = bytes.begin();
                for (const std::size_t chunk : sending.chunks) {
                    const auto end = next + static_cast<std::ptrdiff_t>(chunk);
                    expected.push_back({98, ChannelOf(port), Bytes(next, end)});
                    next = end;
                }
                StartAfresh();
                EXPECT_EQ(board.Send(port, bytes.data(), static_cast<unsigned>(sending.length)), 1);
                EXPECT_EQ(driver.Sent(), expected);
                StartAfresh();
                EXPECT_EQ(board.Send9BitData(port, words.data(),
                                             static_cast<unsigned>(sending.length / 2)),
                          1);
                EXPECT_EQ(driver.Sent(), expected);
            }
        }
    }
}

TEST_F(SerialPortTest, SendingEndsWithTheFirstChunkThatIsRefused) {
    OpenConfigured(Model::kK44);
    Words words(300);
    Bytes bytes(600);
    driver.AnswerNext({});
    driver.AnswerNext({.status = 9});
    EXPECT_EQ(board.Send(kPort0, bytes.data(), 600), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(driver.Sent().size(), 2U);
    StartAfresh();
    driver.AnswerNext({});
    driver.AnswerNext({.error = EIO});
    EXPECT_EQ(board.Send9BitData(kPort1, words.data(), 300), 0);
    EXPECT_EQ(board.GetLastError(), 6);
    EXPECT_EQ(driver.Sent().size(), 2U);
}

TEST_F(SerialPortTest, ParityErrorsAreAWordHighByteFirst) {
    for (const Model model : kModels) {
        OpenConfigured(model);
        for (const _usbSerialPort port : kPorts) {
            unsigned short errors = 77;
            StartAfresh();
            driver.AnswerNext({.reply = {0x12, 0x34, 0x56}});
            EXPECT_EQ(board.GetParityErrors(port, &errors), 1);
            EXPECT_EQ(errors, 0x1234);
            EXPECT_EQ(driver.Sent(), Exchanges({{100, ChannelOf(port), {}}}));
            driver.AnswerNext({.reply = {0x12}});
            EXPECT_EQ(board.GetParityErrors(port, &errors), 1);
            EXPECT_EQ(errors, 0x1200);
            driver.AnswerNext({.status = 9, .reply = {1, 1}});
            EXPECT_EQ(board.GetParityErrors(port, &errors), 0);
            EXPECT_EQ(board.GetLastError(), 9);
            EXPECT_EQ(errors, 0x1200);
        }
    }
}

}  // namespace
