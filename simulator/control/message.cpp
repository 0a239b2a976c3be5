// A socket's other end may send anything: what does not decode is refused, never believed.
#include "control/message.h"

#include <nlohmann/json.hpp>

namespace simulator {
namespace {

using Json = nlohmann::json;

// Words come from a command line, which need not be UTF-8.
std::string Line(const Json& message) {
    return message.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<Json> Parse(const std::string& line) {
    Json message = Json::parse(line, nullptr, false);
    if (message.is_discarded() || !message.is_object()) return std::nullopt;
    return message;
}

}  // namespace

std::string EncodeRequest(const std::vector<std::string>& words) {
    return Line({{"words", words}});
}

std::string EncodeAnswer(const ControlAnswer& answer) {
    return Line({{"result", static_cast<int>(answer.result)}, {"text", answer.text}});
}

std::optional<std::vector<std::string>> DecodeRequest(const std::string& line) {
    const auto message = Parse(line);
    if (!message || !message->contains("words") || !message->at("words").is_array()) return {};

    std::vector<std::string> words;
    for (const Json& word : message->at("words")) {
        if (!word.is_string()) return {};
        words.push_back(word.get<std::string>());
    }
    return words;
}

std::optional<ControlAnswer> DecodeAnswer(const std::string& line) {
    const auto message = Parse(line);
    if (!message) return {};
    const Json result = message->value("result", Json());
    const Json text = message->value("text", Json());
    if (!result.is_number_integer() || !text.is_string()) return {};

    const auto code = result.get<std::int64_t>();
    if (code < kDone || code > kWrongUsage) return {};
    return ControlAnswer{static_cast<ControlResult>(code), text.get<std::string>()};
}

}  // namespace simulator
