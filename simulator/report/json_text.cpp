// Lays out JSON values.
#include "report/json_text.h"

#include <algorithm>

namespace simulator {

using Json = nlohmann::ordered_json;

std::string TextOf(const Json& value, const std::string& indent) {
    if (!value.is_structured()) return value.dump();

    const bool isFlat = std::ranges::none_of(value, &Json::is_structured);
    const std::string inner = indent + "  ";
    std::string text;
    for (const auto& item : value.items()) {
        if (!text.empty()) text += isFlat ? ", " : ",";
        if (!isFlat) text += "\n" + inner;
        if (value.is_object()) text += Json(item.key()).dump() + ": ";
        text += TextOf(item.value(), inner);
    }
    if (!isFlat) text += "\n" + indent;
    return value.is_object() ? "{" + text + "}" : "[" + text + "]";
}

}  // namespace simulator
