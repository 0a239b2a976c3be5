// An RS-232 device on a simulated board's serial port that speaks when it is polled.
// What it does where real devices may differ: docs/simulator.md, "The polled device".
#ifndef MARVANE_SIMULATOR_LINE_POLLED_DEVICE_H
#define MARVANE_SIMULATOR_LINE_POLLED_DEVICE_H

#include <deque>
#include <span>

#include "line/serial_frame.h"

namespace simulator {

constexpr std::size_t kPolledEventLimit = 20;    // bytes
constexpr std::size_t kPolledQueueLimit = 1000;  // events

class PolledDevice {
public:
    /// What it answers at once to what the board sent.
    SerialWords Hear(std::span<const SerialWord> words);
    /// A millisecond passes. It says nothing by itself.
    SerialWords Tick();
    bool IsIdle() const { return collector.IsEmpty(); }

    /// 1 to 20 bytes, behind those queued before. Others are ignored, and all beyond the limit.
    void Queue(std::span<const std::uint8_t> event);
    /// Muted it neither hears nor answers; events stay queued.
    void Mute(bool on);

    std::size_t QueuedEvents() const { return events.size(); }
    bool IsMuted() const { return muted; }
    unsigned RightFrames() const { return rightFrames; }
    unsigned WrongFrames() const { return wrongFrames; }

private:
    std::vector<std::uint8_t> NextEvent();

    SerialFrameCollector collector{1, 3};
    std::deque<std::vector<std::uint8_t>> events;
    bool muted = false;
    unsigned rightFrames = 0, wrongFrames = 0;
};

}  // namespace simulator

#endif
