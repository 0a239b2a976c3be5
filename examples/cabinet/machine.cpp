/**
 * @file machine.cpp
 * @brief One round after the other. What the player has is written down before it changes hands.
 */
#include "machine.h"

#include <algorithm>
#include <cstdio>
#include <thread>

#include "board_error.h"

namespace {

constexpr auto kLookAgainAfter = std::chrono::milliseconds(10);

void Pause() {
    std::this_thread::sleep_for(kLookAgainAfter);
}

Lamp LampOfReel(unsigned reel) {
    return static_cast<Lamp>(static_cast<unsigned>(Lamp::kReel1) + reel);
}

/** Coins for three or two of a kind. */
unsigned WinOf(const Line& line) {
    if (line[0] == line[1] && line[1] == line[2]) return 20;
    if (line[0] == line[1] || line[1] == line[2] || line[0] == line[2]) return 5;
    return 0;
}

}  // namespace

std::atomic<bool> Machine::startPressed(false);

Machine::Machine(MarvaneUSB& openBoard)
    : board(openBoard),
      ledger(board),
      lamps(board),
      reels(board),
      coins(board),
      hopper(board),
      lastEvent(std::chrono::steady_clock::now()) {}

bool Machine::Run(unsigned rounds, std::chrono::seconds patience) {
    Begin();
    while (roundsPlayed < rounds && std::chrono::steady_clock::now() < lastEvent + patience) {
        TakeCoins();
        ShowWhetherToStart();
        if (startPressed.exchange(false)) {
            if (ledger.credit > 0) {
                PlayRound();
            } else {
                std::printf("start is pressed, but there is no credit\n");
            }
            lastEvent = std::chrono::steady_clock::now();
        }
        std::fflush(stdout);
        Pause();
    }
    TakeCoins();
    std::printf("the end: %u coins in, %u rounds, credit %u, %u coins owed\n", coinsIn,
                roundsPlayed, ledger.credit, ledger.owed);
    lamps.Set(Lamp::kStart, LampState::kOff);
    return ledger.owed == 0;
}

// A program that was here before may have ended anywhere.
void Machine::Begin() {
    lamps.AllOff();
    reels.Configure();
    coins.Begin();
    Require(board.EnableRandomNumberGenerator(0), board, "switching on the random numbers");
    WatchStartButton();

    ledger.Load();
    std::printf("from last time: credit %u, %u coins owed\n", ledger.credit, ledger.owed);
    if (ledger.stake > 0) {
        std::printf("the last round was cut off: its stake of %u is given back\n", ledger.stake);
        ledger.credit += ledger.stake;
        ledger.stake = 0;
        ledger.Save();
    }
    if (ledger.owed > 0) {
        while (FollowHopper() == Hopper::State::kPays)
            Pause();
        Pay();
    }
}

void Machine::WatchStartButton() {
    usbInput button = {};
    button.bytes[kStartButton / 8] = static_cast<unsigned char>(1U << kStartButton % 8);
    usbInput whenPressed = button;
    const auto callback = [](usbInput*, usbInput*) { startPressed = true; };
    Require(board.ConfigureChangedInputsCallback(&button, &whenPressed, callback), board,
            "watching the start button");
}

void Machine::TakeCoins() {
    unsigned fresh = 0;
    while (coins.Take())
        ++fresh;
    if (fresh == 0) return;
    coinsIn += fresh;
    ledger.credit += fresh;
    ledger.Save();
    lastEvent = std::chrono::steady_clock::now();
    std::printf("%u coins in, credit %u\n", coinsIn, ledger.credit);
}

void Machine::ShowWhetherToStart() {
    lamps.Set(Lamp::kStart, ledger.credit > 0 ? LampState::kBlinking : LampState::kOff);
}

void Machine::PlayRound() {
    ++roundsPlayed;
    ledger.credit -= 1;
    ledger.stake = 1;
    ledger.Save();
    std::printf("round %u spins, credit %u\n", roundsPlayed, ledger.credit);
    std::fflush(stdout);

    lamps.Set(Lamp::kStart, LampState::kOn);
    lamps.Set(Lamp::kWin, LampState::kOff);
    reels.Spin(Draw());
    WaitForReels();

    const Line line = reels.Shown();
    const unsigned win = WinOf(line);
    ledger.stake = 0;
    ledger.owed += win;
    ledger.Save();
    std::printf("round %u shows %s %s %s: win %u\n", roundsPlayed, kSymbols[line[0]],
                kSymbols[line[1]], kSymbols[line[2]], win);
    lamps.Set(Lamp::kWin, win > 0 ? LampState::kBlinking : LampState::kOff);
    if (ledger.owed > 0) Pay();
    startPressed = false;  // presses while it ran
}

// The board's own random numbers, of 16 bits: each symbol is as likely as the others.
Line Machine::Draw() {
    Line line{};
    for (unsigned& symbol : line) {
        unsigned short number = 0;
        Require(board.GetRandomNumber(&number), board, "drawing a random number");
        symbol = number % kSymbolCount;
    }
    return line;
}

void Machine::WaitForReels() {
    for (bool anyTurns = true; anyTurns;) {
        anyTurns = false;
        const auto turning = reels.Turning();
        for (unsigned reel = 0; reel < kReelCount; ++reel) {
            lamps.Set(LampOfReel(reel), turning[reel] ? LampState::kBlinking : LampState::kOn);
            anyTurns = anyTurns || turning[reel];
        }
        TakeCoins();
        Pause();
    }
}

void Machine::Pay() {
    Hopper::State state = Hopper::State::kHasPaid;
    unsigned paid = 0;
    while (ledger.owed > 0 && state == Hopper::State::kHasPaid) {
        const unsigned before = ledger.owed;
        hopper.Begin(std::min(ledger.owed, kMostCoinsOfRelease));
        ledger.paid = 0;
        ledger.Save();
        for (state = Hopper::State::kPays; state == Hopper::State::kPays;) {
            Pause();
            state = FollowHopper();
            TakeCoins();
        }
        paid += before - ledger.owed;
    }
    std::printf("hopper paid %u, %u coins owed\n", paid, ledger.owed);
    if (ledger.owed > 0) {
        std::printf("the hopper is empty or jammed: an attendant owes the player %u coins\n",
                    ledger.owed);
    }
    lamps.Set(Lamp::kWin, ledger.owed > 0 ? LampState::kBlinking : LampState::kOff);
    lamps.Set(Lamp::kAttendant, ledger.owed > 0 ? LampState::kBlinking : LampState::kOff);
}

Hopper::State Machine::FollowHopper() {
    const Hopper::Report report = hopper.Follow();
    TakeOffOwed(report.paid);
    return report.state;
}

// Also for a payout that a program before this one began, and that went on without it. A count
// below the one written down is that of a newer payout.
void Machine::TakeOffOwed(unsigned paidSoFar) {
    if (paidSoFar == ledger.paid) return;
    const unsigned fresh = paidSoFar > ledger.paid ? paidSoFar - ledger.paid : paidSoFar;
    ledger.owed -= std::min(fresh, ledger.owed);
    ledger.paid = paidSoFar;
    ledger.Save();
}

void Machine::PrintState(std::FILE* stream) const {
    std::fprintf(stream, "lamps: %s\n", lamps.Describe().c_str());
    std::fprintf(stream, "credit %u, stake %u, %u coins owed\n", ledger.credit, ledger.stake,
                 ledger.owed);
}
