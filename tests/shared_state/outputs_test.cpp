/**
 * @file outputs_test.cpp
 * @brief Driving outputs: payloads, order of checks, and the shared copies of both patterns.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

#include "board_test.h"
#include "children.h"
#include "outside_view.h"
#include "own_world.h"

namespace {

class OutputsTest : public BoardTest {
protected:
    void SetUp() override {
        if (NoOwnWorld() != nullptr) GTEST_SKIP() << NoOwnWorld();
        ClearCopies();
    }

    void TearDown() override {
        BoardTest::TearDown();
        if (NoOwnWorld() != nullptr) return;
        EXPECT_EQ(SemaphoreValues(FindSet()), std::vector<int>({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}))
            << "one user, and no lock held";
    }

    static void ClearCopies() {
        const SegmentView segment;
        std::memset(segment.bytes + kOnEntries, 0, 80);
        std::memset(segment.bytes + kOffEntries, 0, 80);
    }

    void OpenAt(int deviceNo, Model model) {
        board.close();
        driver.Reset();
        driver.AddBoard(deviceNo, model);
        ASSERT_EQ(board.InitPort(deviceNo), 1);
        StartAfresh();
    }
};

_usbOutputBitId Output(unsigned number) {
    return static_cast<_usbOutputBitId>(number);
}
_usbOutputId OutputByte(unsigned number) {
    return static_cast<_usbOutputId>(number);
}

TEST_F(OutputsTest, SetOutputBitSendsOneBitOrNothing) {
    struct Case {
        const char* what;
        unsigned output, value;
        int result, error;
        Exchanges sent;
    };
    const Case cases[] = {
        {"first on", 0, 1, 1, 0, {{77, 1, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0}}}},
        {"end of a byte", 15, 1, 1, 0, {{77, 1, {0, 128, 0, 0, 0, 0, 0, 0, 0, 0}}}},
        {"last on", 37, 1, 1, 0, {{77, 1, {0, 0, 0, 0, 32, 0, 0, 0, 0, 0}}}},
        {"last off", 37, 0, 1, 0, {{77, 1, {0, 0, 0, 0, 0, 0, 0, 0, 0, 32}}}},
        {"past the last", 38, 1, 0, 8, {}},
        {"value is 2", 0, 2, 0, 8, {}},
        {"far past the last", 0xFFFFFFFF, 0, 0, 8, {}},
        {"value far too large", 0, 0x80000000, 0, 8, {}},
    };
    for (const Model model : kModels) {
        Open(model);
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            StartAfresh();
            EXPECT_EQ(board.SetOutputBit(Output(c.output), c.value), c.result);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(driver.Sent(), c.sent);
        }
    }
}

TEST_F(OutputsTest, MasksChangeBothCopiesOfThisBoardOnly) {
    const ByteString zero(5, 0);
    for (const int deviceNo : {0, 7, 15}) {
        SCOPED_TRACE(deviceNo);
        ClearCopies();
        OpenAt(deviceNo, Model::kK44);
        usbOutput on = {{0x0F, 0, 0xFF, 0, 0x80}};
        usbOutput off = {{0x03, 0x10, 0, 0, 0x40}};
        EXPECT_EQ(board.ModifyOutputs(&off, &on), 1);
        EXPECT_EQ(driver.Sent(),
                  Exchanges({{77, 1, {0x0F, 0, 0xFF, 0, 0x80, 0x03, 0x10, 0, 0, 0x40}}}));
        // A bit in both masks ends cleared.
        EXPECT_EQ(OnCopy(deviceNo), ByteString({0x0C, 0, 0xFF, 0, 0x80}));
        EXPECT_EQ(OffCopy(deviceNo), ByteString({0x0C, 0, 0xFF, 0, 0x80}));
        on = {{0x01, 0x30, 0, 0, 0}};
        off = {{0x08, 0, 0x0F, 0, 0x80}};
        EXPECT_EQ(board.ModifyOutputs(&off, &on), 1);
        EXPECT_EQ(OnCopy(deviceNo), ByteString({0x05, 0x30, 0xF0, 0, 0}));
        EXPECT_EQ(OffCopy(deviceNo), ByteString({0x05, 0x30, 0xF0, 0, 0}));

        for (int other = 0; other < 16; ++other) {
            if (other == deviceNo) continue;
            EXPECT_EQ(OnCopy(other), zero) << other;
            EXPECT_EQ(OffCopy(other), zero) << other;
        }
    }
}

TEST_F(OutputsTest, SetOutputsLeavesExactlyItsPatternInBothCopies) {
    Open(Model::kK50);
    board.SetOnPeriodOutputs({{0xAA, 0xAA, 0, 0xAA, 0xFF}});
    board.SetOffPeriodOutputs({{0x55, 0, 0x55, 0x55, 0}});
    StartAfresh();
    unsigned char outputs[5] = {0xFF, 0x00, 0xFF, 0x00, 0x3F};
    EXPECT_EQ(board.SetOutputs(outputs), 1);
    EXPECT_EQ(driver.Sent(),
              Exchanges({{77, 1, {0xFF, 0, 0xFF, 0, 0x3F, 0, 0xFF, 0, 0xFF, 0xC0}}}));
    EXPECT_EQ(OnCopy(0), ByteString({0xFF, 0, 0xFF, 0, 0x3F}));
    EXPECT_EQ(OffCopy(0), ByteString({0xFF, 0, 0xFF, 0, 0x3F}));
}

TEST_F(OutputsTest, PeriodPatternsReplaceOneCopy) {
    Open(Model::kK40);
    EXPECT_EQ(board.SetOnPeriodOutputs({{1, 2, 3, 4, 0xFF}}), 1);
    EXPECT_EQ(board.SetOffPeriodOutputs({{9, 8, 7, 6, 5}}), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{83, 1, {1, 2, 3, 4, 0xFF}}, {84, 1, {9, 8, 7, 6, 5}}}));
    EXPECT_EQ(OnCopy(0), ByteString({1, 2, 3, 4, 0xFF}));
    EXPECT_EQ(OffCopy(0), ByteString({9, 8, 7, 6, 5}));
}

TEST_F(OutputsTest, PeriodBitsSendTheWholeEntryOfOneCopy) {
    Open(Model::kK44);
    ASSERT_EQ(board.SetOutputBit(Output(3), 1), 1);
    StartAfresh();
    EXPECT_EQ(board.SetOnPeriodOutputBit(OutputByte(2), 3, 1), 1);
    EXPECT_EQ(board.SetOnPeriodOutputBit(OutputByte(4), 5, 1), 1);
    EXPECT_EQ(board.SetOnPeriodOutputBit(OutputByte(0), 3, 0), 1);
    EXPECT_EQ(board.SetOffPeriodOutputBit(OutputByte(3), 7, 1), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{83, 1, {8, 0, 8, 0, 0}},
                                        {83, 1, {8, 0, 8, 0, 32}},
                                        {83, 1, {0, 0, 8, 0, 32}},
                                        {84, 1, {8, 0, 0, 128, 0}}}));
    EXPECT_EQ(OnCopy(0), ByteString({0, 0, 8, 0, 32}));
    EXPECT_EQ(OffCopy(0), ByteString({8, 0, 0, 128, 0}));

    // Steady operations then reach what is on in one period only.
    EXPECT_EQ(board.SetOutputBit(Output(19), 1), 1);
    EXPECT_EQ(OffCopy(0), ByteString({8, 0, 8, 128, 0}));
    unsigned char none[5] = {};
    EXPECT_EQ(board.SetOutputs(none), 1);
    EXPECT_EQ(OnCopy(0), ByteString(5, 0));
    EXPECT_EQ(OffCopy(0), ByteString(5, 0));
}

TEST_F(OutputsTest, PeriodBitsRefuseWhatDoesNotExist) {
    struct Case {
        unsigned outputByte;
        int bit;
        unsigned value;
    };
    const Case cases[] = {{5, 0, 1}, {0x80000000, 0, 1}, {0, -1, 1}, {0, INT32_MIN, 1}, {0, 8, 1},
                          {4, 6, 1}, {4, 7, 0},          {0, 0, 2},  {4, 5, 0xFFFFFFFF}};
    Open(Model::kK44);
    board.SetOnPeriodOutputs({{1, 2, 3, 4, 5}});
    board.SetOffPeriodOutputs({{6, 7, 8, 9, 10}});
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.outputByte << " " << c.bit << " " << c.value);
        StartAfresh();
        EXPECT_EQ(board.SetOnPeriodOutputBit(OutputByte(c.outputByte), c.bit, c.value), 0);
        EXPECT_EQ(board.GetLastError(), 8);
        board.ClearErrors();
        EXPECT_EQ(board.SetOffPeriodOutputBit(OutputByte(c.outputByte), c.bit, c.value), 0);
        EXPECT_EQ(board.GetLastError(), 8);
        EXPECT_EQ(driver.Sent(), Exchanges());
    }
    EXPECT_EQ(OnCopy(0), ByteString({1, 2, 3, 4, 5}));
    EXPECT_EQ(OffCopy(0), ByteString({6, 7, 8, 9, 10}));
}

TEST_F(OutputsTest, NullPointersTouchNothing) {
    Open(Model::kK44);
    usbOutput all = {{255, 255, 255, 255, 255}};
    Expect({
        {"on", [&] { return board.ModifyOutputs(&all, nullptr); }, 0, 30, {}},
        {"off", [&] { return board.ModifyOutputs(nullptr, &all); }, 0, 30, {}},
        {"all", [&] { return board.SetOutputs(nullptr); }, 0, 30, {}},
    });
    EXPECT_EQ(OnCopy(0), ByteString(5, 0));
    EXPECT_EQ(OffCopy(0), ByteString(5, 0));
}

TEST_F(OutputsTest, CopiesKeepWhatTheBoardRefused) {
    struct Case {
        const char* what;
        std::function<int(MarvaneUSB&)> call;
        ByteString on, off;
    };
    const Case cases[] = {
        {"bit",
         [](MarvaneUSB& b) { return b.SetOutputBit(Output(9), 1); },
         {0, 2, 0, 0, 0},
         {0, 2, 0, 0, 0}},
        {"on-period pattern",
         [](MarvaneUSB& b) {
             return b.SetOnPeriodOutputs({{1, 2, 3, 4, 5}});
         },
         {1, 2, 3, 4, 5},
         {0, 0, 0, 0, 0}},
        {"off-period bit",
         [](MarvaneUSB& b) { return b.SetOffPeriodOutputBit(OutputByte(1), 0, 1); },
         {0, 0, 0, 0, 0},
         {0, 1, 0, 0, 0}},
    };
    Open(Model::kK44);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ClearCopies();
        driver.AnswerNext({.status = 17});
        EXPECT_EQ(c.call(board), 0);
        EXPECT_EQ(board.GetLastError(), 17);
        driver.AnswerNext({.error = ENODEV});
        EXPECT_EQ(c.call(board), 0);
        EXPECT_EQ(board.GetLastError(), 6);
        EXPECT_EQ(OnCopy(0), c.on);
        EXPECT_EQ(OffCopy(0), c.off);
    }
}

TEST_F(OutputsTest, BrightnessAndPulsesGoStraightToTheBoard) {
    Open(Model::kK50);
    AcceptEverything();
    Expect({
        // clang-format off
        {"dark",    [&] { return board.SetOutputBrightness(0); },  1, 0, {{85, 1, {0}}}},
        {"full",    [&] { return board.SetOutputBrightness(10); }, 1, 0, {{85, 1, {10}}}},
        {"more",    [&] { return board.SetOutputBrightness(11); }, 0, 8, {}},
        {"on",      [&] { return board.PulseOutput(31, 200); },    1, 0, {{78, 1, {200, 31}}}},
        {"off",     [&] { return board.PulseOffOutput(0, 7); },    1, 0, {{79, 1, {7, 0}}}},
        {"on 32",   [&] { return board.PulseOutput(32, 1); },      0, 8, {}},
        {"off 255", [&] { return board.PulseOffOutput(255, 1); },  0, 8, {}},
        // clang-format on
    });
    EXPECT_EQ(OnCopy(0), ByteString(5, 0));
}

TEST_F(OutputsTest, PulseResultIsThreeBytes) {
    Open(Model::kK40);
    unsigned char first = 9;
    unsigned int second = 9, third = 9;
    Expect({
        // clang-format off
        {"1", [&] { return board.PulseOutputResult(nullptr, &second, &third); }, 0, 30, {}},
        {"2", [&] { return board.PulseOutputResult(&first, nullptr, &third); },  0, 30, {}},
        {"3", [&] { return board.PulseOutputResult(&first, &second, nullptr); }, 0, 30, {}},
        // clang-format on
    });
    EXPECT_EQ(first + second + third, 27U);
    driver.AnswerNext({.reply = {200, 201, 255, 1}});
    EXPECT_EQ(board.PulseOutputResult(&first, &second, &third), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{80, 1, {}}}));
    EXPECT_EQ(first, 200);
    EXPECT_EQ(second, 201U);
    EXPECT_EQ(third, 255U);
}

// Several threads and processes at once

/** What a board received, in the order of arrival, from any process. */
struct Arrivals {
    static constexpr int kRoom = 20000;
    std::atomic<int> count = 0;
    std::array<unsigned char, 10> payloads[kRoom];
    std::atomic<int> together = 0;
    std::atomic<int> overlaps = 0;

