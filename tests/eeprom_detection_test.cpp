/**
 * @file eeprom_detection_test.cpp
 * @brief Which EEPROM part a board carries: how it is found out, and when.
 */
#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include "eeprom_parts.h"

using simulator::BoardEeprom;
using simulator::EepromPart;

namespace {

constexpr int kNoAcknowledge = 107;  // the simulated board's status for a silent part

Bytes BytesOf(const K40EEPROM& part) {
    Bytes bytes(sizeof part);
    std::memcpy(bytes.data(), &part, sizeof part);
    return bytes;
}

class EepromDetectionTest : public EepromBoardTest {
protected:
    /** The board's program runs; its EEPROM is `part`, and nothing else answers with data. */
    void Fit(BoardEeprom& part) {
        driver.AnswerWith([&part](const Exchange& exchange) { return AnswerOf(part, exchange); });
    }

    static DriverAnswer AnswerOf(BoardEeprom& part, const Exchange& exchange) {
        simulator::Answer answer;
        if (exchange.command == 74) return {.reply = {1}};
        if (exchange.command == 3) answer = part.Configure(exchange.payload);
        if (exchange.command == 4) answer = part.Write(exchange.payload);
        if (exchange.command == 5) answer = part.Read(exchange.payload);
        return {.status = answer.status, .reply = answer.reply};
    }
};

TEST_F(EepromDetectionTest, EveryPartIsDetectedAndABlankOneAsTheSmallestOfItsClass) {
    for (const Model model : kModels) {
        for (const bool blank : {false, true}) {
            for (const Part& part : kParts) {
                SCOPED_TRACE(std::string(ModelName(model)) + (blank ? " blank " : " ") + part.name);
                const bool short_ = part.descriptor.addressBytes == 1;
                BoardEeprom fitted(part.fitted, blank);
                Open(model);
                Fit(fitted);
                K40EEPROM found;
                std::memset(static_cast<void*>(&found), 0xEE, sizeof found);
                EXPECT_EQ(board.CheckEEPROM(&found), 1);
                // A K40 keeps old errors, so the detection has to clear that of a silent part.
                EXPECT_EQ(board.GetLastError(), 0);
                EXPECT_EQ(BytesOf(found), !blank   ? part.record
                                          : short_ ? kParts[0].record
                                                   : kParts[5].record);
                EXPECT_EQ(entries.Get(0, 8), short_ ? kHoldsE24LC16 : kHoldsE24LC256);
            }
        }
    }
}

TEST_F(EepromDetectionTest, DetectionProbesWhereTheSmallerPartsEnd) {
    Open(Model::kK44);
    BoardEeprom fitted(EepromPart::k24LC64, false);
    Fit(fitted);
    K40EEPROM found;
    ASSERT_EQ(board.CheckEEPROM(&found), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({kTellE24LC256,
                                        {5, 2, {58, 0, 0}},
                                        {5, 2, {42, 58, 0}},
                                        {5, 2, {58, 0, 0x10}},
                                        {5, 2, {42, 58, 0x10}},
                                        {5, 2, {58, 0, 0x20}},
                                        {5, 2, {42, 58, 0x20}}}));

    BoardEeprom smaller(EepromPart::k24LC02, false);
    Fit(smaller);
    StartAfresh();
    ASSERT_EQ(board.CheckEEPROM(&found), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({kTellE24LC256,
                                        {5, 2, {58, 0, 0}},
                                        kTellE24LC16,
                                        {5, 2, {58, 0, 0}},
                                        {5, 2, {42, 58, 0}},
                                        {5, 2, {58, 128, 0}},
                                        {5, 2, {42, 186, 0}},
                                        {5, 2, {58, 0, 1}},
                                        {5, 2, {42, 58, 1}}}));

    // The largest of a class fits no probe; there is none beyond the last.
    for (const auto& [part, exchanges] :
         {std::pair{EepromPart::k24LC512, 11U}, std::pair{EepromPart::k24LC16, 13U}}) {
        BoardEeprom largest(part, false);
        Fit(largest);
        StartAfresh();
        ASSERT_EQ(board.CheckEEPROM(&found), 1);
        EXPECT_EQ(driver.Sent().size(), exchanges);
        driver.AnswerWith(nullptr);
    }
}

TEST_F(EepromDetectionTest, AFailedDetectionLeavesThePartThatItProbedWith) {
    struct Case {
        const char* what;
        EepromPart fitted;
        unsigned failing;  // which exchange the board refuses with status 9
        int error;
        unsigned sent;
        Bytes entry;
    };
    using enum EepromPart;
    const Case cases[] = {
        // clang-format off
        {"first configuration",         k24LC512, 0,  9,              1,  kHoldsE24LC256},
        {"reference",                   k24LC512, 1,  kNoAcknowledge, 4,  kHoldsE24LC16},
        {"second half of reference",    k24LC512, 2,  kNoAcknowledge, 5,  kHoldsE24LC16},
        {"first probe",                 k24LC512, 3,  9,              4,  kHoldsE24LC256},
        {"last probe, second half",     k24LC512, 10, 9,              11, kHoldsE24LC256},
        {"second configuration",        k24LC16,  2,  9,              3,  kHoldsE24LC16},
        {"second reference",            k24LC16,  3,  9,              4,  kHoldsE24LC16},
        {"its second half",             k24LC16,  4,  9,              5,  kHoldsE24LC16},
        {"last short probe",            k24LC16,  11, 9,              12, kHoldsE24LC16},
        // clang-format on
    };
    for (const Model model : kModels) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(ModelName(model)) + ": " + c.what);
            Open(model);
            entries.Clear();
            BoardEeprom fitted(c.fitted, false);
            unsigned exchanges = 0;
            driver.AnswerWith([&](const Exchange& exchange) {
                return exchanges++ == c.failing ? DriverAnswer{.status = 9}
                                                : AnswerOf(fitted, exchange);
            });
            K40EEPROM found = E24LC08;
            const Bytes before = BytesOf(found);
            EXPECT_EQ(board.CheckEEPROM(&found), 0);
            EXPECT_EQ(board.GetLastError(), c.error);
            EXPECT_EQ(driver.Sent().size(), c.sent);
            EXPECT_EQ(entries.Get(0, 8), c.entry);
            EXPECT_EQ(BytesOf(found), before);
        }
    }
}

