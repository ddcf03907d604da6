// SPDX-License-Identifier: Apache-2.0
// lint --root DIR: reads a device tree the way the library will, from inside the
// device root, and reports what would silently go wrong at boot.

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstring>

#include <android-base/logging.h>

#include "boot.h"
#include "commands.h"
#include "hostplatform/property_store.h"
#include "init_sink.h"
#include "json.h"
#include "lint.h"
#include "option_file.h"
#include "printable.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop_sim {
namespace {

// Data-partition overrides and the special-edition file, read at fixed
// paths and handed to init.
constexpr const char* kFixedPropertyFiles[] = {
        "/data/system/customize/cloud-config/data_cloud_prop_file.prop",
        "/data/system/customize/empty_appchannel_prop_file.prop",
        "/data/system/customize/data_common_prop_file.prop",
        "/my_company/etc/build.prop",
};

// Switch-key files and COTA request files: read at fixed paths by the
// library for itself.
constexpr const char* kFixedKeyFiles[] = {
        "/data/system/customize/sim_switch/sim_switch_first_file",
        "/data/system/customize/sim_switch/sim_switch_current_file",
        "/data/system/customize/sim_switch/region_switch_file",
        "/data/system/customize/sim_switch/sim_action_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file",
        "/mnt/vendor/zelvareserve/system/ssv/region_switch_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_convert_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_action_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_common_prop_file",
        "/mnt/vendor/zelvareserve/system/ssv/force_connect_internet_prop_file",
        "/mnt/vendor/zelvareserve/system/flag/flashback.cfg",
        "/data/cota/cota_mount_info.prop",
        "/data/cota/cota_module_info.prop",
};

// Inside the device root: every path below is a device path, and every
// symbolic link, absolute ones and loops included, resolves as the library
// meets it at boot. Each finding goes back as one batch of kind 0 (error) or
// 1 (warning) holding its path and problem.
void LintInDevice(sandbox::Context& device, const PropertyMap& seeded,
                  const std::vector<ContextsFile>& given_contexts) {
    LintContext ctx;
    // The library's checks, from the same sources as the one boot loads.
    ctx.rules.legal = {&IsLegalPropertyName, &IsLegalPropertyValue};
    auto contexts = LoadDeviceContexts(given_contexts, true);
    if (contexts.ok()) {
        ctx.rules.contexts = contexts->get();
    } else {
        ctx.Error("", "property contexts: " + contexts.error().message());
    }
    for (const std::string& dir : LintCustomizationDirs(&ctx)) {
        char resolved[PATH_MAX];
        if (realpath(dir.c_str(), resolved) == nullptr) {
            if (errno == ELOOP) ctx.Error(dir, strerror(errno));
            continue;  // a partition the device doesn't have
        }
        if (std::find(ctx.dirs.begin(), ctx.dirs.end(), resolved) == ctx.dirs.end()) {
            ctx.dirs.push_back(resolved);
        }
    }
    // Imports expand ${name} with what init holds by then: the partitions'
    // properties, and the --props values.
    for (const std::string& dir : ctx.dirs) {
        PropertyMap props;
        load_properties_from_file_without_se((dir + "/build.prop").c_str(), "*", &props);
        for (const auto& [name, value] : props) hostplatform::SetProperty(name, value);
    }
    for (const auto& [name, value] : seeded) hostplatform::SetProperty(name, value);

    LintPartitionFiles(&ctx);
    LintPropertySets(&ctx);
    LintMapFiles(&ctx);
    for (const char* file : kFixedPropertyFiles) LintPropertyFile(&ctx, file);
    ctx.handed_to_init = false;
    for (const char* file : kFixedKeyFiles) LintPropertyFile(&ctx, file);
    const sandbox::Sink sink = device.sink();
    for (const LintContext::Finding& finding : ctx.findings) {
        sink(finding.error ? 0 : 1, {{"path", finding.path}, {"problem", finding.problem}});
    }
}

}  // namespace

int LintCommand(const LintArgs& args) {
    std::string tree = args.tree;
    if (tree.empty()) return Fail("lint needs a device tree, --root DIR");
    while (tree.size() > 1 && tree.back() == '/') tree.pop_back();
    struct stat st;
    if (stat(tree.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return Fail("device tree " + tree + " is not a directory");
    }
    PropertyMap seeded;
    std::string error;
    if (!args.props_file.empty() && !ReadPropsFile(args.props_file, &seeded, &error)) {
        return Fail(error);
    }
    std::vector<ContextsFile> given_contexts;
    for (const std::string& file : args.property_contexts) {
        auto content = ReadOptionFile(file);
        if (!content.ok()) return Fail(content.error().message());
        given_contexts.push_back({file, *content});
    }

    // Now: the device root has no host libraries nor locales.
    (void)LoadAndroidSelinux();
    UseUtf8Locale();
    sandbox::Options options;
    options.apply_batches = false;
    options.capture_tree = false;
    // The parser's own warnings are not findings.
    options.min_severity = android::base::FATAL_WITHOUT_ABORT;
    const sandbox::Outcome outcome = sandbox::Run(
            sandbox::DeviceTree().CopyFrom(tree), options,
            [&](sandbox::Context& device) { LintInDevice(device, seeded, given_contexts); });
    if (!outcome.Completed()) return Fail("cannot read " + tree + ": " + outcome.Describe());

    size_t errors = 0, warnings = 0;
    Json findings = Json::array();
    for (const sandbox::Batch& finding : outcome.batches) {
        const bool is_error = finding.kind == 0;
        (is_error ? errors : warnings)++;
        if (args.json) {
            Json json = Json::object();
            PutBytes(&json, "path", finding.props.at("path"));
            json["line"] = nullptr;
            json["severity"] = is_error ? "error" : "warning";
            PutBytes(&json, "message", finding.props.at("problem"));
            json["rule"] = nullptr;
            findings.push_back(std::move(json));
            continue;
        }
        const std::string line = tree + finding.props.at("path") +
                                 (is_error ? ": error: " : ": warning: ") +
                                 finding.props.at("problem");
        printf("%s\n", Printable(line).c_str());
    }
    if (args.json) {
        Json document = JsonDocument("lint");
        document["findings"] = std::move(findings);
        document["errors"] = errors;
        document["warnings"] = warnings;
        fputs(JsonText(document).c_str(), stdout);
    } else {
        printf("%s: %zu error(s), %zu warning(s)\n", Printable(tree).c_str(), errors, warnings);
    }
    return errors != 0 ? kExitFindings : kExitOk;
}

}  // namespace extprop_sim
