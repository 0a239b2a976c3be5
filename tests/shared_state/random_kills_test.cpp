/**
 * @file random_kills_test.cpp
 * @brief Processes at work that are killed at random instants, round after round.
 *
 * Three owners switch the outputs of one board, each its own, configure the EEPROM, and unload and
 * load the library in between. In each round most of them are killed. What they had switched by
 * then must be there, whatever the others did at the same time, and whoever comes next must be
 * served. The environment sets MARVANE_KILL_ROUNDS (100) and MARVANE_KILL_SEED.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <random>
#include <set>

#include "children.h"
#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"

namespace {

constexpr unsigned kOwners = 3;
constexpr unsigned kOutputs = 36;
constexpr int kChanging = 2;

/** Whether owners have switched each output on (or are at it) for the on- and the off-period. */
struct Game {
    std::atomic<int> states[2][kOutputs] = {};
    std::atomic<unsigned> done[kOwners] = {};
    std::atomic<int> failures = 0;
    std::atomic<bool> finish = false;
};

/** One operation of an owner, on one of its outputs. */
int Operate(Game& game, LoadedLibrary& library, unsigned owner, Random& random) {
    const unsigned output = owner + kOwners * random.Below(kOutputs / kOwners);
    const unsigned value = random.Below(2);
    const unsigned what = random.Below(6);
    if (what == 2) return library.ConfigureEeprom();

    const auto note = [&](int state) {
        if (what != 0) game.states[0][output] = state;
        if (what != 1) game.states[1][output] = state;
    };
    note(kChanging);
    const int result = what == 0   ? library.SetOffPeriodBit(output, value)
                       : what == 1 ? library.SetOnPeriodBit(output, value)
                                   : library.SetOutputBit(output, value);
    note(static_cast<int>(value));
    return result;
}

/** Plays an owner until it is killed or the round is over. */
int Play(Game& game, unsigned owner, unsigned seed) {
    Random random(seed);
    AddAcceptingBoard(0, [&] {
        // Boards take their time, with the locks held.
        if (random.Below(4) == 0) usleep(random.Below(60));
    });
    while (!game.finish) {
        LoadedLibrary library;
        game.failures += library.InitPort(0) != 1;
        for (unsigned i = random.Below(40); i > 0 && !game.finish; --i) {
            game.failures += Operate(game, library, owner, random) != 1;
            ++game.done[owner];
        }
    }
    return 0;
}

/** Runs all owners for a moment and kills most of them. */
void PlayRound(Game& game, Random& random) {
    game.finish = false;
    std::vector<Child> owners;
    for (unsigned owner = 0; owner < kOwners; ++owner) {
        const unsigned seed = random.Below(1U << 30);
        owners.emplace_back([&, owner] { return Play(game, owner, seed); });
    }
    const unsigned first = random.Below(kOwners);
    const unsigned doomed = 1 + random.Below(kOwners);
    for (unsigned i = 0; i < doomed; ++i) {
        usleep(random.Below(2500));
        owners[(first + i) % kOwners].Signal(SIGKILL);
    }
    for (unsigned i = doomed; i < kOwners; ++i) {
        // Nothing that the dead held may hold up the living.
        const unsigned owner = (first + i) % kOwners;
        const unsigned before = game.done[owner];
        EXPECT_TRUE(Await([&] { return game.done[owner] >= before + 3; })) << "stuck";
    }
    game.finish = true;
    for (unsigned i = 0; i < kOwners; ++i)
        EXPECT_EQ(owners[(first + i) % kOwners].Wait(), i < doomed ? 128 + SIGKILL : 0);
    EXPECT_EQ(game.failures, 0);
}

/** Every output is as its owner left it; the owners go on from there. */
void ExpectNoBitLost(Game& game) {
    const ByteString copies[] = {OnCopy(0), OffCopy(0)};
    for (unsigned i = 0; i < 2 * kOutputs; ++i) {
        const unsigned output = i / 2;
        const int found = copies[i % 2][output / 8] >> output % 8 & 1;
        const int before = game.states[i % 2][output].exchange(found);
        if (before != kChanging) {
            EXPECT_EQ(found, before) << (i % 2 == 0 ? "on" : "off") << ", output " << output;
        }
    }
    // What nobody has configured, what the owners configure, what a detection leaves.
    const std::set<ByteString> entries = {{0, 0, 0, 0, 0, 0, 0, 0},
                                          {64, 2, 0xFF, 0x7F, 0x51, 0, 1, 0},
                                          {32, 2, 0xFF, 0x0F, 0x51, 0, 1, 0}};
    EXPECT_TRUE(entries.contains(EepromEntry(0))) << "half an EEPROM entry";
}

class RandomKillsTest : public SharedStateTest {};

TEST_F(RandomKillsTest, LoseNoBitLeaveNoLockAndMakeNothingTwice) {
    const unsigned rounds = FromEnvironment("MARVANE_KILL_ROUNDS", 100);
    const unsigned seed = FromEnvironment("MARVANE_KILL_SEED", std::random_device()());
    std::printf("seed %u, %u rounds\n", seed, rounds);
    Random random(seed);
    const InSharedMemory<Game> game;
    std::optional<LoadedProcess> keeper;  // while it is there, the state lasts
    for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round) + " of seed " + std::to_string(seed));
        if (round % 20 == 0) {
            Sweep();
            for (unsigned i = 0; i < 2 * kOutputs; ++i)
                game->states[i % 2][i / 2] = 0;
            keeper.emplace();
        }
        if (round % 20 == 15) {  // five rounds in which the last one may be killed
            keeper->Leave();
            keeper.reset();
            EXPECT_EQ(FindSegment(), -1) << "the last process that had it attached removes it";
        }
        PlayRound(*game, random);
        EXPECT_FALSE(KeyFileIsLocked());
        EXPECT_EQ(ServedToAnother(), kAll);
        if (keeper) ExpectNoBitLost(*game);
    }
    if (keeper) keeper->Leave();
    Sweep();
    EXPECT_GT(game->done[0] + game->done[1] + game->done[2], rounds) << "hardly anything happened";
}

}  // namespace
