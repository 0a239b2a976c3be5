// One simulated board: commands in, answers out, with the cabinet's hands on its other side.
#ifndef MARVANE_SIMULATOR_BOARD_BOARD_H
#define MARVANE_SIMULATOR_BOARD_BOARD_H

#include <array>

#include "board/clock.h"
#include "board/coin_pulses.h"
#include "board/contents.h"
#include "board/eeprom.h"
#include "board/hoppers.h"
#include "board/identity.h"
#include "board/inputs.h"
#include "board/memory.h"
#include "board/outputs.h"
#include "board/pulsed_inputs.h"
#include "board/random.h"
#include "board/recording.h"
#include "board/reels.h"
#include "board/spi.h"
#include "port/serial_port.h"
#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

struct BoardOptions {
    Model model = Model::kK44;
    int speedMbit = 480;             // 12 or 480
    bool firmwareRunning = false;    // at every power-up, as if the program were downloaded already
    unsigned identity = 0;           // the identity switch, 0 to 7
    std::uint32_t serialNumber = 1;  // up to 99999999: tells it from other boards of its kind
    EepromPart eeprom = EepromPart::k24LC256;
    bool eepromBlank = false;  // else it holds bytes that differ everywhere
    TimeSource time = NoTime;
    RandomSource random = SeededRandom(1);
    std::array<SerialLine, kSerialPortCount> serialLines{};
};

/// Does no I/O, starts no thread and locks nothing: a front end that is called by several
/// threads keeps their calls apart.
class Board {
public:
    explicit Board(BoardOptions options);

    /// What the board's side of the bus does with one command, now; channel counts from 1.
    Answer Handle(std::uint8_t command, std::uint32_t channel, ByteView payload);

    /// Lets happen what happens by itself up to now. To be called before the board is looked at or
    /// the cabinet acts on it.
    void Advance();

    /// Unplugged: nothing moves on the board any more, only in the cabinet.
    void PowerDown();
    /// Unplugged and plugged in again: the program and all settings are gone, what Contents holds
    /// and whatever the cabinet holds on the inputs are not.
    void PowerUp();

    BoardContents Contents() const;
    /// Gives the board what another one of its model and EEPROM part held; false, and nothing
    /// changed, when the two differ or the contents cannot be any board's.
    bool Restore(const BoardContents& contents);

    const BoardOptions& Options() const { return options; }

    // One family of commands each. The functions that take no payload are the cabinet's side.
    BoardMemory memory;
    BoardInputs inputs;
    BoardOutputs outputs;
    BoardPulsedInputs pulsedInputs;
    BoardReleases releases;
    BoardReels reels;
    BoardRecording recording;
    BoardEeprom eeprom;
    BoardIdentity identity;
    BoardClock clock;
    BoardRandom random;
    BoardSpi spi;
    std::array<BoardSerialPort, kSerialPortCount> ports;

    // What the cabinet does by itself.
    CoinPulses pulses;
    BoardHoppers hoppers;

private:
    bool IsIdle() const;
    void Tick();

    BoardOptions options;
    Moment advancedTo;
    bool powered = true;
};

}  // namespace simulator

#endif
