/**
 * @file outputs_test.cpp
 * @brief Driving outputs: payloads, order of checks, and the shared copies of both patterns.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iomanip>
#include <sstream>
#include <string>
#include <thread>

#include "board_test.h"
#include "children.h"
#include "outside_view.h"

namespace {

_usbOutputBitId Output(unsigned number) {
    return static_cast<_usbOutputBitId>(number);
}
_usbOutputId OutputByte(unsigned number) {
    return static_cast<_usbOutputId>(number);
}

/** Two digits for each byte, patterns apart. */
std::string Hex(const Bytes& bytes) {
    std::ostringstream text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 5 == 0 && i > 0) text << " ";
        text << std::hex << std::setw(2) << std::setfill('0') << unsigned{bytes[i]};
    }
    return text.str();
}

using Operation = std::function<int()>;

class OutputsTest : public BoardTest {
protected:
    void TearDown() override {
        BoardTest::TearDown();
        EXPECT_EQ(SemaphoreValues(), Semaphores(1)) << "one user, and no lock held";
    }

    void OpenWithEmptyCopies(unsigned deviceNo, Model model) {
        SharedEntries(kOnPatterns).Clear();
        SharedEntries(kOffPatterns).Clear();
        board.close();
        driver.Reset();
        driver.AddBoard(static_cast<int>(deviceNo), model);
        ASSERT_EQ(board.InitPort(static_cast<int>(deviceNo)), 1);
    }

    // Operations of tables
    Operation Bit(unsigned output, unsigned value) {
        return [=, this] { return board.SetOutputBit(Output(output), value); };
    }
    Operation Modify(usbOutput off, usbOutput on) {
        return [=, this]() mutable { return board.ModifyOutputs(&off, &on); };
    }
    Operation On(usbOutput pattern) {
        return [=, this] { return board.SetOnPeriodOutputs(pattern); };
    }
    Operation Off(usbOutput pattern) {
        return [=, this] { return board.SetOffPeriodOutputs(pattern); };
    }
    Operation OnBit(unsigned byte, int bit, unsigned value) {
        return [=, this] { return board.SetOnPeriodOutputBit(OutputByte(byte), bit, value); };
    }
    Operation OffBit(unsigned byte, int bit, unsigned value) {
        return [=, this] { return board.SetOffPeriodOutputBit(OutputByte(byte), bit, value); };
    }
    /** The board does not take it, first by its status, then not at all. */
    Operation Refused(const Operation& call) {
        return [=, this] {
            driver.AnswerNext({.status = 17});
            EXPECT_EQ(call(), 0);
            EXPECT_EQ(board.GetLastError(), 17);
            driver.ForgetSent();
            driver.AnswerNext({.error = ENODEV});
            return call();
        };
    }
};

TEST_F(OutputsTest, OperationsSendTheirPayloadAndChangeTheCopiesOfTheirBoard) {
    unsigned char steady[5] = {0xFF, 0x00, 0xFF, 0x00, 0x3F}, none[5] = {};
    struct Step {
        const char* what;
        Operation call;
        int error;
        std::string sent;
        std::string on, off;  // the copies afterwards
    };
    const Step steps[] = {
        // clang-format off
        {"first on",       Bit(0, 1),  0, "77 0100000000 0000000000", "0100000000", "0100000000"},
        {"end of a byte",  Bit(15, 1), 0, "77 0080000000 0000000000", "0180000000", "0180000000"},
        {"last on",        Bit(37, 1), 0, "77 0000000020 0000000000", "0180000020", "0180000020"},
        {"last off",       Bit(37, 0), 0, "77 0000000000 0000000020", "0180000000", "0180000000"},
        {"past the last",  Bit(38, 1), 8, "",                         "0180000000", "0180000000"},
        {"far past it",    Bit(~0U, 0), 8, "",                        "0180000000", "0180000000"},
        {"value is 2",     Bit(0, 2),  8, "",                         "0180000000", "0180000000"},

        {"on-period pattern",  On({{1, 2, 3, 4, 255}}),
         0, "83 01020304ff", "01020304ff", "0180000000"},
        {"off-period pattern", Off({{9, 8, 7, 6, 5}}),
         0, "84 0908070605", "01020304ff", "0908070605"},
        {"exactly a pattern",  [&] { return board.SetOutputs(steady); },
         0, "77 ff00ff003f 00ff00ffc0", "ff00ff003f", "ff00ff003f"},
        {"no pattern",         [&] { return board.SetOutputs(nullptr); },
         30, "", "ff00ff003f", "ff00ff003f"},
        {"no mask for on",     [&] { usbOutput all{}; return board.ModifyOutputs(&all, nullptr); },
         30, "", "ff00ff003f", "ff00ff003f"},
        {"no mask for off",    [&] { usbOutput all{}; return board.ModifyOutputs(nullptr, &all); },
         30, "", "ff00ff003f", "ff00ff003f"},
        {"all off",            [&] { return board.SetOutputs(none); },
         0, "77 0000000000 ffffffffff", "0000000000", "0000000000"},
        {"a bit in both masks ends off", Modify({{3, 16, 0, 0, 64}}, {{15, 0, 255, 0, 128}}),
         0, "77 0f00ff0080 0310000040", "0c00ff0080", "0c00ff0080"},
        {"masks keep others", Modify({{8, 0, 15, 0, 128}}, {{1, 48, 0, 0, 0}}),
         0, "77 0130000000 08000f0080", "0530f00000", "0530f00000"},

        {"on-period bit",     OnBit(4, 5, 1),  0, "83 0530f00020", "0530f00020", "0530f00000"},
        {"on-period bit off", OnBit(0, 2, 0),  0, "83 0130f00020", "0130f00020", "0530f00000"},
        {"off-period bit",    OffBit(3, 7, 1), 0, "84 0530f08000", "0130f00020", "0530f08000"},
        {"refused", Refused(Bit(3, 1)),
         6, "77 0800000000 0000000000", "0930f00020", "0d30f08000"},
        {"refused, on-period",      Refused(On({{1, 2, 3, 4, 5}})),
         6, "83 0102030405", "0102030405", "0d30f08000"},
        {"refused, off-period bit", Refused(OffBit(1, 0, 1)),
         6, "84 0d31f08000", "0102030405", "0d31f08000"},
        // clang-format on
    };
    for (const auto& [number, model] :
         {std::pair(0U, Model::kK40), {7U, Model::kK44}, {15U, Model::kK50}}) {
        OpenWithEmptyCopies(number, model);
        for (const Step& step : steps) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + step.what);
            StartAfresh();
            EXPECT_EQ(step.call(), step.error == 0 ? 1 : 0);
            EXPECT_EQ(board.GetLastError(), step.error);
            std::string sent;
            for (const Exchange& exchange : driver.Sent()) {
                EXPECT_EQ(exchange.channel, 1);
                sent += std::to_string(exchange.command) + " " + Hex(exchange.payload);
            }
            EXPECT_EQ(sent, step.sent);
            EXPECT_EQ(Hex(OnCopy(number)), step.on);
            EXPECT_EQ(Hex(OffCopy(number)), step.off);
        }
        for (unsigned other = 0; other < 16; ++other) {
            if (other == number) continue;
            EXPECT_EQ(Hex(OnCopy(other)) + Hex(OffCopy(other)), "00000000000000000000") << other;
        }
    }
}

