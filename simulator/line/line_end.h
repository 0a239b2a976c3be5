// What hangs on the other end of a board's serial lines.
//
// Every device is copied with its board and has the same three functions: what it answers at once
// to what the board sent, what it says by itself when a millisecond passes, and whether it says
// nothing by itself. Devices keep their state when the board loses its power.
#ifndef MARVANE_SIMULATOR_LINE_LINE_END_H
#define MARVANE_SIMULATOR_LINE_LINE_END_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "line/cctalk_acceptor.h"
#include "line/polled_device.h"
#include "line/sas_host.h"
#include "line/serial_line.h"
#include "terms/bounded_queue.h"

namespace simulator {

constexpr std::size_t kLineQueueLimit = 65536;  // words that wait on one side of a line

enum class SerialLine {
    kNone,      // the cabinet feeds and drains
    kLoop,      // everything comes back
    kTerminal,  // a pseudo-terminal
    kCctalk,    // a coin acceptor
    kPolled,    // an RS-232 device that speaks when it is polled
    kSas,       // a SAS host
};

/// As the command line, the control channel and the state call it.
const char* NameOfLine(SerialLine line);
std::optional<SerialLine> SerialLineNamed(std::string_view name);
/// All of them, for people: "none, loop, ...".
std::string SerialLineNames();

/// Nothing that answers: what the board sends waits until somebody takes it.
class OpenEnd {
public:
    SerialWords Hear(std::span<const SerialWord> words);
    static SerialWords Tick() { return {}; }
    static bool IsIdle() { return true; }

    BoundedQueue<SerialWord, kLineQueueLimit> sent;
};

class Loop {
public:
    static SerialWords Hear(std::span<const SerialWord> words) {
        return {words.begin(), words.end()};
    }
    static SerialWords Tick() { return {}; }
    static bool IsIdle() { return true; }
};

using LineDevice = std::variant<OpenEnd, Loop, CctalkAcceptor, PolledDevice, SasHost>;

LineDevice DeviceFor(SerialLine line);

}  // namespace simulator

#endif
