// SPDX-License-Identifier: Apache-2.0
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "import_lines.h"
#include "lint.h"
#include "tree_path.h"
#include "utils.h"

namespace extprop_sim {
namespace {

using namespace lint_rule;

// The set names that a switch key selects under properties/<key>/.
constexpr const char* kSetNames[] = {"SimSwitchCurrentTime", "SimSwitchFirstTime",
                                     "switchCarrierChannel", "regionSwitch"};
constexpr const char* kMapFiles[] = {"nvmap.prop", "flags.prop", "custom_map.prop"};

// Entry names of a directory, sorted; none when it can't be opened.
std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
                names.push_back(entry->d_name);
            }
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// One lookup of the library in the tree: the value |file| gives |name|.
std::string TreeProperty(LintContext* ctx, const std::string& file, const std::string& name) {
    return load_property_from_file(HostPath(ctx->tree, file, false).c_str(), name.c_str());
}

// Whether some customization directory has a set or an etc/build.<key>.prop for |key|.
bool KeySelects(const LintContext& ctx, const std::string& key) {
    auto selects = [&](const std::string& dir) {
        return IsDir(dir + "/properties/" + key) || Exists(dir + "/etc/build." + key + ".prop");
    };
    return !key.empty() && std::any_of(ctx.dirs.begin(), ctx.dirs.end(), selects);
}

}  // namespace

std::vector<std::string> LintCustomizationDirs(LintContext* ctx) {
    using namespace android::init;
    const std::string brand = TreeProperty(ctx, kSystemExtBuildProp, kBrandProperty);
    const std::string letter = BrandLetter(brand);
    if (letter.empty()) {
        ctx->Report(kUnknownBrand, ctx->tree + kSystemExtBuildProp,
                    "brand '" + brand +
                             "' is not alder, birch or cedar: no region directory "
                            "of a brand is read");
    }
    std::string region = TreeProperty(ctx, kRegionBuildProp, kSkuRegionProperty);
    if (region.empty()) region = TreeProperty(ctx, kVendorRegionBuildProp, kSkuRegionProperty);
    if (region.empty()) {
        ctx->Report(kMissingRegion, ctx->tree + kRegionBuildProp,
                    "no ro.zelva.pipeline.region: no my_product/cust/<region> directory is read");
    }
    return CustDirListFor(letter, region);
}

void LintPartitionFiles(LintContext* ctx) {
    for (const std::string& dir : ctx->dirs) {
        LintPropertyFile(ctx, dir + "/build.prop");
        for (const std::string& name : Entries(dir + "/etc")) {
            if (name != "build.prop" && android::base::StartsWith(name, "build.") &&
                android::base::EndsWith(name, ".prop")) {
                LintPropertyFile(ctx, dir + "/etc/" + name);
            }
        }
    }
}

void LintPropertySets(LintContext* ctx) {
    const std::vector<std::string> sets(std::begin(kSetNames), std::end(kSetNames));
    for (const std::string& dir : ctx->dirs) {
        for (const std::string& key : Entries(dir + "/properties")) {
            const std::string key_dir = dir + "/properties/" + key;
            for (const std::string& set : Entries(key_dir)) {
                const std::string set_dir = key_dir + "/" + set;
                if (!IsDir(set_dir)) continue;
                if (std::find(sets.begin(), sets.end(), set) == sets.end()) {
                    ctx->Report(kUnknownSet, set_dir,
                                "no key selects the set '" + set + "' (only " +
                                        android::base::Join(sets, ", ") + "): it is never loaded");
                    continue;
                }
                for (const std::string& name : Entries(set_dir)) {
                    const std::string path = set_dir + "/" + name;
                    if (IsDir(path)) {
                        ctx->Report(kDirectoryInSet, path,
                                    "a directory inside a set: it is never read");
                    } else if (!android::base::EndsWith(name, ".prop")) {
                        ctx->Report(kNotPropFile, path, "not a .prop file: it is never loaded");
                    } else {
                        LintPropertyFile(ctx, path);
                    }
                }
            }
        }
    }
}

void LintMapFiles(LintContext* ctx) {
    for (const std::string& dir : ctx->dirs) {
        for (const char* map_file : kMapFiles) {
            const std::string path = dir + "/etc/" + map_file;
            ctx->handed_to_init = false;
            LintPropertyFile(ctx, path);
            ctx->handed_to_init = true;
            PropertyMap map;  // a map file the library can't read maps nothing
            if (!Exists(path) || !load_properties_from_file_without_se(path.c_str(), "*", &map)) {
                continue;
            }
            for (const auto& [source, target] : map) {
                if (KeySelects(*ctx, target)) continue;
                std::string text;
            android::base::ReadFileToString(path, &text, false);
            ctx->Report(kMapTargetSelectsNothing, path,
                        "'" + source + "' maps to key '" + target +
                                "', which selects nothing (no properties/" + target +
                                "/ and no etc/build." + target + ".prop)",
                        DefinitionLine(text, source));
            }
        }
    }
}

}  // namespace extprop_sim
