/**
 * @file random_kills_test.cpp
 * @brief Processes at work that are killed at random instants, round after round.
 *
 * Three owners switch the outputs of one board, each its own, configure the EEPROM, and unload and
 * load the library in between. In each round most of them are killed. What they had switched by
 * then must be there, whatever the others did at the same time, and whoever comes next must be
 * served. The environment sets MARVANE_KILL_ROUNDS (400) and MARVANE_KILL_SEED.
 */
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <random>

#include "children.h"
#include "from_environment.h"
#include "loaded_library.h"
#include "outside_view.h"

namespace {

constexpr unsigned kOwners = 3;
constexpr unsigned kOutputs = 38;

struct Pattern {
    std::uint8_t bytes[5] = {};

    [[nodiscard]] bool Has(unsigned output) const {
        return (bytes[output / 8] >> output % 8 & 1) != 0;
    }
    void Set(unsigned output, bool on) {
        const auto bit = static_cast<std::uint8_t>(1U << output % 8);
        std::uint8_t& byte = bytes[output / 8];
        byte = static_cast<std::uint8_t>(on ? byte | bit : byte & ~bit);
    }
};

/** What an owner has switched, and the one change that it may be in the middle of. */
struct Owner {
    Pattern on, off;
    struct Change {
        bool running = false;
        unsigned output = 0;
        bool value = false;
        bool inOn = false, inOff = false;
    } change;
    std::atomic<unsigned> done = 0;
};

struct Game {
    Owner owners[kOwners];
    std::atomic<bool> finish = false;
    std::atomic<int> failures = 0;
};

// The descriptors that the owners configure, and that a detection leaves, as entries.
const ByteString kEntries[] = {
    {0, 0, 0, 0, 0, 0, 0, 0},
    {64, 2, 0xFF, 0x7F, 0x51, 0, 1, 0},
    {16, 1, 0xFF, 0x07, 0x50, 0, 1, 0},
    {32, 2, 0xFF, 0x0F, 0x51, 0, 1, 0},
};
const K40EEPROM kParts[] = {{64, 2, 0x7FFF, 0x51}, {16, 1, 0x07FF, 0x50}};

/** Plays an owner until it is killed or the round is over. */
class Player {
public:
    Player(Game& theGame, unsigned number, unsigned seed)
        : game(theGame), self(theGame.owners[number]), ownNumber(number), random(seed) {}

    int Play() {
        AddAcceptingBoard();
        InProcessDriver::Instance().AnswerWith([this](const Exchange& exchange) {
            // Boards take their time, with the locks held.
            if (random.Below(4) == 0) usleep(random.Below(60));
            DriverAnswer answer;
            if (exchange.command == 74) answer.reply = {1};
            if (exchange.command == 5) answer.reply = Bytes(exchange.payload.at(0), 7);
            return answer;
        });
        while (!game.finish) {
            LoadedLibrary library;
            Expect(library.InitPort(0));
            const unsigned operations = random.Below(40);
            for (unsigned i = 0; i < operations && !game.finish; ++i)
                Operate(library);
        }
        return 0;
    }

private:
    void Operate(LoadedLibrary& library) {
        const unsigned output = ownNumber + kOwners * random.Below(12);  // below 38
        const bool value = random.Below(2) == 1;
        switch (random.Below(6)) {
            case 0: {
                K40EEPROM part = kParts[random.Below(2)];
                Expect(library.ConfigureEEPROM(&part));
                break;
            }
            case 1:
                Begin({true, output, value, true, false});
                Expect(
                    library.SetOnPeriodOutputBit(output / 8, static_cast<int>(output % 8), value));
                break;
            case 2:
                Begin({true, output, value, false, true});
                Expect(
                    library.SetOffPeriodOutputBit(output / 8, static_cast<int>(output % 8), value));
                break;
            default:
                Begin({true, output, value, true, true});
                Expect(library.SetOutputBit(output, value));
        }
        End();
    }

    void Begin(Owner::Change change) {
        self.change.running = false;
        Fence();
        self.change = {false, change.output, change.value, change.inOn, change.inOff};
        Fence();
        self.change.running = true;
        Fence();
    }
    /** Done: it counts from here on. In between, both is true. */
    void End() {
        Fence();
        if (self.change.running) {
            if (self.change.inOn) self.on.Set(self.change.output, self.change.value);
            if (self.change.inOff) self.off.Set(self.change.output, self.change.value);
        }
        Fence();
        self.change.running = false;
        Fence();
        ++self.done;
    }
    static void Fence() { std::atomic_signal_fence(std::memory_order_seq_cst); }
    void Expect(int result) { game.failures += result == 1 ? 0 : 1; }

