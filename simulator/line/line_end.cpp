// Names and makes what hangs on serial lines.
#include "line/line_end.h"

#include <utility>

namespace simulator {
namespace {

constexpr std::pair<SerialLine, const char*> kNames[] = {
    {SerialLine::kNone, "none"},     {SerialLine::kLoop, "loop"},
    {SerialLine::kTerminal, "pty"},  {SerialLine::kCctalk, "cctalk"},
    {SerialLine::kPolled, "polled"}, {SerialLine::kSas, "sas"},
};

}  // namespace

const char* NameOfLine(SerialLine line) {
    return std::ranges::find(kNames, line, [](const auto& entry) { return entry.first; })->second;
}

std::optional<SerialLine> SerialLineNamed(std::string_view name) {
    for (const auto& [line, itsName] : kNames) {
        if (name == itsName) return line;
    }
    return std::nullopt;
}

std::string SerialLineNames() {
    std::string names;
    for (const auto& [line, itsName] : kNames)
        names.append(names.empty() ? "" : ", ").append(itsName);
    return names;
}

SerialWords OpenEnd::Hear(std::span<const SerialWord> words) {
    for (const SerialWord word : words)
        sent.Push(word);
    return {};
}

LineDevice DeviceFor(SerialLine line) {
    switch (line) {
        case SerialLine::kLoop:
            return Loop();
        case SerialLine::kCctalk:
            return CctalkAcceptor();
        case SerialLine::kPolled:
            return PolledDevice();
        case SerialLine::kSas:
            return SasHost();
        case SerialLine::kNone:
        case SerialLine::kTerminal:
            break;
    }
    return OpenEnd();
}

}  // namespace simulator
