/**
 * @file board_test.h
 * @brief A board of a chosen model behind the in-process driver, opened through the public header.
 */
#ifndef BOARD_TEST_H
#define BOARD_TEST_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "in_process_driver.h"
#include "marvaneusb.h"
#include "testing/in_process_bus.h"

using simulator::kModels;
using simulator::Model;
using simulator::ModelName;

constexpr auto kPort0 = static_cast<_usbSerialPort>(0);
constexpr auto kPort1 = static_cast<_usbSerialPort>(1);
constexpr _usbSerialPort kPorts[] = {kPort0, kPort1};

/** Commands of port 0 travel on channel 3, those of port 1 on channel 4. */
inline int ChannelOf(_usbSerialPort port) {
    return port == kPort0 ? 3 : 4;
}

/** The fewest in which a transfer can go, none of more than `longest` bytes or over a page. */
inline std::size_t ExchangesNeeded(std::size_t address, std::size_t length, std::size_t longest,
                                   std::size_t pageSize = 65536) {
    std::size_t exchanges = 0;
    for (const std::size_t end = address + length; address < end; ++exchanges)
        address += std::min({end - address, longest, pageSize - address % pageSize});
    return exchanges;
}

/** A memory of the simulated board, as the application sees it and as it is. */
struct Memory {
    std::function<int(std::size_t address, unsigned char*data, unsigned length)> write, read;
    std::size_t first, end;
    std::vector<std::size_t> edges;  // where chunks may end
    std::size_t longestWrite, longestRead;
    std::span<const std::uint8_t> contents;
    std::function<std::size_t(std::size_t address)> placeOf;
    std::size_t pageSize = 65536;
};

/** One call of an operation, and all that must come of it. */
struct Call {
    std::string what;
    std::function<int()> call;
    int result, error;
    Exchanges sent;
};

/** The first two fields of a Call: an operation of the fixture's board. */
#define CALL(...) #__VA_ARGS__, [&] { return board.__VA_ARGS__; }

class BoardTest : public ::testing::Test {
protected:
    BoardTest() {
        driver.Reset();
        board.ClearErrors();
    }

    void TearDown() override {
        board.close();
        EXPECT_EQ(driver.OpenDescriptors(), 0) << "a device is still open";
    }

    void PlugIn(Model model, int speedMbit) {
        driver.AddBoard(0, model, speedMbit);
        simulated = &marvaneusb::testing::InProcessBus::Instance().Devices().devices.at(0).board;
    }

    /** Opens a fresh board 0 of this model; nothing counts as sent afterwards. */
    void Open(Model model, int speedMbit = 480) {
        board.close();
        driver.Reset();
        PlugIn(model, speedMbit);
        ASSERT_EQ(board.InitPort(0), 1) << ModelName(model) << " did not open";
        StartAfresh();
    }

    /** Opens a fresh board 0 whose program the library has not seen running. */
    void OpenWithoutFirmware(Model model, int speedMbit = 480) {
        board.close();
        driver.Reset();
        PlugIn(model, speedMbit);
        driver.AnswerWith([](const Exchange&) { return DriverAnswer{.status = 5}; });
        EXPECT_EQ(board.InitPort(0), 0);
        driver.AnswerWith(nullptr);
        StartAfresh();
    }

    /** A board of which every port is configured, and which accepts everything. */
    void OpenConfigured(Model model, int speedMbit = 480) {
        Open(model, speedMbit);
        AcceptEverything();
        for (const _usbSerialPort port : kPorts)
            ASSERT_EQ(Configure(port), 1);
        StartAfresh();
    }

    int Configure(_usbSerialPort port) {
        _DCB line = {9600, 0, 0};
        return board.SetConfig(port, &line, USB_PORT_TYPE_0);
    }

    /** From now on the board accepts every command and answers it without data. */
    void AcceptEverything() {
        driver.AnswerWith([](const Exchange&) { return DriverAnswer{}; });
    }

    void Expect(const std::vector<Call>& calls) {
        for (const Call& call : calls) {
            SCOPED_TRACE(call.what);
            StartAfresh();
            EXPECT_EQ(call.call(), call.result);
            EXPECT_EQ(board.GetLastError(), call.error);
            EXPECT_EQ(driver.Sent(), call.sent);
        }
    }

    /**
     * What is written is there, and read again, and nothing else has changed; chunks are as few as
     * possible. The simulated board refuses those that are too long or over a page.
     */
    void ExpectToKeepWhatIsWritten(const Memory& memory) {
        std::mt19937 random(1);
        Bytes expected(memory.contents.begin(), memory.contents.end());
        for (int round = 0; round < 60; ++round) {
            const std::size_t length = random() % (round % 8 == 0 ? 20000 : 600);
            const std::size_t edge = memory.edges[random() % memory.edges.size()];
            const std::size_t end = round % 2 == 0 ? random() % memory.end : edge + random() % 600;
            const std::size_t address = std::clamp(end, memory.first + length, memory.end) - length;
            const auto transfer = [&](auto& operation, Bytes& data, std::size_t longest) {
                StartAfresh();
                ASSERT_EQ(operation(address, data.data(), static_cast<unsigned>(length)), 1);
                ASSERT_EQ(driver.Sent().size(),
                          ExchangesNeeded(address, length, longest, memory.pageSize));
            };
            Bytes data(length + 1);
            std::generate(data.begin(), data.end(), random);
            transfer(memory.write, data, memory.longestWrite);
            for (std::size_t i = 0; i < length; ++i)
                expected[memory.placeOf(address + i)] = data[i];
            ASSERT_TRUE(std::ranges::equal(memory.contents, expected)) << address;
            Bytes read(length + 1, data[length]);
            transfer(memory.read, read, memory.longestRead);
            ASSERT_EQ(read, data);
        }
    }

    /** Nothing sent, last error 0. */
    void StartAfresh() {
        driver.ForgetSent();
        board.ClearErrors();
    }

    InProcessDriver& driver = InProcessDriver::Instance();
    MarvaneUSB board;
    simulator::Board* simulated = nullptr;  // the last one opened; answers where no test does
};

#endif  // BOARD_TEST_H
