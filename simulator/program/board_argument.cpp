// Reads "--board" arguments.
#include "program/board_argument.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>

#include "driver/device.h"

namespace simulator {
namespace {

struct Request {
    int number = -1;  // none asked for
    BoardOptions board{};
};

[[noreturn]] void Refuse(const std::string& text, const std::string& why) {
    throw std::invalid_argument("--board " + text + ": " + why);
}

// Takes the separator and what follows it off the text; nothing where there is none.
std::optional<std::string> CutFrom(std::string& text, const std::string& separator) {
    const auto place = text.find(separator);
    if (place == std::string::npos) return std::nullopt;
    std::string rest = text.substr(place + separator.size());
    text.resize(place);
    return rest;
}

std::optional<int> Number(const std::string& text) {
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

// The parts between colons. One without an "=" belongs to the one before, as "blank" does.
std::vector<std::string> PartsOf(const std::string& text) {
    std::vector<std::string> parts;
    std::string rest = text;
    while (true) {
        const auto next = CutFrom(rest, ":");
        if (parts.empty() || rest.find('=') != std::string::npos) {
            parts.push_back(rest);
        } else {
            parts.back() += ":" + rest;
        }
        if (!next) return parts;
        rest = *next;
    }
}

void ParseIdentity(const std::string& text, const std::string& identity, BoardOptions& board) {
    const auto number = Number(identity);
    if (!number || *number < 0 || *number >= static_cast<int>(kIdentityCount)) {
        Refuse(text, "identities are 0 to 7");
    }
    board.identity = static_cast<unsigned>(*number);
}

void ParseSetting(const std::string& text, const std::string& setting, BoardOptions& board) {
    std::string name = setting;
    const std::string value = CutFrom(name, "=").value_or("");
    if (name == "id") {
        ParseIdentity(text, value, board);
    } else if (name == "eeprom") {
        ParseEeprom(value, board);
    } else if (name.starts_with("serial")) {
        ParseSerialLine(setting.substr(std::strlen("serial")), board);
    } else {
        Refuse(text, "there is no setting " + name);
    }
}

Request ParseBoard(const std::string& text, const BoardOptions& common) {
    Request request{.board = common};
    const std::vector<std::string> parts = PartsOf(text);
    for (const std::string& setting : std::span(parts).subspan(1))
        ParseSetting(text, setting, request.board);
    std::string rest = parts.front();
    if (const auto speed = CutFrom(rest, "@")) {
        if (*speed != "12" && *speed != "480") Refuse(text, "the speed is 12 or 480 (Mbit/s)");
        request.board.speedMbit = *speed == "12" ? 12 : 480;
    }
    if (auto model = CutFrom(rest, "=")) {
        const auto number = Number(rest);
        if (!number || *number < 0 || *number >= kDeviceCount) {
            Refuse(text, "device numbers are 0 to 15");
        }
        request.number = *number;
        rest = *model;
    }
    const auto model = std::ranges::find(kModels, rest, ModelWord);
    if (model == kModels.end()) {
        Refuse(text,
               "the models are k40, k44 and k50, as in k44, k40@12 or 5=k50:id=3:eeprom=24LC64");
    }
    request.board.model = *model;
    return request;
}

std::string PartNames() {
    std::string names;
    for (const EepromFacts& part : EepromParts())
        names.append(" ").append(part.name);
    return names;
}

int LowestFree(const std::map<int, BoardOptions>& boards) {
    int number = 0;
    while (boards.contains(number))
        ++number;
    return number;
}

}  // namespace

void ParseEeprom(const std::string& text, BoardOptions& board) {
    std::string name = text;
    const auto blank = CutFrom(name, ":");
    const auto part = EepromPartNamed(name);
    if (!part || (blank && *blank != "blank")) {
        throw std::invalid_argument("EEPROM " + text + ": the parts are" + PartNames() +
                                    ", each with :blank behind it or without");
    }
    board.eeprom = *part;
    board.eepromBlank = blank.has_value();
}

void ParseSerialLine(const std::string& text, BoardOptions& board) {
    std::string port = text;
    const std::string name = CutFrom(port, "=").value_or("");
    const auto line = SerialLineNamed(name);
    if ((port != "0" && port != "1") || !line) {
        throw std::invalid_argument("serial line " + text +
                                    ": the ports are 0 and 1, and on them " + SerialLineNames() +
                                    ", as in 0=loop");
    }
    board.serialLines[port == "0" ? 0 : 1] = *line;
}

std::map<int, BoardOptions> ParseBoards(const std::vector<std::string>& texts,
                                        const BoardOptions& common) {
    if (texts.size() > kDeviceCount) throw std::invalid_argument("more than 16 boards");

    std::map<int, BoardOptions> boards;
    std::vector<BoardOptions> unnumbered;
    for (const std::string& text : texts) {
        const Request request = ParseBoard(text, common);
        if (request.number < 0) {
            unnumbered.push_back(request.board);
        } else if (!boards.emplace(request.number, request.board).second) {
            Refuse(text, "another board has this number");
        }
    }
    for (const BoardOptions& board : unnumbered)
        boards.emplace(LowestFree(boards), board);
    for (auto& [number, board] : boards)
        board.serialNumber = static_cast<std::uint32_t>(number) + 1;
    return boards;
}

}  // namespace simulator
