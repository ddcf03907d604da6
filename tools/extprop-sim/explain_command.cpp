// SPDX-License-Identifier: Apache-2.0
// explain NAME --root DIR [--json]: the history of one property through a boot.
//
// The parser logs each file it has loaded ("(Loading properties from F took
// Nms.)", at VERBOSE, after the file's own lines and after the files it
// imports) and each value it replaces ("Overriding previous ..."). Which file
// replaced a value is found by reading the files of that step that were
// loaded after the message with the library's own parser: the first one that
// sets the new value is the one that logged it (an importing file finishes
// after the files it imports). Files are read as the step left them, since
// the library writes key files and mounts COTA content over partitions.

#include <cstdio>
#include <cstring>
#include <optional>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "boot_options.h"
#include "commands.h"
#include "explain_derived.h"
#include "file_history.h"
#include "init_sink.h"
#include "json.h"
#include "printable.h"
#include "report.h"
#include "utils.h"

namespace extprop_sim {
namespace {

// One file that set the property while the parser loaded it.
struct Definition {
    size_t record;  // index of its "Loading properties" record
    size_t load;    // which "Loading properties" record it is, from 0
    std::string step;
    std::string file;
    std::string value;
    std::vector<std::string> overridden;
};

// The value |content| gives |name| by the library's parser, imports aside.
std::optional<std::string> OwnValue(const std::string& content, const std::string& name) {
    TemporaryFile copy;
    PropertyMap props;
    if (content.find(name) == std::string::npos ||
        !android::base::WriteStringToFd(content, copy.fd) ||
        !load_properties_from_file_without_se(copy.path, name.c_str(), &props) ||
        props.count(name) == 0) {
        return std::nullopt;
    }
    return props[name];
}

// The files that set |name| when the parser loaded them, in the order it
// finished them.
std::vector<Definition> LoadedDefinitions(const sandbox::Outcome& outcome,
                                          const std::string& name) {
    std::vector<Definition> definitions;
    size_t load = 0;
    for (size_t i = 0; i < outcome.logs.size(); ++i) {
        const sandbox::LogRecord& record = outcome.logs[i];
        const std::string& message = record.message;
        const size_t begin = strlen(kLoadedPrefix);
        const size_t took = message.rfind(kLoadedSuffix);
        if (!android::base::StartsWith(message, kLoadedPrefix) || took == std::string::npos) {
            continue;
        }
        const std::string file = message.substr(begin, took - begin);
        const auto content = LoadedFiles::Content(outcome, load);
        if (auto value = content ? OwnValue(*content, name) : std::nullopt) {
            definitions.push_back({i, load, record.step, file, *value, {}});
        }
        ++load;
    }
    return definitions;
}

// Gives each of the parser's override messages about |name| to the file that
// logged it: the first file of the same step finished after the message that
// sets the new value (or, failing that, the first one finished after it).
void AttributeOverrides(const sandbox::Outcome& outcome, const std::string& name,
                        std::vector<Definition>* definitions) {
    const std::string prefix = "Overriding previous 'ro.' property '" + name + "':'";
    const std::string middle = "' with new value '";
    for (size_t i = 0; i < outcome.logs.size(); ++i) {
        const sandbox::LogRecord& record = outcome.logs[i];
        const std::string& message = record.message;
        const size_t split = message.find(middle, prefix.size());
        if (!android::base::StartsWith(message, prefix) || split == std::string::npos) continue;
        const size_t new_begin = split + middle.size();
        const std::string new_value = message.substr(new_begin, message.size() - new_begin - 1);
        Definition* owner = nullptr;
        for (Definition& definition : *definitions) {
            if (definition.record < i || definition.step != record.step) continue;
            if (owner == nullptr) owner = &definition;
            if (definition.value == new_value) {
                owner = &definition;
                break;
            }
        }
        if (owner != nullptr) {
            owner->overridden.push_back(message.substr(prefix.size(), split - prefix.size()));
        }
    }
}

std::string StepText(const BootResult& result, const std::string& step) {
    const int index = StepIndex(step);
    if (index < 0 || index >= static_cast<int>(result.steps.size())) return step;
    return "step " + step + " " + Printable(result.steps[index].Describe());
}

std::string Quote(const std::string& value) {
    return "'" + Printable(value) + "'";
}

// The story as one JSON document: the same facts as the text, each batch
// with init's verdict.
Json ExplainJson(const BootConfig& config, const BootResult& result, const std::string& name,
                 const std::vector<Definition>& definitions, const DefinitionsOf& definitions_of) {
    const sandbox::Outcome& outcome = result.outcome;
    Json document = JsonDocument("explain");
    PutBytes(&document, "name", name);
    document["host"] = HostModeName(config.init.host);
    document["property_contexts"] = ContextsJson(outcome);
    PutBytes(&document, "context", ContextOfNamed(outcome));
    auto seeded = config.properties.find(name);
    PutBytes(&document, "seeded",
             seeded == config.properties.end() ? std::nullopt : std::optional(seeded->second));
    document["definitions"] = Json::array();
    for (const Definition& definition : definitions) {
        Json json = StepJson(result, StepIndex(definition.step));
        PutBytes(&json, "file", definition.file);
        PutBytes(&json, "value", definition.value);
        json["overridden"] = BytesList(definition.overridden);
        const std::string choice =
                KeyChoiceText(config, result, PartitionPath(definition.file), definitions_of);
        PutBytes(&json, "key_choice", choice.empty() ? std::nullopt : std::optional(choice));
        document["definitions"].push_back(std::move(json));
    }
    // The lines that tell how the library derived the value, as the text gives them.
    const std::string derived = DerivedText(config, result, name, definitions_of);
    document["derived"] = BytesList(derived.empty() ? std::vector<std::string>()
                                                    : android::base::Split(derived.substr(
                                                              0, derived.size() - 1), "\n"));
    document["batches"] = Json::array();
    std::optional<std::string> accepted;
    for (size_t b = 0; b < outcome.batches.size(); ++b) {
        const sandbox::Batch& batch = outcome.batches[b];
        auto it = batch.props.find(name);
        if (it == batch.props.end()) continue;
        const auto refusal = RefusalOf(outcome, b, name);
        if (!refusal) accepted = it->second;
        Json json = StepJson(result, StepIndex(batch.step));
        json["kind"] = batch.kind == kFilledMapKind ? Json(nullptr) : Json(batch.kind);
        json["filled_map"] = batch.kind == kFilledMapKind;
        PutBytes(&json, "value", it->second);
        json["verdict"] = refusal ? "refused" : "set";
        PutBytes(&json, "reason", refusal);
        document["batches"].push_back(std::move(json));
    }
    PutBytes(&document, "last_set", accepted);
    auto final_value = outcome.properties.find(name);
    PutBytes(&document, "final",
             final_value == outcome.properties.end() ? std::nullopt
                                                     : std::optional(final_value->second));
    document["known"] = !document["batches"].empty() || !definitions.empty() ||
                        final_value != outcome.properties.end();
    return document;
}

}  // namespace

int ExplainCommand(const ExplainArgs& args) {
    const BootOptions& options = args.boot;
    const std::string& name = args.name;
    std::string error;
    if (name.empty()) return Fail("explain needs a property NAME");
    if (options.tree.empty()) return Fail("explain needs --root DIR");
    BootConfig config;
    if (!MakeBootConfig(options, &config, &error)) return Fail(error);
    config.verbose = true;  // the parser's "Loading properties" records
    config.init.context_of = name;
    LoadedFiles loaded(name);
    for (const std::string& input : ExplainInputs(name)) loaded.AlsoFor(input);
    config.echo_logs = true;  // into the memory file of |loaded|, in the device
    config.before_steps = [&loaded](sandbox::Context& ctx) {
        if (!loaded.Start()) ctx.Note("loaded files", strerror(errno));
    };
    config.after_step = [&loaded](sandbox::Context& ctx, size_t) { loaded.CaptureAfterStep(ctx); };
    BootResult result;
    if (!BootQuietly(config, &result, &error)) return Fail(error);
    android::base::SetMinimumLogSeverity(android::base::ERROR);  // our own reads stay quiet
    const sandbox::Outcome& outcome = result.outcome;
    if (auto failed = outcome.notes.find("loaded files"); failed != outcome.notes.end()) {
        fprintf(stderr, "extprop-sim: the files the boot loaded can't be read back (%s)\n",
                failed->second.c_str());
    }
    std::vector<Definition> definitions = LoadedDefinitions(outcome, name);
    AttributeOverrides(outcome, name, &definitions);
    const DefinitionsOf definitions_of = [&outcome](const std::string& input) {
        std::vector<FileValue> files;
        for (const Definition& d : LoadedDefinitions(outcome, input)) {
            files.push_back({d.step, d.file, d.value});
        }
        return files;
    };
    if (args.json) {
        const Json document = ExplainJson(config, result, name, definitions, definitions_of);
        fputs(JsonText(document).c_str(), stdout);
        return document["known"] ? kExitOk : kExitFindings;
    }

    const std::string host = HostModeName(config.init.host);
    std::string out = Printable(name) + " through the boot of " + Printable(config.tree) + " (" +
                      host + " init)\n";
    out += "SELinux property context: " +
           Printable(ContextOfNamed(outcome).value_or("not checked, " + ContextsInUse(outcome))) +
           "\n";
    if (auto seeded = config.properties.find(name); seeded != config.properties.end()) {
        out += "Seeded by --props " + Printable(options.props_file) + ": " + Quote(seeded->second) +
               "\n";
    }
    const std::string derived = DerivedText(config, result, name, definitions_of);
    if (definitions.empty()) out += derived.empty() ? "No property file set it.\n" : derived;
    if (!definitions.empty()) out += "Files that set it, in the order the parser finished them:\n";
    std::string step;
    for (size_t d = 0; d < definitions.size(); ++d) {
        const Definition& definition = definitions[d];
        if (definition.step != step) out += "  " + StepText(result, step = definition.step) + "\n";
        // A partition read at both of its mount points is one file.
        const Definition* next = d + 1 < definitions.size() ? &definitions[d + 1] : nullptr;
        const bool same_file = next != nullptr && next->step == definition.step &&
                               next->file != definition.file &&
                               PartitionPath(next->file) == PartitionPath(definition.file) &&
                               next->value == definition.value &&
                               LoadedFiles::Content(outcome, next->load) ==
                                       LoadedFiles::Content(outcome, definition.load);
        out += "    " + Printable(definition.file) +
               (same_file ? " (and as " + Printable(next->file) + ")" : "") + ": " +
               Quote(definition.value);
        for (const std::string& old_value : definition.overridden) {
            out += ", overriding " + Quote(old_value);
        }
        if (same_file) {
            for (const std::string& old_value : next->overridden) {
                out += ", overriding " + Quote(old_value);
            }
            ++d;
        }
        out += "\n";
        if (const std::string choice =
                    KeyChoiceText(config, result, PartitionPath(definition.file), definitions_of);
            !choice.empty()) {
            out += "      " + choice + "\n";
        }
    }
    if (!definitions.empty()) out += derived;
    bool carried = false;
    std::optional<std::string> accepted;  // the last value init set from a batch
    size_t refused = 0;
    for (size_t b = 0; b < outcome.batches.size(); ++b) {
        const sandbox::Batch& batch = outcome.batches[b];
        auto it = batch.props.find(name);
        if (it == batch.props.end()) continue;
        if (!carried) out += "Batches that carried it, and what " + host + " init did:\n";
        carried = true;
        const auto refusal = RefusalOf(outcome, b, name);
        out += "  " + StepText(result, batch.step) + ", " +
               (batch.kind == kFilledMapKind ? "map" : "kind " + std::to_string(batch.kind)) +
               ": " + Quote(it->second) +
               (refusal ? ", refused: " + Printable(*refusal) : ", set") + "\n";
        if (refusal) {
            ++refused;
        } else {
            accepted = it->second;
        }
    }
    if (!carried) out += "No batch carried it.\n";
    if (refused != 0) {
        out += "Init refused " + std::to_string(refused) + " of the values handed over; " +
               (accepted ? "the last it set was " + Quote(*accepted) : "it set none of them") +
               ".\n";
    }

    auto final_value = outcome.properties.find(name);
    out += final_value == outcome.properties.end()
                   ? "Unset after boot.\n"
                   : "Value after boot: " + Quote(final_value->second) + "\n";

    fwrite(out.data(), 1, out.size(), stdout);
    const bool known = carried || !definitions.empty() || final_value != outcome.properties.end();
    return known ? kExitOk : kExitFindings;
}

}  // namespace extprop_sim