    DriverAnswer Note(const Exchange& exchange) {
        if (together.fetch_add(1) != 0) ++overlaps;
        usleep(10);  // time for somebody who did not wait for the lock
        const int place = count.fetch_add(1);
        if (place < kRoom)
            std::copy(exchange.payload.begin(), exchange.payload.end(), payloads[place].begin());
        together.fetch_sub(1);
        return {};
    }
};

constexpr int kUsers = 4;
constexpr unsigned kChangesPerUser = 400;

/** Switches outputs of its own number modulo kUsers, in random order; leaves all of them on. */
int SwitchOwnPeriodBits(MarvaneUSB& board, unsigned user) {
    Random random(user);
    int failures = 0;
    for (unsigned i = 0; i < kChangesPerUser; ++i) {
        const unsigned output = user + kUsers * random.Below(9);
        failures += 1 - board.SetOnPeriodOutputBit(OutputByte(output / 8),
                                                   static_cast<int>(output % 8), random.Below(2));
    }
    for (unsigned output = user; output < 36; output += kUsers) {
        failures +=
            1 - board.SetOnPeriodOutputBit(OutputByte(output / 8), static_cast<int>(output % 8), 1);
    }
    return failures;
}

/** Switches any outputs; the same ones that others switch. */
int SwitchAnyBits(MarvaneUSB& board, unsigned user) {
    Random random(user);
    int failures = 0;
    for (unsigned i = 0; i < kChangesPerUser; ++i) {
        failures += 1 - board.SetOutputBit(Output(random.Below(38)), random.Below(2));
    }
    return failures;
}

