/**
 * @file pulsed_inputs_test.cpp
 * @brief Pulsed inputs and hoppers: what is sent, what counts as configured, order of checks.
 */
#include "board_test.h"

namespace {

class PulsedInputsTest : public BoardTest {
protected:
    void OpenAccepting(Model model) {
        Open(model);
        AcceptEverything();
    }

    unsigned char count = 77;
};

_usbInputBitId Input(unsigned number) {
    return static_cast<_usbInputBitId>(number);
}
_usbOutputBitId Output(unsigned number) {
    return static_cast<_usbOutputBitId>(number);
}

const auto kState = static_cast<ActiveState>(0x12345601);

struct CounterOperation {
    const char* name;
    int (*call)(MarvaneUSB&, unsigned input);
    Exchange sent;  // for input 5
};

unsigned char ignoredCount;

const CounterOperation kCounterOperations[] = {
    {"Begin",
     [](MarvaneUSB& b, unsigned n) { return b.BeginPulsedInputCheck(Input(n)); },
     {108, 1, {5, 1}}},
    {"End",
     [](MarvaneUSB& b, unsigned n) { return b.EndPulsedInputCheck(Input(n)); },
     {108, 1, {5, 0}}},
    {"Reset",
     [](MarvaneUSB& b, unsigned n) { return b.ResetPulsedInputCounter(Input(n)); },
     {109, 1, {5}}},
    {"Decrement",
     [](MarvaneUSB& b, unsigned n) { return b.DecrementPulsedInputCounter(Input(n)); },
     {110, 1, {5}}},
    {"Read",
     [](MarvaneUSB& b, unsigned n) { return b.ReadPulsedInputCounter(Input(n), &ignoredCount); },
     {111, 1, {5}}},
};

TEST_F(PulsedInputsTest, ConfigurationHasFourBytesAndARangeOnK44AndK50) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        SCOPED_TRACE(ModelName(model));
        OpenAccepting(model);
        const auto plain = [&](unsigned n) {
            return [=, this] { return board.ConfigurePulsedInput(Input(n), 10, kState); };
        };
        const auto extended = [&](unsigned n) {
            return [=, this] { return board.ConfigurePulsedInputEx(Input(n), 10, 20, kState); };
        };
        Expect({
            {"plain", plain(5), 1, 0, {{107, 1, {5, 10, 1, 0}}}},
            {"plain, past the last", plain(33), 0, 8, {}},
            {"extended", extended(5), 1, 0, {{107, 1, {5, 10, 1, 20}}}},
            {"last", extended(32), 1, 0, {{107, 1, {32, 10, 1, 20}}}},
            {"past the last", extended(33), 0, 8, {}},
            {"low byte in range", extended(256), 0, 8, {}},
            {"negative", extended(0xFFFFFFFF), 0, 8, {}},
        });
    }
}

TEST_F(PulsedInputsTest, K40ConfigurationHasThreeBytesAndMarksOnlyInputsThatExist) {
    OpenAccepting(Model::kK40);
    const auto configure = [&](unsigned n) {
        return [=, this] { return board.ConfigurePulsedInput(Input(n), 10, kState); };
    };
    const auto begin = [&](unsigned n) {
        return [=, this] { return board.BeginPulsedInputCheck(Input(n)); };
    };
    Expect({
        {"past the last", configure(33), 1, 0, {{107, 1, {33, 10, 1}}}},
        {"low byte 0", configure(256), 1, 0, {{107, 1, {0, 10, 1}}}},
        {"which is not input 0", begin(0), 0, 38, {}},
        {"first", configure(0), 1, 0, {{107, 1, {0, 10, 1}}}},
        {"counts as configured", begin(0), 1, 0, {{108, 1, {0, 1}}}},
        {"last", configure(32), 1, 0, {{107, 1, {32, 10, 1}}}},
    });
}