TEST_F(EepromDetectionTest, DetectionOfNothingNamesThePointerAndSendsNothing) {
    Open(Model::kK44);
    const Bytes before = entries.Get(0, 8);
    Expect({{"null", [this] { return board.CheckEEPROM(nullptr); }, 0, 30, {}}});
    EXPECT_EQ(entries.Get(0, 8), before);
}

TEST_F(EepromDetectionTest, AnEmptyReplyToTheReferenceMeansOneAddressByte) {
    Open(Model::kK44);
    driver.AnswerWith([](const Exchange&) { return DriverAnswer{}; });
    K40EEPROM found;
    EXPECT_EQ(board.CheckEEPROM(&found), 0);
    EXPECT_EQ(board.GetLastError(), 6);
    EXPECT_EQ(driver.Sent(),
              Exchanges({kTellE24LC256, {5, 2, {58, 0, 0}}, kTellE24LC16, {5, 2, {58, 0, 0}}}));
}

TEST_F(EepromDetectionTest, TheFirstOpeningDetectsAndTheNextDoesNot) {
    BoardEeprom fitted(EepromPart::k24LC128, false);
    driver.AddBoard(0, Model::kK50);
    Fit(fitted);
    entries.Clear();
    ASSERT_EQ(board.InitPort(0), 1);
    EXPECT_EQ(entries.Get(0, 8), Bytes({64, 2, 0xFF, 0x3F, 0x51, 0, 1, 0}));
    EXPECT_EQ(driver.Sent().back(), (Exchange{3, 2, {64, 2, 0x3F, 0xFF, 0x51}}));

    MarvaneUSB another;
    StartAfresh();
    ASSERT_EQ(another.InitPort(0), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{74, 6, {}}}));
}

TEST_F(EepromDetectionTest, AnOpeningDoesNotRepeatADetectionThatFailed) {
    driver.AddBoard(0, Model::kK44);
    entries.Clear();
    driver.AnswerWith([](const Exchange& exchange) {
        return exchange.command == 74 ? DriverAnswer{.reply = {1}} : DriverAnswer{.status = 9};
    });
    EXPECT_EQ(board.InitPort(0), 0);
    EXPECT_EQ(board.GetLastError(), 9);
    EXPECT_EQ(entries.Get(0, 8), kHoldsE24LC256);
    StartAfresh();
    EXPECT_EQ(board.InitPort(0), 1);
    EXPECT_EQ(driver.Sent(), Exchanges({{74, 6, {}}}));
}

TEST_F(EepromDetectionTest, TwoFirstOpeningsAtOnceDetectOnce) {
    for (int round = 0; round < 50; ++round) {
        driver.Reset();
        driver.AddBoard(0, Model::kK44);
        entries.Clear();
        BoardEeprom fitted(EepromPart::k24LC64, false);
        std::mutex guard;
        driver.AnswerWith([&](const Exchange& exchange) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            const std::lock_guard lock(guard);
            return AnswerOf(fitted, exchange);
        });
        const auto openFirst = [&](MarvaneUSB& own) {
            EXPECT_EQ(own.InitPort(0), 1);
            const std::lock_guard lock(guard);
            EXPECT_EQ(fitted.Setting()->highestAddress, 0x1FFF) << "still probing";
        };
        MarvaneUSB other;
        std::thread thread([&] { openFirst(other); });
        openFirst(board);
        thread.join();
        const Exchanges sent = driver.Sent();
        const auto isConfiguration = [](const Exchange& exchange) { return exchange.command == 3; };
        ASSERT_EQ(std::count_if(sent.begin(), sent.end(), isConfiguration), 2) << round;
        driver.AnswerWith(nullptr);
    }
}

}  // namespace
