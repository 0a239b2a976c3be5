/**
 * @file in_process_driver.h
 * @brief The boards of the test program, under the names that its tests use.
 */
#ifndef IN_PROCESS_DRIVER_H
#define IN_PROCESS_DRIVER_H

#include "marvaneusb_testing.h"
#include "terms/answer.h"

using marvaneusb::testing::Bytes;
using marvaneusb::testing::Exchange;
using marvaneusb::testing::Exchanges;
using DriverAnswer = marvaneusb::testing::Answer;

/** One for the whole program, and for its children. */
class InProcessDriver : public marvaneusb::testing::Boards {
public:
    static InProcessDriver& Instance() {
        // Never destroyed: handles in static objects close their devices at exit.
        static auto& driver = *new InProcessDriver;
        return driver;
    }

    using Boards::AddBoard;
    marvaneusb::testing::Board AddBoard(int deviceNo, simulator::Model model, int speedMbit = 480) {
        return AddBoard(deviceNo, static_cast<marvaneusb::testing::Model>(model), speedMbit);
    }
};

#endif  // IN_PROCESS_DRIVER_H