TEST_F(PulsedInputsTest, ChecksAndCountersWantAConfiguredInputBelow24) {
    for (const Model model : kModels) {
        for (const CounterOperation& operation : kCounterOperations) {
            SCOPED_TRACE(std::string(ModelName(model)) + " " + operation.name);
            OpenAccepting(model);
            const auto call = [&](unsigned n) {
                return [&operation, n, this] { return operation.call(board, n); };
            };
            for (const unsigned input : {4U, 6U, 24U, 32U}) {
                ASSERT_EQ(board.ConfigurePulsedInput(Input(input), 1, kState), 1);
            }
            driver.AnswerNext({.status = 9});
            ASSERT_EQ(board.ConfigurePulsedInput(Input(5), 1, kState), 0);
            Expect({
                {"not configured", call(5), 0, 38, {}},
                {"configured, past the last", call(24), 0, 8, {}},
                {"configured, highest", call(32), 0, 8, {}},
                {"neither in range nor configured", call(33), 0, 8, {}},
                {"far out of range", call(0x80000005), 0, 8, {}},
            });

            ASSERT_EQ(board.ConfigurePulsedInput(Input(5), 1, kState), 1);
            driver.AnswerNext({.status = 9});
            ASSERT_EQ(board.ConfigurePulsedInput(Input(5), 2, kState), 0);
            Expect({{"configured once", call(5), 1, 0, {operation.sent}}});
            driver.AnswerNext({.status = 9});
            Expect({{"refused by the board", call(5), 0, 9, {operation.sent}}});

            ASSERT_EQ(board.InitPort(0), 1);
            Expect({{"opened anew", call(5), 0, 38, {}}});
        }
    }
}

TEST_F(PulsedInputsTest, CounterIsByteZeroAndStaysAsItWasOnFailure) {
    Open(Model::kK44);
    EXPECT_EQ(board.ReadPulsedInputCounter(Input(30), nullptr), 0);
    EXPECT_EQ(board.GetLastError(), 30);
    driver.AnswerNext({});
    ASSERT_EQ(board.ConfigurePulsedInputEx(Input(23), 1, 2, kState), 1);

    driver.AnswerNext({.reply = {200, 1}});
    EXPECT_EQ(board.ReadPulsedInputCounter(Input(23), &count), 1);
    EXPECT_EQ(count, 200);
    driver.AnswerNext({.status = 9, .reply = {1}});
    EXPECT_EQ(board.ReadPulsedInputCounter(Input(23), &count), 0);
    EXPECT_EQ(count, 200);
    driver.AnswerNext({});
    EXPECT_EQ(board.ReadPulsedInputCounter(Input(23), &count), 1);
    EXPECT_EQ(count, 0);
}

TEST_F(PulsedInputsTest, HopperStatusIsTwoBytesOfAnyInputBelow24) {
    for (const Model model : kModels) {
        SCOPED_TRACE(ModelName(model));
        Open(model);
        auto status = USB_HOPPER_STATUS_1;
        const auto get = [&](unsigned input, ReleaseHopperCoinsStatus* statusOrNull,
                             unsigned char* countOrNull) {
            return [=, this] {
                return board.GetParallelHopperStatus(Input(input), statusOrNull, countOrNull);
            };
        };
        driver.AnswerNext({.reply = {255, 6}});
        Expect({{"never configured", get(23, &status, &count), 1, 0, {{113, 1, {23}}}}});
        EXPECT_EQ(static_cast<unsigned>(status), 255U);
        EXPECT_EQ(count, 6);

        driver.AnswerNext({.error = 5});
        Expect({
            {"failing", get(0, &status, &count), 0, 6, {{113, 1, {0}}}},
            {"past the last", get(24, &status, &count), 0, 8, {}},
            {"no count, out of range", get(24, &status, nullptr), 0, 30, {}},
            {"no status, out of range", get(24, nullptr, &count), 0, 30, {}},
        });
        EXPECT_EQ(static_cast<unsigned>(status), 255U);
        EXPECT_EQ(count, 6);

        driver.AnswerNext({.reply = {3}});
        Expect({{"cut short", get(1, &status, &count), 1, 0, {{113, 1, {1}}}}});
        EXPECT_EQ(status, USB_HOPPER_STATUS_3);
        EXPECT_EQ(count, 0);
    }
}

