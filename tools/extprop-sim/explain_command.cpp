// SPDX-License-Identifier: Apache-2.0
// explain NAME --root DIR: the history of one property through a boot.
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
#include <filesystem>
#include <optional>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "boot_options.h"
#include "commands.h"
#include "tree_path.h"
#include "utils.h"

namespace extprop_sim {
namespace {

constexpr char kLoadedPrefix[] = "(Loading properties from ";
constexpr char kLoadedSuffix[] = " took ";
constexpr uintmax_t kLargestPropertyFile = 1 << 20;

// One file that set the property while the parser loaded it.
struct Definition {
    size_t record;  // index of its "Loading properties" record
    std::string step;
    std::string file;
    std::string value;
    std::vector<std::string> overridden;
};

// Inside the device, after step |step|: notes the list of files and the
// content of those that mention |name|.
void NoteFiles(sandbox::Context& ctx, size_t step, const std::string& name) {
    namespace fs = std::filesystem;
    std::string listing;
    std::error_code ec;
    fs::recursive_directory_iterator it("/", fs::directory_options::skip_permission_denied, ec);
    for (const fs::recursive_directory_iterator end; it != end; it.increment(ec)) {
        if (!fs::is_regular_file(it->symlink_status(ec)) ||
            it->file_size(ec) > kLargestPropertyFile) {
            continue;
        }
        std::string content;
        listing += it->path().string() + "\n";
        if (android::base::ReadFileToString(it->path(), &content) &&
            content.find(name) != std::string::npos) {
            ctx.Note("file " + std::to_string(step) + " " + it->path().string(), content);
        }
    }
    ctx.Note("files " + std::to_string(step), listing);
}

// The content of |file| when step |step| loaded it: as that step left it, or
// as an earlier one did when the step removed it, or as the tree holds it.
std::optional<std::string> ContentAt(const sandbox::Outcome& outcome, const std::string& tree,
                                     const std::string& file, const std::string& step) {
    const std::string host = HostPath(tree, file, false);
    if (host.empty()) return std::nullopt;
    const std::string path = host.substr(tree.size());
    for (int k = StepIndex(step); k >= 0; --k) {
        auto listing = outcome.notes.find("files " + std::to_string(k));
        if (listing == outcome.notes.end() ||
            ("\n" + listing->second).find("\n" + path + "\n") == std::string::npos) {
            continue;
        }
        auto content = outcome.notes.find("file " + std::to_string(k) + " " + path);
        return content != outcome.notes.end() ? content->second : "";
    }
    std::string content;
    if (!android::base::ReadFileToString(host, &content, false)) return std::nullopt;
    return content;
}

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
std::vector<Definition> LoadedDefinitions(const sandbox::Outcome& outcome, const std::string& tree,
                                          const std::string& name) {
    std::vector<Definition> definitions;
    for (size_t i = 0; i < outcome.logs.size(); ++i) {
        const sandbox::LogRecord& record = outcome.logs[i];
        const std::string& message = record.message;
        const size_t begin = strlen(kLoadedPrefix);
        const size_t took = message.rfind(kLoadedSuffix);
        if (!android::base::StartsWith(message, kLoadedPrefix) || took == std::string::npos) {
            continue;
        }
        const std::string file = message.substr(begin, took - begin);
        const auto content = ContentAt(outcome, tree, file, record.step);
        if (auto value = content ? OwnValue(*content, name) : std::nullopt) {
            definitions.push_back({i, record.step, file, *value, {}});
        }
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
    return "step " + step + " " + result.steps[index].Describe();
}

std::string Quote(const std::string& value) {
    return "'" + value + "'";
}

}  // namespace

int ExplainCommand(const Args& args) {
    BootOptions options;
    std::string name, error;
    for (size_t i = 0; i < args.size(); ++i) {
        if (TakeBootOption(args, &i, &options, &error)) {
            if (!error.empty()) return Fail(error);
        } else if (!args[i].empty() && args[i][0] == '-') {
            return Fail("unknown option '" + args[i] + "' for explain");
        } else if (name.empty()) {
            name = args[i];
        } else {
            return Fail("explain takes one NAME, got '" + name + "' and '" + args[i] + "'");
        }
    }
    if (name.empty()) return Fail("explain needs a property NAME");
    if (options.tree.empty()) return Fail("explain needs --root DIR");
    BootConfig config;
    if (!MakeBootConfig(options, &config, &error)) return Fail(error);
    config.verbose = true;  // the parser's "Loading properties" records
    config.after_step = [&name](sandbox::Context& ctx, size_t step) { NoteFiles(ctx, step, name); };
    BootResult result;
    if (!BootQuietly(config, &result, &error)) return Fail(error);
    android::base::SetMinimumLogSeverity(android::base::ERROR);  // our own reads stay quiet
    const sandbox::Outcome& outcome = result.outcome;
    std::vector<Definition> definitions = LoadedDefinitions(outcome, config.tree, name);
    AttributeOverrides(outcome, name, &definitions);

    std::string out = name + " through the boot of " + config.tree + "\n";
    if (auto seeded = config.properties.find(name); seeded != config.properties.end()) {
        out += "Seeded by --props " + options.props_file + ": " + Quote(seeded->second) + "\n";
    }
    out += definitions.empty() ? "No property file set it.\n"
                               : "Files that set it, in the order the parser finished them:\n";
    std::string step;
    for (const Definition& definition : definitions) {
        if (definition.step != step) out += "  " + StepText(result, step = definition.step) + "\n";
        out += "    " + definition.file + ": " + Quote(definition.value);
        for (const std::string& old_value : definition.overridden) {
            out += ", overriding " + Quote(old_value);
        }
        out += "\n";
    }
    bool carried = false;
    for (const sandbox::Batch& batch : outcome.batches) {
        auto it = batch.props.find(name);
        if (it == batch.props.end()) continue;
        if (!carried) out += "Batches that carried it:\n";
        carried = true;
        out += "  " + StepText(result, batch.step) + ", " +
               (batch.kind == kFilledMapKind ? "map" : "kind " + std::to_string(batch.kind)) +
               ": " + Quote(it->second) + "\n";
    }
    if (!carried) out += "No batch carried it.\n";
    auto final_value = outcome.properties.find(name);
    out += final_value == outcome.properties.end()
                   ? "Unset after boot.\n"
                   : "Value after boot: " + Quote(final_value->second) + "\n";
    fwrite(out.data(), 1, out.size(), stdout);
    const bool known = carried || !definitions.empty() || final_value != outcome.properties.end();
    return known ? kExitOk : kExitFindings;
}

}  // namespace extprop_sim
