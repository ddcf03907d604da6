// SPDX-License-Identifier: Apache-2.0
#include "explain_derived.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "batch_effects.h"
#include "file_history.h"
#include "printable.h"
#include "tree_path.h"
#include "utils.h"

namespace extprop_sim {
namespace {

constexpr char kVendorMount[] = "/mnt/vendor/";
constexpr char kUserdataDevice[] = "dev.mnt.blk.userdata";

// What the library makes of other values, and what it makes it from.
struct Derivation {
    const char* name;
    const char* how;
    std::vector<const char*> inputs;   // properties: their values in the batch or before it
    std::vector<const char*> records;  // texts of the step's log records that tell the story
    const char* renamed_from = nullptr;
    bool storage_size = false;  // the user data device's size file is an input
};

const std::vector<Derivation>& Derivations() {
    static const auto* derivations = new std::vector<Derivation>{
            {"ro.vendor.zelva.exp.version",
             "the experience version: the build display id with the version suffix put in "
             "front of its first '_'",
             {"ro.build.display.id", "ro.vendor.zelva.version_suffix"},
             {}},
            {"ro.zelva.customize.display.version_name",
             "the display version: from the carrier (or region) image's version name, and "
             "after a COTA image from the COTA version name",
             {"ro.zelva.image.my_carrier.version_name", "ro.zelva.image.my_region.version_name",
              "ro.build.cota.version_name"},
             {"customize dispaly version ", "carrier version ", "cota type "}},
            {"ro.vendor.zelva.market.name",
             "the market name: the 'market' of the region's devicename.cfg, when its ROM size "
             "matches the user data device",
             {kUserdataDevice},
             {"devicename.cfg", "my_region/build.prop: ", "there is no config file: "},
             nullptr,
             true},
            {"ro.product.littletail_type",
             "the 'type' of the region's devicename.cfg, when its ROM size matches the user "
             "data device",
             {kUserdataDevice},
             {"devicename.cfg", "my_region/build.prop: ", "there is no config file: "},
             nullptr,
             true},
            {"ro.product.littletail_model",
             "the 'model' of the region's devicename.cfg, when its ROM size matches the user "
             "data device",
             {kUserdataDevice},
             {"devicename.cfg", "my_region/build.prop: ", "there is no config file: "},
             nullptr,
             true},
            {"ro.zelva.cust.ver",
             "the customization version: '1' when the partitions' map holds a carrier image "
             "type other than 'empty' and no partition set ro.zelva.cust.ver",
             {"ro.zelva.image.my_carrier.type"},
             {}},
            {"ro.zelva.image.my_carrier.version_name",
             "renamed: a COTA image's my_bigball version name becomes the carrier image's, "
             "unless the image has its own",
             {},
             {},
             "ro.zelva.image.my_bigball.version_name"},
            {"ro.zelva.image.my_carrier.date.utc",
             "renamed: a COTA image's my_bigball date is copied to the carrier image's, unless "
             "the image has its own",
             {},
             {},
             "ro.zelva.image.my_bigball.date.utc"},
    };
    return *derivations;
}

const Derivation* FindDerivation(const std::string& name) {
    for (const Derivation& derivation : Derivations()) {
        if (name == derivation.name) return &derivation;
    }
    return nullptr;
}

// The map files that translate keys between schemes.
constexpr const char* kMapFiles[] = {"/etc/nvmap.prop", "/etc/flags.prop", "/etc/custom_map.prop"};

// The sets a switch key selects, and the property that carries that key.
struct KeySet {
    const char* set;
    const char* key_property;
};
constexpr KeySet kKeySets[] = {
        {"SimSwitchCurrentTime", "sys.sim.switch.current"},
        {"SimSwitchFirstTime", "sys.sim.switch.first"},
        {"regionSwitch", "sys.region.switch.first"},
        {"switchCarrierChannel", "persist.sys.channel.info"},
};

std::string Quote(const std::string& value) {
    return "'" + Printable(value) + "'";
}

std::string StepText(const BootResult& result, const std::string& label) {
    const int index = StepIndex(label);
    if (index < 0 || index >= static_cast<int>(result.steps.size())) return label;
    return "step " + label + " " + Printable(result.steps[index].Describe());
}

std::string InputLine(const std::string& name, const sandbox::Batch& batch,
                      const PropertyMap& before) {
    if (auto it = batch.props.find(name); it != batch.props.end()) {
        return name + "=" + Quote(it->second) + " in the same batch";
    }
    auto it = before.find(name);
    return it == before.end() ? name + " unset" : name + "=" + Quote(it->second);
}

// Where a key came from: the files that set its property, the map files whose
// lookup gave it, the script or --props that set the property.
std::vector<std::string> KeyOrigins(const BootConfig& config, const BootResult& result,
                                    const std::string& property, const std::string& key,
                                    const DefinitionsOf& definitions_of) {
    std::vector<std::string> origins;
    for (const FileValue& definition : definitions_of(property)) {
        if (definition.value != key) continue;
        struct stat st;
        const bool in_tree = lstat(HostPath(config.tree, definition.file, false).c_str(), &st) == 0;
        origins.push_back(Printable(definition.file) +
                          (in_tree ? "" : " (not in the tree: a boot wrote it)"));
    }
    // The map files the boot loaded whose entries translate into this key.
    for (const sandbox::LogRecord& record : result.outcome.logs) {
        const std::string& message = record.message;
        const size_t took = message.rfind(kLoadedSuffix);
        if (!android::base::StartsWith(message, kLoadedPrefix) || took == std::string::npos) {
            continue;
        }
        const std::string file =
                message.substr(strlen(kLoadedPrefix), took - strlen(kLoadedPrefix));
        if (std::none_of(std::begin(kMapFiles), std::end(kMapFiles),
                         [&](const char* map) { return android::base::EndsWith(file, map); })) {
            continue;
        }
        PropertyMap entries;
        load_properties_from_file_without_se(HostPath(config.tree, file, false).c_str(), nullptr,
                                             &entries);
        for (const auto& [entry, value] : entries) {
            if (value == key) origins.push_back("map file " + Printable(file) + ": " + entry);
        }
    }
    if (auto seeded = config.properties.find(property);
        seeded != config.properties.end() && seeded->second == key) {
        origins.push_back("system property " + property + " seeded by --props");
    }
    for (size_t i = 0; i < result.steps.size(); ++i) {
        const Step& step = result.steps[i];
        if ((step.kind == Step::Kind::kSetProp && step.args[0] == property &&
             step.args[1] == key) ||
            (step.kind == Step::Kind::kSimSwitch && property == "sys.sim.switch.current" &&
             step.args[0] == key)) {
            origins.push_back("system property " + property + " set by " +
                              StepText(result, std::to_string(i)));
        }
    }
    std::sort(origins.begin(), origins.end());
    origins.erase(std::unique(origins.begin(), origins.end()), origins.end());
    return origins;
}

}  // namespace

std::string PartitionPath(const std::string& path) {
    return android::base::StartsWith(path, kVendorMount) ? path.substr(strlen(kVendorMount) - 1)
                                                         : path;
}

std::vector<std::string> ExplainInputs(const std::string& name) {
    std::vector<std::string> inputs;
    if (const Derivation* derivation = FindDerivation(name);
        derivation != nullptr && derivation->renamed_from != nullptr) {
        inputs.push_back(derivation->renamed_from);
    }
    for (const KeySet& key_set : kKeySets) inputs.push_back(key_set.key_property);
    return inputs;
}

std::string DerivedText(const BootConfig& config, const BootResult& result, const std::string& name,
                        const DefinitionsOf& definitions_of) {
    const Derivation* derivation = FindDerivation(name);
    if (derivation == nullptr) return "";
    const sandbox::Outcome& outcome = result.outcome;
    std::string out = "Derived by the library: " + std::string(derivation->how) + ".\n";
    bool derived_somewhere = false;
    for (size_t b = 0; b < outcome.batches.size(); ++b) {
        const sandbox::Batch& batch = outcome.batches[b];
        auto carried = batch.props.find(name);
        if (carried == batch.props.end()) continue;
        PropertyMap before;
        ReplayBatches(config, result, &before, b);
        std::string entries;
        for (const char* input : derivation->inputs) {
            entries += "    " + Printable(InputLine(input, batch, before)) + "\n";
        }
        if (derivation->storage_size) {
            const std::string size_file = "/sys/block/" + before[kUserdataDevice] + "/size";
            std::string sectors;
            const bool read = android::base::ReadFileToString(
                    HostPath(config.tree, size_file, true), &sectors, false);
            entries += "    " + Printable(size_file) + ": " +
                       (read ? Quote(android::base::Trim(sectors)) + " sectors" : "unreadable") +
                       "\n";
        }
        if (derivation->renamed_from != nullptr) {
            std::string sources;
            for (const FileValue& source : definitions_of(derivation->renamed_from)) {
                if (source.step != batch.step) continue;
                sources += "    " + std::string(derivation->renamed_from) + "=" +
                           Quote(source.value) + " in " + Printable(source.file) + "\n";
            }
            // Batches of files that set the value themselves are told by those files.
            if (sources.empty()) continue;
            entries += sources;
        }
        for (const sandbox::LogRecord& record : outcome.logs) {
            if (record.step != batch.step) continue;
            for (const char* text : derivation->records) {
                // The same read repeated adds nothing.
                const std::string line = "    log: " + Printable(record.message) + "\n";
                if (record.message.find(text) != std::string::npos) {
                    if (!android::base::EndsWith(entries, line)) entries += line;
                    break;
                }
            }
        }
        out += "  " + StepText(result, batch.step) + ": " + Quote(carried->second) + " from\n" +
               entries;
        derived_somewhere = true;
    }
    return derived_somewhere ? out : "";
}

std::string KeyChoiceText(const BootConfig& config, const BootResult& result,
                          const std::string& file, const DefinitionsOf& definitions_of) {
    // DIR/properties/KEY/SET/F.prop
    const std::vector<std::string> parts = android::base::Split(file, "/");
    if (parts.size() < 5 || parts[parts.size() - 4] != "properties") return "";
    const std::string& key = parts[parts.size() - 3];
    const std::string& set = parts[parts.size() - 2];
    for (const KeySet& key_set : kKeySets) {
        if (set != key_set.set) continue;
        const std::vector<std::string> origins =
                KeyOrigins(config, result, key_set.key_property, key, definitions_of);
        return "chosen by the key " + Quote(key) + " of " + key_set.key_property + ", from " +
               (origins.empty() ? std::string("where the boot didn't record")
                                : android::base::Join(origins, "; "));
    }
    return "";
}

}  // namespace extprop_sim
