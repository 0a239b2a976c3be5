/**
 * @file cabinet_kills_test.cpp
 * @brief The example machine, ended at every exchange: no coin is lost, and none paid twice.
 *
 * A player inserts coins and keeps pressing start, whether a program runs or not; two coins come
 * just as a program is killed. After that nothing that it does reaches the board, and nothing
 * outlasts it but the board, which goes on. In the end each coin has bought one round, and each win
 * was paid.
 */
#include <algorithm>
#include <cerrno>
#include <optional>

#include "board/board.h"
#include "board_test.h"
#include "cabinet/machine.h"

namespace {

using std::chrono::milliseconds;

constexpr unsigned kWin = 5;              // of each round: see TwoOfAKind
constexpr unsigned kCountedBefore = 127;  // so the counter is emptied with the first coin
constexpr unsigned kCoinsAtFirst = 2;
constexpr unsigned kCoinsAtFailure = 2;
constexpr unsigned kCoinsInHopper = 16;  // it runs dry in the fourth win, and is filled in the end

constexpr milliseconds kCoinTakes{4 * kShortestPulseMs};
constexpr milliseconds kExchangeTakes{1};
constexpr milliseconds kPassTakes{200};
constexpr milliseconds kDownTime{150};
constexpr milliseconds kTooLong{120'000};

/** Any three numbers in a row are two of a kind, also where a lost one reads as 0. */
simulator::RandomSource TwoOfAKind() {
    return [drawn = 0]() mutable { return static_cast<std::uint16_t>(++drawn % 3 != 0); };
}

/** How an exchange fails. Killed before it is the same as killed after the one before. */
struct Failure {
    const char* what;
    bool boardHearsIt, endsProgram;
    std::optional<std::size_t> replyBytes = {};  // it succeeds, with no more than these
};
constexpr Failure kKilled = {"killed after it", true, true};
constexpr Failure kFailures[] = {kKilled,
                                 {"it fails", false, false},
                                 {"its reply fails", true, false},
                                 {"its reply is empty", true, false, 0},
                                 {"its reply is cut short", true, false, 1}};

class CabinetKillsTest : public ::testing::Test {
protected:
    ~CabinetKillsTest() override {
        driver.Reset();
        std::fclose(nowhere);
    }

    /** All that was played before is paid, no program runs, and the first coins come. */
    void BuildCabinet(Model model, int speedMbit) {
        driver.Reset();
        driver.AddBoard(0, model, speedMbit);
        driver.AnswerWith([this](const Exchange& exchange) { return Answer(exchange); });
        board.emplace(simulator::BoardOptions{.model = model,
                                              .speedMbit = speedMbit,
                                              .firmwareRunning = true,
                                              .time = [this] { return now; },
                                              .random = TwoOfAKind()});
        board->hoppers.At(kHopperInput).coins = kCoinsInHopper;
        WithLedger([&](MarvaneUSB& usb, Ledger& ledger) {
            CoinInput input(usb, ledger);
            input.Begin();
            board->pulses.Add(kCoinInput, kCountedBefore, kCoinTakes);
            LetPass(kCoinTakes * (kCountedBefore + 1));
            ASSERT_EQ(input.Take(), kCountedBefore);
            ledger.credit = 0;
            ledger.Save();
        });
        board->pulses.Add(kCoinInput, kCoinsAtFirst, kCoinTakes);
        coins = kCoinsAtFirst;
    }

    template <class Look>
    void WithLedger(Look look) {
        failingExchange = 0;
        MarvaneUSB usb;
        ASSERT_EQ(usb.InitPort(0), 1);
        Ledger ledger(usb);
        ledger.Load();
        look(usb, ledger);
    }

    void LetPass(milliseconds time) {
        now += time;
        board->Advance();
        board->inputs.Set(kStartButton, now.time_since_epoch() % (3 * kPassTakes) < kPassTakes);
    }

    DriverAnswer Answer(const Exchange& exchange) {
        LetPass(kExchangeTakes);
        const bool fails = ++exchanges == failingExchange;
        const bool isPastEnd =
            failure.endsProgram && failingExchange != 0 && exchanges > failingExchange;
        if (fails) {
            board->pulses.Add(kCoinInput, kCoinsAtFailure, kCoinTakes);
            coins += kCoinsAtFailure;
        }
        if (isPastEnd || (fails && !failure.boardHearsIt)) return {.error = EIO};
        auto answer = board->Handle(static_cast<std::uint8_t>(exchange.command),
                                    static_cast<std::uint32_t>(exchange.channel), exchange.payload);
        if (fails && !failure.replyBytes) return {.error = EIO};
        if (fails) answer.reply.resize(std::min(answer.reply.size(), *failure.replyBytes));
        return {.status = answer.status, .reply = std::move(answer.reply)};
    }

    void FillHopper() { board->hoppers.At(kHopperInput).coins = 500; }

    /** Result: the program came to its own end, all coins played. */
    bool RunProgram(unsigned exchange = 0, const Failure& itsFailure = kKilled) {
        driver.ForgetSent();
        exchanges = 0;
        failingExchange = exchange;
        failure = itsFailure;
        MarvaneUSB usb;
        if (usb.InitPort(0) == 0) return false;
        Machine machine(usb, nowhere);
        try {
            machine.Begin();
            while (machine.IsBusy() || machine.Money().credit > 0 ||
                   board->pulses.Pending(kCoinInput) > 0) {
                machine.Pass();
                LetPass(kPassTakes);
                if (now.time_since_epoch() > kTooLong) return false;
            }
            machine.End();
            return true;
        } catch (const BoardError&) {
            return false;
        }
    }

    /** One more program plays what is left, another one pays what the filled hopper owes. */
    void ExpectEveryCoinInItsPlace() {
        LetPass(kDownTime);
        ASSERT_TRUE(RunProgram());
        FillHopper();
        ASSERT_TRUE(RunProgram());
        WithLedger([&](MarvaneUSB&, const Ledger& ledger) {
            ASSERT_EQ(ledger.credit + ledger.stake + ledger.owed, 0U);
            ASSERT_EQ(board->hoppers.At(kHopperInput).dropped, coins * kWin);
        });
    }

    InProcessDriver& driver = InProcessDriver::Instance();
    std::FILE* nowhere = std::fopen("/dev/null", "w");
    std::optional<simulator::Board> board;
    simulator::Moment now{};
    unsigned coins = 0;            // inserted
    unsigned exchanges = 0;        // of the latest program
    unsigned failingExchange = 0;  // 0 for none
    Failure failure = kKilled;
};

TEST_F(CabinetKillsTest, EndedAtAnyExchangeItLosesNoCoinAndPaysNoneTwice) {
    const std::pair<Model, int> boards[] = {
        {Model::kK40, 12}, {Model::kK44, 12}, {Model::kK50, 480}};
    for (const auto& [model, speedMbit] : boards) {
        ASSERT_NO_FATAL_FAILURE(BuildCabinet(model, speedMbit));
        const auto atFirst = std::tuple(*board, now, coins);
        for (const Failure& how : kFailures) {
            // The machine makes no difference between the models; the library's tests do.
            if (model != Model::kK40 && !how.endsProgram) continue;
            bool failureCame = true;
            for (unsigned k = 1; failureCame; ++k) {
                SCOPED_TRACE(ModelName(model) + ", exchange " + std::to_string(k) + ": " +
                             how.what);
                std::tie(*board, now, coins) = atFirst;
                LetPass(kExchangeTakes * (k % 20));  // the coins come at any exchange
                RunProgram(k, how);
                failureCame = exchanges >= k;
                ASSERT_NO_FATAL_FAILURE(ExpectEveryCoinInItsPlace());
            }
        }
    }
}

TEST_F(CabinetKillsTest, EndedTwiceInARowItDoesNeither) {
    constexpr unsigned kStride = 31;  // of the second kills; begins elsewhere after each first kill
    ASSERT_NO_FATAL_FAILURE(BuildCabinet(Model::kK40, 12));
    FillHopper();
    const auto atFirst = std::tuple(*board, now, coins);
    bool firstKillCame = true;
    for (unsigned k = 1; firstKillCame; ++k) {
        std::tie(*board, now, coins) = atFirst;
        RunProgram(k);
        firstKillCame = exchanges >= k;
        LetPass(kDownTime);
        const auto atSecond = std::tuple(*board, now, coins);
        bool secondKillCame = true;
        for (unsigned j = 1 + k % kStride; secondKillCame; j += kStride) {
            SCOPED_TRACE("killed after " + std::to_string(k) + " and " + std::to_string(j));
            std::tie(*board, now, coins) = atSecond;
            RunProgram(j);
            secondKillCame = exchanges >= j;
            ASSERT_NO_FATAL_FAILURE(ExpectEveryCoinInItsPlace());
        }
    }
}

TEST_F(CabinetKillsTest, MoreThanOnePayoutHoldsIsPaidInSeveral) {
    ASSERT_NO_FATAL_FAILURE(BuildCabinet(Model::kK44, 480));
    FillHopper();
    WithLedger([](MarvaneUSB&, Ledger& ledger) {
        ledger.owed = 2 * kMostCoinsOfRelease + 1;
        ledger.Save();
    });
    ASSERT_TRUE(RunProgram());
    EXPECT_EQ(board->hoppers.At(kHopperInput).dropped,
              2 * kMostCoinsOfRelease + 1 + kCoinsAtFirst * kWin);
}

}  // namespace
