// Frames on a serial line that tell their own length, put together word by word.
#ifndef MARVANE_SIMULATOR_LINE_SERIAL_FRAME_H
#define MARVANE_SIMULATOR_LINE_SERIAL_FRAME_H

#include <chrono>
#include <cstddef>
#include <optional>

#include "line/serial_line.h"

namespace simulator {

using SerialFrame = std::vector<std::uint8_t>;

/// A frame has frame[lengthOffset] + lengthExtra bytes, and ends with its length byte at the
/// earliest.
class SerialFrameCollector {
public:
    SerialFrameCollector(std::size_t lengthByteAt, std::size_t bytesBeside)
        : lengthOffset(lengthByteAt), lengthExtra(bytesBeside) {}

    /// The frame that this word ends. The ninth bit is not looked at.
    std::optional<SerialFrame> Take(SerialWord word);
    /// A millisecond passes. True when it drops an unfinished frame: the 50th without a word.
    bool Tick();
    void Clear() { frame.clear(); }

    /// No frame is unfinished.
    bool IsEmpty() const { return frame.empty(); }

private:
    std::size_t lengthOffset, lengthExtra;
    SerialFrame frame;
    std::chrono::milliseconds silence{0};
};

}  // namespace simulator

#endif
