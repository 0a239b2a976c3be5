/**
 * @file serial_test.h
 * @brief A board whose serial ports are configured, for the tests of all serial operations.
 */
#ifndef SERIAL_TEST_H
#define SERIAL_TEST_H

#include <string>
#include <utility>
#include <vector>

#include "board_test.h"

constexpr auto kPort0 = static_cast<_usbSerialPort>(0);
constexpr auto kPort1 = static_cast<_usbSerialPort>(1);
constexpr _usbSerialPort kPorts[] = {kPort0, kPort1};

/** Commands of port 0 travel on channel 3, those of port 1 on channel 4. */
inline int ChannelOf(_usbSerialPort port) {
    return port == kPort0 ? 3 : 4;
}

/** A serial operation, called with arguments that are right, or with null for all pointers. */
struct PortOperation {
    const char* name;
    std::function<int(_usbSerialPort)> call;
    std::function<int(_usbSerialPort)> callWithNull = nullptr;  // none: it has no pointers
};

class SerialTest : public BoardTest {
protected:
    /** A board of which every port is configured, and which accepts everything. */
    void OpenConfigured(Model model, int speedMbit = 480) {
        Open(model, speedMbit);
        AcceptEverything();
        for (const _usbSerialPort port : kPorts) {
            ASSERT_EQ(Configure(port), 1);
        }
        StartAfresh();
    }

    int Configure(_usbSerialPort port) {
        _DCB line = {9600, 0, 0};
        return board.SetConfig(port, &line, USB_PORT_TYPE_0);
    }

    /** Null before the port, the port before its configuration, and nothing sent for any. */
    void ExpectPortChecks(const std::vector<PortOperation>& operations,
                          const std::vector<Model>& models = {Model::kK40, Model::kK44,
                                                              Model::kK50}) {
        for (const Model model : models) {
            for (const PortOperation& operation : operations) {
                SCOPED_TRACE(std::string(ModelName(model)) + " " + operation.name);
                Open(model);
                AcceptEverything();
                Configure(kPort1);
                StartAfresh();
                for (const int port : {0, -1, 2, 256, -2147483647}) {
                    SCOPED_TRACE(port);
                    const auto given = static_cast<_usbSerialPort>(port);
                    board.ClearErrors();
                    if (operation.callWithNull) {
                        EXPECT_EQ(operation.callWithNull(given), 0);
                        EXPECT_EQ(board.GetLastError(), 30);
                    }
                    EXPECT_EQ(operation.call(given), 0);
                    EXPECT_EQ(board.GetLastError(), port == 0 ? 38 : 8);
                }
                EXPECT_EQ(driver.Sent(), Exchanges());
                EXPECT_EQ(operation.call(kPort1), 1) << "the other port is configured";
            }
        }
    }

    /** The board refuses: the operation fails with its status, after the exchanges so far. */
    void ExpectStatusPassedOn(const std::vector<PortOperation>& operations) {
        for (const PortOperation& operation : operations) {
            SCOPED_TRACE(operation.name);
            OpenConfigured(Model::kK44);
            driver.AnswerNext({.status = 9});
            EXPECT_EQ(operation.call(kPort0), 0);
            EXPECT_EQ(board.GetLastError(), 9);
            EXPECT_EQ(driver.Sent().size(), 1U);
        }
    }
};

#endif  // SERIAL_TEST_H
