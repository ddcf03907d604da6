// SPDX-License-Identifier: Apache-2.0
// lint --overrides --root DIR: boots the tree and reports, for each property
// that more than one file defines, which file:line init got its value from
// and which definitions are shadowed (a team's value that never reaches a
// device).

#include <cstdio>

#include <android-base/logging.h>

#include "boot_options.h"
#include "commands.h"
#include "definitions.h"
#include "json.h"
#include "printable.h"

namespace extprop_sim {
namespace {

// The properties init got that more than one place defines.
std::vector<std::pair<const std::string*, const PropertyDefinitions*>> Overridden(
        const DefinitionsModel& model) {
    std::vector<std::pair<const std::string*, const PropertyDefinitions*>> overridden;
    for (const auto& [name, property] : model.properties) {
        if (property.definitions.size() < 2 ||
            property.definitions[0].state == Definition::State::kNotHandedOver) {
            continue;
        }
        overridden.emplace_back(&name, &property);
    }
    return overridden;
}

std::string Quote(const std::string& value) {
    return "'" + Printable(value) + "'";
}

std::string OverridesText(const DefinitionsModel& model) {
    std::string out;
    size_t shadowed = 0;
    const auto overridden = Overridden(model);
    for (const auto& [name, property] : overridden) {
        out += Printable(*name) + ": " +
               (property->final_value ? "init holds " + Quote(*property->final_value)
                                      : std::string("unset after boot")) +
               (property->winner ? "" : ", from no file's definition") + "\n";
        for (const Definition& definition : property->definitions) {
            shadowed += definition.state == Definition::State::kShadowed;
            out += "  " + Printable(Place(definition)) + ": " + StateName(definition.state) + ": " +
                   Quote(definition.value);
            for (const std::string& other : definition.also_as)
                out += " (also as " + Printable(other) + ")";
            out += "\n";
        }
    }
    for (const auto& [file, size] : model.left_out) {
        out += "not examined: " + Printable(file) + " (" + std::to_string(size) +
               " bytes, over the budget of what a boot brings back)\n";
    }
    out += std::to_string(overridden.size()) + " propert" + (overridden.size() == 1 ? "y" : "ies") +
           " defined in more than one place, " + std::to_string(shadowed) +
           " shadowed definition(s) with a value init doesn't end with\n";
    return out;
}

const char* StateKey(Definition::State state) {
    switch (state) {
        case Definition::State::kWins:
            return "wins";
        case Definition::State::kSameValue:
            return "same_value";
        case Definition::State::kShadowed:
            return "shadowed";
        case Definition::State::kNotHandedOver:
            return "not_handed_over";
    }
    return "";
}

Json OverridesJson(const DefinitionsModel& model) {
    Json document = JsonDocument("lint");
    document["overrides"] = Json::array();
    for (const auto& [name, property] : Overridden(model)) {
        Json json = Json::object();
        PutBytes(&json, "name", *name);
        PutBytes(&json, "final", property->final_value);
        json["definitions"] = Json::array();
        for (const Definition& definition : property->definitions) {
            Json entry = Json::object();
            PutBytes(&entry, "file", definition.file);
            entry["also_as"] = BytesList(definition.also_as);
            entry["line"] = definition.line == 0 ? Json(nullptr) : Json(definition.line);
            PutBytes(&entry, "value", definition.value);
            entry["state"] = StateKey(definition.state);
            entry["steps"] = definition.steps;
            json["definitions"].push_back(std::move(entry));
        }
        document["overrides"].push_back(std::move(json));
    }
    document["left_out"] = Json::array();
    for (const auto& [file, size] : model.left_out) {
        Json entry = Json::object();
        PutBytes(&entry, "file", file);
        entry["size"] = size;
        document["left_out"].push_back(std::move(entry));
    }
    return document;
}

}  // namespace

int LintOverridesCommand(const LintArgs& args) {
    if (!args.sarif_file.empty() || !args.disabled.empty() || args.werror || args.no_boot) {
        return Fail(
                "--overrides reports no findings: it takes no --sarif, --disable, --werror or "
                "--no-boot");
    }
    BootOptions options;
    options.tree = args.tree;
    options.props_file = args.props_file;
    options.property_contexts = args.property_contexts;
    options.host = args.host;
    if (options.tree.empty()) return Fail("lint needs a device tree, --root DIR");
    BootConfig config;
    std::string error;
    if (!MakeBootConfig(options, &config, &error)) return Fail(error);
    LoadedFiles loaded;
    RecordEveryLoadedFile(&config, &loaded);
    BootResult result;
    if (!BootQuietly(config, &result, &error)) return Fail(error);
    android::base::SetMinimumLogSeverity(android::base::ERROR);  // the parser's reads stay quiet
    const DefinitionsModel model = BuildDefinitions(result);
    const std::string out = args.json ? JsonText(OverridesJson(model)) : OverridesText(model);
    fwrite(out.data(), 1, out.size(), stdout);
    return kExitOk;
}

}  // namespace extprop_sim