    Game& game;
    Owner& self;
    unsigned ownNumber;
    Random random;
};

class RandomKillsTest : public SharedStateTest {
protected:
    /** Runs all owners for a moment and kills most of them. */
    void PlayRound() {
        game->finish = false;
        std::vector<Child> owners;
        for (unsigned number = 0; number < kOwners; ++number) {
            const unsigned seed = random->Below(1U << 30);
            owners.emplace_back(
                [this, number, seed] { return Player(*game, number, seed).Play(); });
        }
        std::vector<unsigned> doomed = {0, 1, 2};
        std::shuffle(doomed.begin(), doomed.end(), random->Engine());
        doomed.resize(1 + random->Below(kOwners));
        for (const unsigned number : doomed) {
            usleep(random->Below(2500));
            owners[number].Signal(SIGKILL);
            ++kills;
        }
        for (unsigned number = 0; number < kOwners; ++number) {
            if (std::find(doomed.begin(), doomed.end(), number) != doomed.end()) {
                EXPECT_EQ(owners[number].Wait(), 128 + SIGKILL);
                continue;
            }
            // Nothing that the dead held may hold up the living.
            const Owner& owner = game->owners[number];
            const unsigned before = owner.done;
            EXPECT_TRUE(Await([&] { return owner.done >= before + 3; })) << "owner is stuck";
        }
        game->finish = true;
        for (unsigned number = 0; number < kOwners; ++number) {
            if (std::find(doomed.begin(), doomed.end(), number) == doomed.end()) {
                EXPECT_EQ(owners[number].Wait(), 0);
            }
        }
        EXPECT_EQ(game->failures, 0);
    }

    void ExpectSoundState() {
        EXPECT_FALSE(KeyFileIsLocked());
        const std::vector<int> values = SemaphoreValues(FindSet());
        // Its creator may have died before it raised them; whoever comes next does.
        if (!values.empty() && WasEverUsed(FindSet())) {
            EXPECT_EQ(values, Semaphores(values[0])) << "a lock is held or doubled";
        }
        if (FindSegment() == -1) return;
        const SegmentView segment;
        for (const char* name : {"K40BUFFERS", "OutOnCopies", "OutOffCopies", "K40EEPROMS"}) {
            EXPECT_LE(segment.BlocksNamed(name).size(), 1U) << name;
        }
    }

    /** Every output is as its owner left it, in both copies; the owners go on from there. */
    void ExpectNoBitLost() {
        const SegmentView segment;
        Pattern on;
        Pattern off;
        std::memcpy(on.bytes, segment.bytes + kOnEntries, 5);
        std::memcpy(off.bytes, segment.bytes + kOffEntries, 5);
        for (unsigned output = 0; output < kOutputs; ++output) {
            Owner& owner = game->owners[output % kOwners];
            const Owner::Change& change = owner.change;
            const bool changing = change.running && change.output == output;
            if (!(changing && change.inOn)) {
                EXPECT_EQ(on.Has(output), owner.on.Has(output)) << "on-period, output " << output;
            }
            if (!(changing && change.inOff)) {
                EXPECT_EQ(off.Has(output), owner.off.Has(output))
                    << "off-period, output " << output;
            }
        }
        const ByteString entry = segment.Bytes(kEepromEntries, 8);
        EXPECT_NE(std::find(std::begin(kEntries), std::end(kEntries), entry), std::end(kEntries))
            << "half an EEPROM entry";
        for (Owner& owner : game->owners)
            owner.change.running = false;
        for (unsigned output = 0; output < kOutputs; ++output) {
            Owner& owner = game->owners[output % kOwners];
            owner.on.Set(output, on.Has(output));
            owner.off.Set(output, off.Has(output));
        }
    }

    /** While the keeper has the library loaded, the state lasts from round to round. */
    void StartKeeper() {
        for (Owner& owner : game->owners)
            owner.on = owner.off = Pattern();
        Sweep();
        *keeperReady = *keeperLeaves = false;
        keeper.emplace([this] {
            LoadedLibrary library;
            *keeperReady = true;
            return Await([this] { return keeperLeaves->load(); }) ? 0 : 1;
        });
        EXPECT_TRUE(Await([this] { return keeperReady->load(); }));
        for (Owner& owner : game->owners)
            owner.change.running = false;
    }
    void EndKeeper() {
        *keeperLeaves = true;
        EXPECT_EQ(keeper->Wait(), 0);
        keeper.reset();
        EXPECT_EQ(FindSegment(), -1) << "the last process that had it attached removes it";
        Sweep();
    }

    InSharedMemory<Game> game;
    InSharedMemory<std::atomic<bool>> keeperReady, keeperLeaves;
    std::optional<Child> keeper;
    std::optional<Random> random;
    unsigned kills = 0;
};

TEST_F(RandomKillsTest, LoseNoBitLeaveNoLockAndMakeNothingTwice) {
    const unsigned rounds = FromEnvironment("MARVANE_KILL_ROUNDS", 400);
    const unsigned seed = FromEnvironment("MARVANE_KILL_SEED", std::random_device()());
    std::printf("seed %u, %u rounds\n", seed, rounds);
    random.emplace(seed);
    unsigned kept = 0;
    unsigned long done = 0;
    const auto start = std::chrono::steady_clock::now();
    for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round) + " of seed " + std::to_string(seed));
        if (round % 20 == 0) StartKeeper();
        if (round % 20 == 15) EndKeeper();  // five rounds in which the last one may be killed
        PlayRound();
        ExpectSoundState();
        if (keeper) {
            ExpectNoBitLost();
            ++kept;
        }
        for (Owner& owner : game->owners)
            done += owner.done.exchange(0);
    }
    if (keeper) EndKeeper();
    Sweep();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%u kills, %lu operations, %u rounds with lasting state, %.1f s\n", kills, done,
                kept, took.count());
    EXPECT_GT(done, rounds) << "hardly anything happened";
}

}  // namespace
