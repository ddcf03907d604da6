// SPDX-License-Identifier: Apache-2.0
// A minimal JSON writer for the simulator's --json output.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace extprop_sim {

// A JSON string literal. Bytes that aren't valid UTF-8 are written as \u00XX.
std::string JsonString(const std::string& text);
std::string JsonObject(const std::map<std::string, std::string>& map, const std::string& indent);
std::string JsonArray(const std::vector<std::string>& items);

}  // namespace extprop_sim
