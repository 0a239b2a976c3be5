/**
 * @file machine.cpp
 * @brief One round after the other. What the player has is written down before it changes hands.
 */
#include "machine.h"

#include <algorithm>

#include "board_error.h"

namespace {

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

Machine::Machine(MarvaneUSB& openBoard, std::FILE* whatHappens)
    : board(openBoard),
      out(whatHappens),
      ledger(board),
      lamps(board),
      reels(board),
      startButton(board),
      coins(board, ledger),
      hopper(board) {}

// A program that was here before may have ended anywhere. Its reels may still turn, and its hopper
// pay: the first passes wait for them.
void Machine::Begin() {
    lamps.AllOff();
    reels.Configure();
    Require(board.EnableRandomNumberGenerator(0), "switching on the random numbers");

    ledger.Load();
    std::fprintf(out, "from last time: credit %u, %u coins owed\n", ledger.credit, ledger.owed);
    if (ledger.stake > 0) {
        std::fprintf(out, "the last round was cut off: its stake of %u is given back\n",
                     ledger.stake);
        ledger.credit += ledger.stake;
        ledger.stake = 0;
        ledger.Save();
    }
    coins.Begin();
    startButton.WasPressed();  // while nobody looked
}

bool Machine::Pass() {
    const bool coinsCame = TakeCoins() > 0;
    const bool startPressed = startButton.WasPressed();
    switch (doing) {
        case Doing::kSpins:
            FollowReels();
            return true;
        case Doing::kPays:
            FollowPayout();
            return true;
        case Doing::kWaits:
            break;
    }
    lamps.Set(Lamp::kStart, ledger.credit > 0 ? LampState::kBlinking : LampState::kOff);
    if (startPressed && ledger.credit > 0) {
        BeginRound();
    } else if (startPressed) {
        std::fprintf(out, "start is pressed, but there is no credit\n");
    }
    return coinsCame || startPressed;
}

void Machine::End() {
    TakeCoins();
    lamps.Set(Lamp::kStart, LampState::kOff);
    std::fprintf(out, "the end: %u coins in, %u rounds, credit %u, %u coins owed\n", coinsIn,
                 roundsPlayed, ledger.credit, ledger.owed);
}

unsigned Machine::TakeCoins() {
    const unsigned fresh = coins.Take();
    if (fresh == 0) return 0;
    coinsIn += fresh;
    std::fprintf(out, "%u coins in, credit %u\n", coinsIn, ledger.credit);
    return fresh;
}

void Machine::BeginRound() {
    ++roundsPlayed;
    ledger.credit -= 1;
    ledger.stake = 1;
    ledger.Save();
    std::fprintf(out, "round %u spins, credit %u\n", roundsPlayed, ledger.credit);

    lamps.Set(Lamp::kStart, LampState::kOn);
    lamps.Set(Lamp::kWin, LampState::kOff);
    drawn = Draw();
    reels.Spin(drawn);
    doing = Doing::kSpins;
}

// The board's own random numbers, of 16 bits: each symbol is as likely as the others.
Line Machine::Draw() {
    Line line{};
    for (unsigned& symbol : line) {
        unsigned short number = 0;
        Require(board.GetRandomNumber(&number), "drawing a random number");
        symbol = number % kSymbolCount;
    }
    return line;
}

// Reels that turn without a stake belong to a round that was cut off.
void Machine::FollowReels() {
    bool anyTurns = false;
    const auto turning = reels.Turning();
    for (unsigned reel = 0; reel < kReelCount; ++reel) {
        anyTurns = anyTurns || turning[reel];
        if (ledger.stake == 0) continue;
        lamps.Set(LampOfReel(reel), turning[reel] ? LampState::kBlinking : LampState::kOn);
    }
    if (anyTurns) return;
    if (ledger.stake > 0) DecideRound();
    doing = Doing::kWaits;
    if (ledger.owed > 0) Pay();
}

void Machine::DecideRound() {
    const Line line = reels.Shown();
    if (line != drawn) throw BoardError("the reels do not show what was drawn");
    const unsigned win = WinOf(line);
    ledger.stake = 0;
    ledger.owed += win;
    ledger.Save();
    std::fprintf(out, "round %u shows %s %s %s: win %u\n", roundsPlayed, kSymbols[line[0]],
                 kSymbols[line[1]], kSymbols[line[2]], win);
    lamps.Set(Lamp::kWin, win > 0 ? LampState::kBlinking : LampState::kOff);
}

// An earlier program's payout may have gone on without it.
void Machine::Pay() {
    doing = Doing::kPays;
    owedBeforePayout = ledger.owed;
    if (TakePaidOffOwed() != Hopper::State::kPays && ledger.owed > 0) BeginPayout();
}

// The board's count of coins paid must never be about another payout than the note of it. So one
// that pays nothing comes first: its count is 0 and stays so until that is noted. Killed on either
// side of the note, the machine finds a 0, which takes nothing off what is owed.
void Machine::BeginPayout() {
    hopper.Release(0);
    ledger.paid = 0;
    ledger.Save();
    hopper.Release(std::min(ledger.owed, kMostCoinsOfRelease));
}

void Machine::FollowPayout() {
    const Hopper::State state = TakePaidOffOwed();
    if (state == Hopper::State::kPays) return;
    if (state == Hopper::State::kIdle) throw BoardError("the hopper knows of no payout");
    // More than fit into one. A board that says so without a count would be told to pay for ever.
    if (state == Hopper::State::kHasPaid && ledger.owed > 0 && ledger.paid > 0) {
        BeginPayout();
        return;
    }
    std::fprintf(out, "hopper paid %u, %u coins owed\n", owedBeforePayout - ledger.owed,
                 ledger.owed);
    if (ledger.owed > 0) {
        std::fprintf(
            out,
            "the hopper is empty or jammed: the machine owes the player %u coins, and pays "
            "them with the next win or start\n",
            ledger.owed);
    }
    lamps.Set(Lamp::kWin, ledger.owed > 0 ? LampState::kBlinking : LampState::kOff);
    lamps.Set(Lamp::kAttendant, ledger.owed > 0 ? LampState::kBlinking : LampState::kOff);
    doing = Doing::kWaits;
}

// A count below the note is that of a payout of nothing, or of a board that was without power.
Hopper::State Machine::TakePaidOffOwed() {
    const Hopper::Report report = hopper.Follow();
    if (report.paid > ledger.paid) {
        ledger.owed -= std::min(report.paid - ledger.paid, ledger.owed);
        ledger.paid = report.paid;
        ledger.Save();
    }
    return report.state;
}

void Machine::PrintState(std::FILE* stream) const {
    std::fprintf(stream, "lamps: %s\n", lamps.Describe().c_str());
    std::fprintf(stream, "credit %u, stake %u, %u coins owed\n", ledger.credit, ledger.stake,
                 ledger.owed);
}
