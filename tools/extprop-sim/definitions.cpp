// SPDX-License-Identifier: Apache-2.0
#include "definitions.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "explain_derived.h"
#include "init_sink.h"
#include "utils.h"

namespace extprop_sim {
namespace {

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// What one file defines, line by line: name -> (line, value) in file order.
using FileLines = std::map<std::string, std::vector<std::pair<size_t, std::string>>>;

// The names and values come from the library's parser (the "*" filter takes
// every name and follows no import: each imported file has its own record).
// The parser tells no lines, so each name is looked up among the lines of
// the form "name = value"; the last such line is the one whose value the
// parser kept.
FileLines DefinedLines(const std::string& content) {
    FileLines lines;
    TemporaryFile copy;
    PropertyMap parsed;
    // The parser's warnings about the copy are the boot's own records already.
    android::base::ScopedLogSeverity quiet(android::base::ERROR);
    if (!android::base::WriteStringToFd(content, copy.fd) ||
        !load_properties_from_file_without_se(copy.path, "*", &parsed)) {
        return lines;
    }
    size_t number = 0;
    for (size_t begin = 0; begin < content.size();) {
        size_t end = content.find('\n', begin);
        if (end == std::string::npos) end = content.size();
        ++number;
        size_t first = begin;
        while (first < end && IsBlank(content[first])) ++first;
        const size_t equals = content.find('=', first);
        if (first < end && content[first] != '#' && equals < end) {
            size_t name_end = equals;
            while (name_end > first && IsBlank(content[name_end - 1])) --name_end;
            std::string name = content.substr(first, name_end - first);
            if (parsed.count(name) != 0) {
                size_t value_begin = equals + 1, value_end = end;
                while (value_begin < end && IsBlank(content[value_begin])) ++value_begin;
                while (value_end > value_begin && IsBlank(content[value_end - 1])) --value_end;
                lines[name].emplace_back(number,
                                         content.substr(value_begin, value_end - value_begin));
            }
        }
        begin = end + 1;
    }
    for (auto& [name, value] : parsed) {
        auto& found = lines[name];
        if (found.empty()) found.emplace_back(0, value);  // a line no lookup matches
        found.back().second = value;                      // the parser's word is final
    }
    return lines;
}

// The file as one partition's file, whichever mount point and spelling the
// library read it by: "/mnt/vendor/my_region//a.prop" -> "/my_region/a.prop".
std::string CollapseSlashes(const std::string& file) {
    std::string path;
    for (const char c : file) {
        if (c != '/' || path.empty() || path.back() != '/') path += c;
    }
    return path;
}

std::string CanonicalPath(const std::string& file) {
    return PartitionPath(CollapseSlashes(file));
}

// One load of a definition in the boot, in load order: which definition, which step.
struct Occurrence {
    size_t definition;
    int step;
};

// Picks the definition that gave what init holds, from the last batch that
// set the final value: the last one loaded in that batch's step with the
// batch's value, else the last one loaded before it with that value.
void FindWinner(const sandbox::Outcome& outcome, const std::string& name,
                const std::vector<Occurrence>& occurrences, PropertyDefinitions* property) {
    auto final_value = outcome.properties.find(name);
    if (final_value != outcome.properties.end()) property->final_value = final_value->second;
    bool carried = false;
    for (size_t b = outcome.batches.size(); b-- > 0;) {
        auto it = outcome.batches[b].props.find(name);
        if (it == outcome.batches[b].props.end()) continue;
        carried = true;
        if (RefusalOf(outcome, b, name)) continue;
        if (it->second == property->final_value) property->batch = b;
        break;
    }
    if (property->batch) {
        const int step = StepIndex(outcome.batches[*property->batch].step);
        const Occurrence* best = nullptr;
        for (const Occurrence& occurrence : occurrences) {
            if (occurrence.step > step ||
                property->definitions[occurrence.definition].value != *property->final_value) {
                continue;
            }
            if (best == nullptr || (occurrence.step == step) >= (best->step == step)) {
                best = &occurrence;
            }
        }
        if (best != nullptr) property->winner = best->definition;
    }
    for (size_t d = 0; d < property->definitions.size(); ++d) {
        Definition& definition = property->definitions[d];
        definition.state = !carried                ? Definition::State::kNotHandedOver
                           : property->winner == d ? Definition::State::kWins
                           : definition.value == property->final_value
                                   ? Definition::State::kSameValue
                                   : Definition::State::kShadowed;
    }
}

}  // namespace

void RecordEveryLoadedFile(BootConfig* config, LoadedFiles* loaded) {
    config->verbose = true;
    config->echo_logs = true;  // into the memory file of |loaded|, in the device
    config->before_steps = [loaded](sandbox::Context& ctx) {
        if (!loaded->Start()) ctx.Note("loaded files", strerror(errno));
    };
    config->after_step = [loaded](sandbox::Context& ctx, size_t) { loaded->CaptureAfterStep(ctx); };
}

void DropVerboseRecords(sandbox::Outcome* outcome) {
    auto& logs = outcome->logs;
    logs.erase(std::remove_if(logs.begin(), logs.end(),
                              [](const sandbox::LogRecord& record) {
                                  return record.severity == android::base::VERBOSE;
                              }),
               logs.end());
}

DefinitionsModel BuildDefinitions(const BootResult& result) {
    const sandbox::Outcome& outcome = result.outcome;
    DefinitionsModel model;
    if (auto failed = outcome.notes.find("loaded files"); failed != outcome.notes.end()) {
        fprintf(stderr, "extprop-sim: the files the boot loaded can't be read back (%s)\n",
                failed->second.c_str());
    }
    std::map<const std::string*, FileLines> parsed;  // by content: a file repeats
    std::map<std::string, std::vector<Occurrence>> occurrences;
    size_t load = 0;
    for (const sandbox::LogRecord& record : outcome.logs) {
        const std::string& message = record.message;
        const size_t took = message.rfind(kLoadedSuffix);
        if (!android::base::StartsWith(message, kLoadedPrefix) || took == std::string::npos) {
            continue;
        }
        const size_t this_load = load++;
        const std::string file =
                message.substr(strlen(kLoadedPrefix), took - strlen(kLoadedPrefix));
        if (auto size = LoadedFiles::LeftOut(outcome, this_load)) {
            model.left_out.emplace_back(file, *size);
            continue;
        }
        const std::string* content = LoadedFiles::Find(outcome, this_load);
        if (content == nullptr) continue;
        auto [lines, fresh] = parsed.try_emplace(content);
        if (fresh) lines->second = DefinedLines(*content);
        const int step = StepIndex(record.step);
        const std::string canonical = CanonicalPath(file);
        for (const auto& [name, defined] : lines->second) {
            PropertyDefinitions& property = model.properties[name];
            for (const auto& [line, value] : defined) {
                // The same line met again (the other mount point, a later
                // operation) is one definition.
                auto same = std::find_if(property.definitions.begin(), property.definitions.end(),
                                         [&](const Definition& d) {
                                             return d.line == line && d.value == value &&
                                                    CanonicalPath(d.file) == canonical;
                                         });
                if (same == property.definitions.end()) {
                    property.definitions.push_back({file, {}, line, value, {}});
                    same = property.definitions.end() - 1;
                } else if (CollapseSlashes(same->file) != CollapseSlashes(file) &&
                           std::find(same->also_as.begin(), same->also_as.end(), file) ==
                                   same->also_as.end()) {
                    same->also_as.push_back(file);  // the other mount point
                }
                if (same->steps.empty() || same->steps.back() != step) same->steps.push_back(step);
                occurrences[name].push_back(
                        {static_cast<size_t>(same - property.definitions.begin()), step});
            }
        }
    }
    for (auto& [name, property] : model.properties) {
        FindWinner(outcome, name, occurrences[name], &property);
    }
    return model;
}

std::string PartitionOf(const std::string& file) {
    const std::string path = CanonicalPath(file);
    const size_t end = path.find('/', 1);
    return path.substr(1, end == std::string::npos ? std::string::npos : end - 1);
}

std::string Place(const Definition& definition) {
    return definition.line == 0 ? definition.file
                                : definition.file + ":" + std::to_string(definition.line);
}

const char* StateName(Definition::State state) {
    switch (state) {
        case Definition::State::kWins:
            return "wins";
        case Definition::State::kSameValue:
            return "same value";
        case Definition::State::kShadowed:
            return "shadowed";
        case Definition::State::kNotHandedOver:
            return "not handed to init";
    }
    return "";
}

}  // namespace extprop_sim
