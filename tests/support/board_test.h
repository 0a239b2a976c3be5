/**
 * @file board_test.h
 * @brief A board of a chosen model behind the in-process driver, opened through the public header.
 */
#ifndef BOARD_TEST_H
#define BOARD_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "in_process_driver.h"
#include "marvaneusb.h"

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

    /** Opens a fresh board 0 of this model; nothing counts as sent afterwards. */
    void Open(Model model, int speedMbit = 480) {
        board.close();
        driver.Reset();
        driver.AddBoard(0, model, speedMbit);
        ASSERT_EQ(board.InitPort(0), 1) << ModelName(model) << " did not open";
        StartAfresh();
    }

    /** Opens a fresh board 0 whose program the library has not seen running. */
    void OpenWithoutFirmware(Model model, int speedMbit = 480) {
        board.close();
        driver.Reset();
        driver.AddBoard(0, model, speedMbit);
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

    /** Nothing sent, last error 0. */
    void StartAfresh() {
        driver.ForgetSent();
        board.ClearErrors();
    }

    InProcessDriver& driver = InProcessDriver::Instance();
    MarvaneUSB board;
};

#endif  // BOARD_TEST_H
