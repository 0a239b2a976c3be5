/**
 * @file board_test.h
 * @brief A board of a chosen model behind the in-process driver, opened through the public header.
 */
#ifndef BOARD_TEST_H
#define BOARD_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "in_process_driver.h"
#include "marvaneusb.h"

using simulator::Model;

constexpr Model kModels[] = {Model::kK40, Model::kK44, Model::kK50};

inline const char* ModelName(Model model) {
    switch (model) {
        case Model::kK40:
            return "K40";
        case Model::kK44:
            return "K44";
        case Model::kK50:
            return "K50";
    }
    return "unknown";
}

/** One call of an operation, and all that must come of it. */
struct Call {
    const char* what;
    std::function<int()> call;
    int result, error;
    Exchanges sent;
};

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
        board.InitPort(0);
        driver.AnswerWith(nullptr);
        StartAfresh();
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
