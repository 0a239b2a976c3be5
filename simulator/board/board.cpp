// Puts the families of a board together, and lets time pass for them.
#include "board/board.h"

#include <algorithm>
#include <utility>

#include "board/command_table.h"

namespace simulator {
namespace {

BoardSerialPort PortOf(const BoardOptions& options, std::size_t port) {
    return {port, options.model, options.speedMbit, options.serialLines[port]};
}

}  // namespace

Board::Board(BoardOptions boardOptions)
    : memory(boardOptions.model, boardOptions.speedMbit),
      outputs(boardOptions.time),
      eeprom(boardOptions.eeprom, boardOptions.eepromBlank),
      identity(boardOptions.serialNumber),
      clock(boardOptions.time),
      random(boardOptions.random),
      ports{PortOf(boardOptions, 0), PortOf(boardOptions, 1)},
      options(std::move(boardOptions)),
      advancedTo(options.time()) {
    inputs.SetIdentity(options.identity);
    PowerUp();
}

Answer Board::Handle(std::uint8_t command, std::uint32_t channel, ByteView payload) {
    Advance();
    return Dispatch(*this, command, channel, payload);
}

void Board::Advance() {
    const Moment now = options.time();
    reels.Advance(now - advancedTo);
    while (advancedTo < now && !IsIdle()) {
        advancedTo += kTick;
        Tick();
    }
    advancedTo = now;
    for (BoardSerialPort& port : ports)
        port.SetTime(now);
}

bool Board::IsIdle() const {
    if (!pulses.IsIdle() || !std::ranges::all_of(ports, &BoardSerialPort::IsIdle)) return false;
    return !powered ||
           (recording.IsIdle() && pulsedInputs.IsIdle(inputs) && releases.IsIdle(inputs));
}

// The cabinet first: the board sees what has just happened there.
void Board::Tick() {
    hoppers.Tick(releases, pulses);
    pulses.Tick(inputs);
    for (BoardSerialPort& port : ports) {
        port.SetTime(advancedTo);
        port.Tick();
    }
    if (!powered) return;
    pulsedInputs.Tick(inputs);
    releases.Tick(inputs, outputs);
    recording.Tick(inputs, memory);
}

void Board::PowerDown() {
    Advance();
    powered = false;
    outputs.PowerDown();
    pulsedInputs.PowerDown();
    releases.PowerDown();
    reels.PowerDown();
    recording.PowerDown();
    for (BoardSerialPort& port : ports)
        port.PowerDown();
}

void Board::PowerUp() {
    PowerDown();
    powered = true;
    memory.PowerUp(options.firmwareRunning);
    inputs.PowerUp();
    outputs.PowerUp();
    clock.PowerUp();
    random.PowerUp();
    spi.PowerUp();
    for (BoardSerialPort& port : ports)
        port.PowerUp();
}

BoardContents Board::Contents() const {
    const ByteView memoryBytes = memory.Contents();
    const ByteView eepromBytes = eeprom.Chip().Contents();
    return {
        .model = options.model,
        .eepromPart = options.eeprom,
        .memory = {memoryBytes.begin(), memoryBytes.end()},
        .eepromSetting = eeprom.Setting(),
        .eeprom = {eepromBytes.begin(), eepromBytes.end()},
        .clock = clock.Contents(),
        .picSerial = identity.PicSerial(),
    };
}

bool Board::Restore(const BoardContents& contents) {
    if (contents.model != options.model || contents.eepromPart != options.eeprom) return false;

    // On a copy, so that contents which one family refuses change no other.
    Board restored = *this;
    if (!restored.memory.Restore(contents.memory) ||
        !restored.eeprom.Restore(contents.eepromSetting, contents.eeprom) ||
        !restored.clock.Restore(contents.clock)) {
        return false;
    }
    restored.identity.Restore(contents.picSerial);
    *this = std::move(restored);
    return true;
}

}  // namespace simulator
