// JSON for people: lists and records of plain values take one line each, all else is indented.
#ifndef MARVANE_SIMULATOR_REPORT_JSON_TEXT_H
#define MARVANE_SIMULATOR_REPORT_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <string>

namespace simulator {

std::string TextOf(const nlohmann::ordered_json& value, const std::string& indent = "");

}  // namespace simulator

#endif