TEST_F(PulsedInputsTest, PulsedInputStatusIsOneOnlyWhenTheBoardSaysFour) {
    Open(Model::kK50);
    for (const std::uint8_t said : Bytes{0, 1, 2, 3, 4, 5, 255}) {
        SCOPED_TRACE(static_cast<int>(said));
        StartAfresh();
        driver.AnswerNext({.reply = {said, 9}});
        unsigned int status = 55;
        EXPECT_EQ(board.GetPulsedInputStatus(Input(3), &status, &count), 1);
        EXPECT_EQ(status, said == 4 ? 1U : 0U);
        EXPECT_EQ(count, 9);
        EXPECT_EQ(driver.Sent(), Exchanges({{113, 1, {3}}}));
    }
}

TEST_F(PulsedInputsTest, PulsedInputStatusIsZeroAfterAFailureAndTheCountAsItWas) {
    Open(Model::kK44);
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{.status = 9, .reply = {4, 4}}; });
    unsigned int status = 55;
    const auto get = [&](unsigned input, unsigned int* statusOrNull, unsigned char* countOrNull) {
        return [=, this] {
            return board.GetPulsedInputStatus(Input(input), statusOrNull, countOrNull);
        };
    };
    Expect({{"no status, out of range", get(24, nullptr, &count), 0, 30, {}}});
    for (const Call& failure : std::vector<Call>{
             {"out of range", get(24, &status, &count), 0, 8, {}},
             {"no count, out of range", get(24, &status, nullptr), 0, 30, {}},
             {"refused by the board", get(7, &status, &count), 0, 9, {{113, 1, {7}}}},
         }) {
        status = 55;
        Expect({failure});
        EXPECT_EQ(status, 0U) << failure.what;
        EXPECT_EQ(count, 77) << failure.what;
    }
}

TEST_F(PulsedInputsTest, ReleaseHasEightBytesAndRangesOnK44AndK50) {
    for (const Model model : {Model::kK44, Model::kK50}) {
        SCOPED_TRACE(ModelName(model));
        OpenAccepting(model);
        const auto plain = [&](unsigned in, unsigned out) {
            return [=, this] {
                return board.ReleaseParallelHopperCoins(Input(in), 10, kState, Output(out), 0x0102,
                                                        3);
            };
        };
        const auto extended = [&](unsigned in, unsigned out) {
            return [=, this] {
                return board.ReleaseParallelHopperCoinsEx(Input(in), 10, 20, kState, Output(out),
                                                          0xFFFE, 3);
            };
        };
        const auto begin = [&](unsigned in) {
            return [=, this] { return board.BeginPulsedInputCheck(Input(in)); };
        };
        const auto stop = [&](unsigned in) {
            return [=, this] { return board.StopHopperCoinRelease(Input(in)); };
        };
        Expect({
            {"plain", plain(5, 6), 1, 0, {{112, 1, {5, 10, 1, 6, 1, 2, 3, 0}}}},
            {"plain, input past the last", plain(33, 6), 0, 8, {}},
            {"plain, output past the last", plain(5, 38), 0, 8, {}},
            {"last of both", extended(32, 37), 1, 0, {{112, 1, {32, 10, 1, 37, 255, 254, 3, 20}}}},
            {"input past the last", extended(33, 37), 0, 8, {}},
            {"output past the last", extended(32, 38), 0, 8, {}},
            {"low bytes in range", extended(256, 256), 0, 8, {}},
            {"stop", stop(32), 1, 0, {{124, 1, {32}}}},
            {"stop, past the last", stop(33), 0, 8, {}},
            {"configures nothing", begin(5), 0, 38, {}},
        });
    }
}

TEST_F(PulsedInputsTest, K40ReleaseHasSevenBytesAndSendsLowBytesUnchecked) {
    OpenAccepting(Model::kK40);
    const auto release = [&](unsigned in, unsigned out) {
        return [=, this] {
            return board.ReleaseParallelHopperCoins(Input(in), 10, kState, Output(out), 0x0102, 3);
        };
    };
    Expect({
        {"in range", release(5, 6), 1, 0, {{112, 1, {5, 10, 1, 6, 1, 2, 3}}}},
        {"out of range", release(300, 38), 1, 0, {{112, 1, {44, 10, 1, 38, 1, 2, 3}}}},
    });
}

}  // namespace
