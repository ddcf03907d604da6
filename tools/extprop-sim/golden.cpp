// SPDX-License-Identifier: Apache-2.0
#include "golden.h"

#include <fnmatch.h>

#include <map>
#include <regex>

#include "printable.h"

namespace extprop_sim {
namespace {

// |object|'s member |key|, or null: a golden file is the user's, and may lack any.
const Json& At(const Json& object, const std::string& key) {
    static const Json kNull;
    if (!object.is_object()) return kNull;
    const auto it = object.find(key);
    return it == object.end() ? kNull : *it;
}

bool Ignored(const std::vector<std::string>& ignored, const Json& text) {
    if (!text.is_string()) return false;
    const std::string value = text.get<std::string>();
    for (const std::string& glob : ignored) {
        if (fnmatch(glob.c_str(), value.c_str(), 0) == 0) return true;
    }
    return false;
}

// Drops the records of |list| whose |key| an ignore glob matches.
void DropIgnored(Json* list, const char* key, const std::vector<std::string>& ignored) {
    if (!list->is_array()) return;
    Json kept = Json::array();
    for (Json& record : *list) {
        if (!Ignored(ignored, At(record, key))) kept.push_back(std::move(record));
    }
    *list = std::move(kept);
}

// A byte field as the text report shows it: exact bytes when they are not UTF-8.
std::string Shown(const Json& record, const std::string& key) {
    const Json& hex = At(record, key + "_hex");
    if (hex.is_string()) return "hex:" + hex.get<std::string>();
    const Json& text = At(record, key);
    return text.is_string() ? "\"" + Printable(text.get<std::string>()) + "\"" : "(none)";
}

// name -> how it is shown, for a list of name/value records.
std::map<std::string, std::string> ValuesByName(const Json& list) {
    std::map<std::string, std::string> values;
    if (!list.is_array()) return values;
    for (const Json& record : list) {
        std::string shown = Shown(record, "value");
        if (At(record, "effect").is_string()) {
            shown += " (" + At(record, "effect").get<std::string>() + ")";
        }
        values[Shown(record, "name")] = shown;
    }
    return values;
}

void CompareValues(const std::string& where, const std::map<std::string, std::string>& golden,
                   const std::map<std::string, std::string>& now,
                   std::vector<std::string>* differences) {
    for (const auto& [name, value] : golden) {
        const auto it = now.find(name);
        if (it == now.end()) {
            differences->push_back(where + ": " + name + ": only golden: " + value);
        } else if (it->second != value) {
            differences->push_back(where + ": " + name + ": golden " + value + ", now " +
                                   it->second);
        }
    }
    for (const auto& [name, value] : now) {
        if (golden.count(name) == 0) {
            differences->push_back(where + ": " + name + ": only now: " + value);
        }
    }
}

// Each batch's entries under its place, "step 2 slot 6
// loadPersistOverrideProperties kind 2" (with "#2"... for a step's further
// batches of that slot and kind), in the document's order.
using Places = std::vector<std::pair<std::string, std::map<std::string, std::string>>>;
Places BatchesByPlace(const Json& batches) {
    Places places;
    std::map<std::string, int> seen;
    if (!batches.is_array()) return places;
    for (const Json& batch : batches) {
        std::string place = "step " + At(batch, "step").dump();
        if (!At(batch, "slot").is_null()) place += " slot " + At(batch, "slot").dump();
        if (At(batch, "operation").is_string()) {
            place += " " + At(batch, "operation").get<std::string>();
        }
        place += At(batch, "kind").is_null() ? " map" : " kind " + At(batch, "kind").dump();
        if (const int n = seen[place]++; n != 0) place += " #" + std::to_string(n + 1);
        places.emplace_back(place, ValuesByName(At(batch, "entries")));
    }
    return places;
}

const std::map<std::string, std::string>* Find(const Places& places, const std::string& place) {
    for (const auto& [name, entries] : places) {
        if (name == place) return &entries;
    }
    return nullptr;
}

std::map<std::string, std::string> StepsByIndex(const Json& steps) {
    std::map<std::string, std::string> shown;
    if (!steps.is_array()) return shown;
    for (const Json& step : steps) {
        shown["step " + At(step, "step").dump()] =
                Shown(step, "description") + " -> " + Shown(step, "result");
    }
    return shown;
}

// Log records counted by "severity message".
std::map<std::string, int> LogCounts(const Json& log) {
    std::map<std::string, int> counts;
    if (!log.is_array()) return counts;
    for (const Json& record : log) {
        const Json& severity = At(record, "severity");
        counts[(severity.is_string() ? severity.get<std::string>() : severity.dump()) + " " +
               Shown(record, "message")]++;
    }
    return counts;
}

// |text| without the prefix |dir|/ wherever it starts a word.
void StripDir(Json* text, const std::string& dir) {
    if (dir.empty() || !text->is_string()) return;
    std::string value = text->get<std::string>();
    const std::string prefix = dir + "/";
    for (size_t at = value.find(prefix); at != std::string::npos; at = value.find(prefix, at)) {
        if (at == 0 || value[at - 1] == ' ') {
            value.erase(at, prefix.size());
        } else {
            at += prefix.size();
        }
    }
    *text = value;
}

}  // namespace

Json NormalizedBootDocument(Json document, const std::vector<std::string>& ignored,
                            const std::string& script_dir) {
    static const std::regex kTiming("took [0-9]+ms");
    if (!document.is_object()) return document;
    for (Json& step : document["steps"]) {
        if (!step.is_object()) continue;
        StripDir(&step["description"], script_dir);
        for (Json& arg : step["args"]) {
            if (arg.is_object()) StripDir(&arg["value"], script_dir);
        }
    }
    for (Json& record : document["log"]) {
        if (!record.is_object()) continue;
        record["line"] = nullptr;
        if (record["message"].is_string()) {
            record["message"] = std::regex_replace(record["message"].get<std::string>(), kTiming,
                                                   "took ...ms");
        }
    }
    DropIgnored(&document["log"], "message", ignored);
    DropIgnored(&document["properties"], "name", ignored);
    DropIgnored(&document["seeded"], "name", ignored);
    for (Json& batch : document["batches"]) {
        if (batch.is_object()) DropIgnored(&batch["entries"], "name", ignored);
    }
    return document;
}

std::vector<std::string> GoldenDifferences(const Json& golden, const Json& now) {
    std::vector<std::string> differences;
    for (const char* key : {"host", "property_contexts"}) {
        if (At(golden, key) != At(now, key)) {
            differences.push_back(std::string(key) + ": golden " + Printable(At(golden, key).dump()) +
                                  ", now " + Printable(At(now, key).dump()));
        }
    }
    CompareValues("seeded", ValuesByName(At(golden, "seeded")), ValuesByName(At(now, "seeded")),
                  &differences);
    CompareValues("steps", StepsByIndex(At(golden, "steps")), StepsByIndex(At(now, "steps")),
                  &differences);
    const auto golden_batches = BatchesByPlace(At(golden, "batches"));
    const auto now_batches = BatchesByPlace(At(now, "batches"));
    for (const auto& [place, entries] : golden_batches) {
        if (const auto* now_entries = Find(now_batches, place)) {
            CompareValues(place, entries, *now_entries, &differences);
        } else {
            differences.push_back(place + ": only golden, " + std::to_string(entries.size()) +
                                  " entries");
        }
    }
    for (const auto& [place, entries] : now_batches) {
        if (Find(golden_batches, place) == nullptr) {
            differences.push_back(place + ": only now, " + std::to_string(entries.size()) +
                                  " entries");
        }
    }
    CompareValues("after boot", ValuesByName(At(golden, "properties")),
                  ValuesByName(At(now, "properties")), &differences);
    const auto golden_log = LogCounts(At(golden, "log"));
    const auto now_log = LogCounts(At(now, "log"));
    for (const auto& [record, count] : golden_log) {
        const auto it = now_log.find(record);
        const int now_count = it == now_log.end() ? 0 : it->second;
        if (now_count < count) differences.push_back("log: only golden: " + record);
    }
    for (const auto& [record, count] : now_log) {
        const auto it = golden_log.find(record);
        const int golden_count = it == golden_log.end() ? 0 : it->second;
        if (golden_count < count) differences.push_back("log: only now: " + record);
    }
    return differences;
}

}  // namespace extprop_sim