TEST_F(OutputsTest, ArgumentsThatDoNotExistAreRefused) {
    Open(Model::kK50);
    AcceptEverything();
    Expect({
        // clang-format off
        {"byte 5",    OnBit(5, 0, 1),           0, 8, {}},
        {"byte 2^31", OffBit(0x80000000, 0, 1), 0, 8, {}},
        {"bit -1",    OffBit(0, -1, 1),         0, 8, {}},
        {"bit 8",     OnBit(0, 8, 1),           0, 8, {}},
        {"bit 38",    OffBit(4, 6, 1),          0, 8, {}},
        {"value 2",   OnBit(0, 0, 2),           0, 8, {}},
        {"value -1",  OffBit(4, 5, 0xFFFFFFFF), 0, 8, {}},
        {CALL(SetOutputBrightness(0)),  1, 0, {{85, 1, {0}}}},
        {CALL(SetOutputBrightness(11)), 0, 8, {}},
        {CALL(PulseOffOutput(0, 7)),    1, 0, {{79, 1, {7, 0}}}},
        {CALL(PulseOutput(32, 1)),      0, 8, {}},
        {CALL(PulseOffOutput(255, 1)),  0, 8, {}},
        // clang-format on
    });
}

// Several threads and processes at once

constexpr unsigned kUsers = 4;
constexpr unsigned kChangesPerUser = 500;

/** What a board received, in the order of arrival, from any thread of any process. */
struct Arrivals {
    std::array<unsigned char, 10> masks[kUsers * kChangesPerUser];
    std::atomic<unsigned> count = 0;
    std::atomic<int> together = 0, overlaps = 0;

    DriverAnswer Note(const Exchange& exchange) {
        if (together.fetch_add(1) != 0) ++overlaps;
        usleep(10);  // time for somebody who did not wait for the lock
        std::copy(exchange.payload.begin(), exchange.payload.end(), masks[count++].begin());
        together.fetch_sub(1);
        return {};
    }
};

TEST_F(OutputsTest, ThreadsAndProcessesLoseNoBitAndTheBoardSeesTheOrderOfTheLock) {
    const InSharedMemory<Arrivals> arrivals;
    OpenWithEmptyCopies(0, Model::kK44);
    driver.AnswerWith([&](const Exchange& exchange) { return arrivals->Note(exchange); });
    const auto switchAnyBits = [&](unsigned seed) {
        Random random(seed);
        for (unsigned i = 0; i < kChangesPerUser; ++i)
            EXPECT_EQ(board.SetOutputBit(Output(random.Below(38)), random.Below(2)), 1);
    };
    const auto user = [&](unsigned seed) {
        std::thread other(switchAnyBits, seed + 1);
        switchAnyBits(seed);
        other.join();
        return 0;
    };
    Child first([&] { return user(0); });
    Child second([&] { return user(2); });
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    EXPECT_EQ(arrivals->overlaps, 0) << "exchanges of holders of the same locks met";
    Bytes pattern(5, 0);
    for (const auto& masks : arrivals->masks) {
        for (std::size_t byte = 0; byte < 5; ++byte) {
            const int on = pattern[byte] | masks[byte];
            pattern[byte] = static_cast<std::uint8_t>(on & ~masks[byte + 5]);
        }
    }
    EXPECT_EQ(OnCopy(0), pattern);
    EXPECT_EQ(OffCopy(0), pattern);
}

}  // namespace
