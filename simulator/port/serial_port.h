// One of the board's serial ports, with the line and what hangs on it.
// What it does where boards may differ: docs/simulator.md, "Serial ports".
#ifndef MARVANE_SIMULATOR_PORT_SERIAL_PORT_H
#define MARVANE_SIMULATOR_PORT_SERIAL_PORT_H

#include <optional>

#include "line/line_end.h"
#include "port/polls.h"
#include "port/sas.h"
#include "terms/answer.h"
#include "terms/time.h"

namespace simulator {

constexpr std::size_t kSerialPortCount = 2;

/// As the application sent it.
struct SerialSetting {
    std::uint8_t type, parityCode, flagBits2And3, flagBit1;
    std::uint8_t rate[2];
};

class BoardSerialPort {
public:
    BoardSerialPort(std::size_t portNumber, Model model, int speedMbit, SerialLine serialLine);

    Answer Configure(ByteView payload);
    // The others are for a port that is configured.
    Answer Send(ByteView payload);
    Answer Receive(ByteView payload);
    Answer ReportParityErrors(ByteView payload);
    Answer ReceiveWithTimestamps(ByteView payload);

    // What the board does on the line by itself; for a port that is configured.
    BoardPolls polls;
    BoardSas sas;

    /// Words come over the line, beside what hangs on it.
    void Feed(std::span<const SerialWord> words);
    void FeedParityErrors(unsigned count);
    /// What the board sent, where nothing on the line heard it.
    SerialWords TakeSent();
    // The same in bytes, as commands hold them; half a word is left.
    void FeedBytes(std::vector<std::uint8_t>& bytes);
    std::vector<std::uint8_t> TakeSentBytes();
    void Attach(SerialLine newLine);

    const std::optional<SerialSetting>& Setting() const { return setting; }
    bool HasNineBits() const;
    SerialLine Line() const { return line; }
    LineDevice& Device() { return device; }
    const LineDevice& Device() const { return device; }
    std::size_t ReceivedWords() const { return received.Size(); }
    std::size_t SentWords() const;
    /// Words that came while there was no room or nobody to hear them, and those that were sent
    /// and never taken.
    std::size_t DroppedWords() const;
    std::uint16_t ParityErrors() const { return parityErrors; }

    void PowerDown() { powered = false; }
    void PowerUp();

    /// What happens from here on happens at this moment.
    void SetTime(Moment moment) { now = moment; }
    bool IsIdle() const;
    /// A millisecond passes.
    void Tick();

private:
    struct Received {
        SerialWord word;
        std::uint8_t timestamp;
    };

    bool IsListening() const { return powered && setting.has_value(); }
    std::uint8_t Timestamp() const;
    void PutOnLine(SerialWords words);
    SerialWords Hear(std::span<const SerialWord> words);
    std::size_t WordSize() const { return HasNineBits() ? 2 : 1; }
    SerialWords WordsIn(ByteView bytes) const;
    void AppendWord(std::vector<std::uint8_t>& bytes, SerialWord word) const;

    std::size_t number;
    std::size_t sendLimit, replyLimit;
    bool powered = true;
    Moment now;

    std::optional<SerialSetting> setting;
    BoundedQueue<Received, kLineQueueLimit> received;
    std::size_t unheard = 0;
    std::uint16_t parityErrors = 0;

    SerialLine line;
    LineDevice device;
};

}  // namespace simulator

#endif
