// SPDX-License-Identifier: Apache-2.0
// The simulator's --json documents, written with nlohmann-json.
//
// Every document is one object that starts with "schema": "extprop-sim/1" and
// "command"; its shape is docs/extprop-sim.schema.json. Property names and
// values, paths, log messages and arguments come from the device tree or the
// library: they are byte strings, not text. Each such field KEY is written
// as three keys, all present in every record:
//   KEY              the bytes as text; a byte that starts no valid UTF-8
//                    sequence becomes U+FFFD (null when the field is absent)
//   KEY_hex          the exact bytes in lowercase hex when they are not valid
//                    UTF-8, else null
//   KEY_valid_utf8   whether the bytes are valid UTF-8 (null when absent)
// A list of byte strings is a list of records {"value", "value_hex",
// "value_valid_utf8"}.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sandbox.h"

namespace extprop_sim {

using Json = nlohmann::ordered_json;

constexpr char kJsonSchemaTag[] = "extprop-sim/1";

bool IsValidUtf8(const std::string& bytes);
// |bytes| with every byte that starts no valid UTF-8 sequence replaced by U+FFFD.
std::string ReplaceInvalidUtf8(const std::string& bytes);

// Writes KEY, KEY_hex and KEY_valid_utf8 into |record|.
void PutBytes(Json* record, const std::string& key, const std::optional<std::string>& bytes);
// {"value": ..., "value_hex": ..., "value_valid_utf8": ...}
Json BytesRecord(const std::string& bytes);
Json BytesList(const std::vector<std::string>& list);
// [{"name"..., "value"...}] in name order.
Json PropertyList(const std::map<std::string, std::string>& props);

// {"schema": "extprop-sim/1", "command": command}
Json JsonDocument(const std::string& command);
// The document, indented, with a final line feed.
std::string JsonText(const Json& document);

// "verbose", "debug", "info", "warning", "error", "fatal".
const char* SeverityName(android::base::LogSeverity severity);
// One record of the library's log: step index (null outside the steps),
// severity, tag (null: the sandbox does not carry it), source file and line,
// message.
Json LogRecordJson(const sandbox::LogRecord& record, std::optional<int> step);

}  // namespace extprop_sim