using Switch = int (*)(MarvaneUSB&, unsigned);

class OutputsOfManyTest : public OutputsTest {
protected:
    void SetUp() override {
        OutputsTest::SetUp();
        if (IsSkipped()) return;
        Open(Model::kK44);
        driver.AnswerWith([this](const Exchange& exchange) { return arrivals->Note(exchange); });
    }

    void RunThreads(Switch act) {
        std::vector<std::thread> threads;
        std::atomic<int> failures = 0;
        for (unsigned user = 0; user < kUsers; ++user) {
            threads.emplace_back([&, user] { failures += act(board, user); });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(failures, 0);
    }

    void RunProcesses(Switch act) {
        std::vector<Child> children;
        for (unsigned user = 0; user < kUsers; ++user) {
            children.emplace_back([&, user] { return act(board, user); });
        }
        for (Child& child : children)
            EXPECT_EQ(child.Wait(), 0);
    }

    /** Every pattern is the one before it with at most one bit changed. */
    void ExpectChainOfPatterns() {
        ASSERT_LE(arrivals->count, Arrivals::kRoom);
        std::array<unsigned char, 10> last = {};
        for (int i = 0; i < arrivals->count; ++i) {
            int changed = 0;
            for (std::size_t byte = 0; byte < 5; ++byte) {
                changed +=
                    std::popcount(static_cast<unsigned>(last[byte] ^ arrivals->payloads[i][byte]));
            }
            ASSERT_LE(changed, 1) << "arrival " << i;
            last = arrivals->payloads[i];
        }
    }

    void ExpectAllOwnBits() {
        EXPECT_EQ(OnCopy(0), ByteString({255, 255, 255, 255, 15}));
        ExpectChainOfPatterns();
    }

    /** The masks, applied in the order of arrival, give what both copies hold. */
    void ExpectBoardAgreesWithCopies() {
        ASSERT_EQ(arrivals->count, kUsers * static_cast<int>(kChangesPerUser));
        ByteString pattern(5, 0);
        for (int i = 0; i < arrivals->count; ++i) {
            for (std::size_t byte = 0; byte < 5; ++byte) {
                pattern[byte] =
                    static_cast<std::uint8_t>((pattern[byte] | arrivals->payloads[i][byte]) &
                                              ~arrivals->payloads[i][byte + 5]);
            }
        }
        EXPECT_EQ(OnCopy(0), pattern);
        EXPECT_EQ(OffCopy(0), pattern);
        EXPECT_EQ(arrivals->overlaps, 0) << "exchanges of holders of the same locks met";
    }

    InSharedMemory<Arrivals> arrivals;
};

TEST_F(OutputsOfManyTest, ThreadsLoseNoBitAndTheBoardSeesTheOrderOfTheLock) {
    RunThreads(SwitchOwnPeriodBits);
    ExpectAllOwnBits();
}

TEST_F(OutputsOfManyTest, ProcessesLoseNoBitAndTheBoardSeesTheOrderOfTheLock) {
    RunProcesses(SwitchOwnPeriodBits);
    ExpectAllOwnBits();
}

TEST_F(OutputsOfManyTest, BoardAndCopiesAgreeWhenThreadsSwitchTheSameOutputs) {
    RunThreads(SwitchAnyBits);
    ExpectBoardAgreesWithCopies();
}

TEST_F(OutputsOfManyTest, BoardAndCopiesAgreeWhenProcessesSwitchTheSameOutputs) {
    RunProcesses(SwitchAnyBits);
    ExpectBoardAgreesWithCopies();
}

}  // namespace
