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

#include <android-base/file.h>
#include <android-base/logging.h>

#include "boot.h"
#include "commands.h"
#include "hostplatform/property_store.h"
#include "init_sink.h"
#include "json.h"
#include "lint.h"
#include "lint_access.h"
#include "lint_report.h"
#include "option_file.h"
#include "printable.h"
#include "sandbox.h"
#include "extension_paths.h"
#include "utils.h"

namespace extprop_sim {
namespace {

using namespace android::init;

// Data-partition overrides and the special-edition file, read at fixed
// paths and handed to init.
constexpr const char* kFixedPropertyFiles[] = {
        kCloudOverrideFile, kDataEmptyAppChannelFile, kDataCommonFile, kNightjarBuildProp,
};

// Switch-key files and COTA request files: read at fixed paths by the
// library for itself.
constexpr const char* kFixedKeyFiles[] = {
        kDataSimSwitchFirstFile,      kDataSimSwitchCurrentFile,    kDataRegionSwitchFile,
        kDataSimActionFile,           kReserveSimSwitchFirstFile,   kReserveSimSwitchCurrentFile,
        kReserveRegionSwitchFile,     kReserveSimSwitchConvertFile, kReserveSimActionFile,
        kReserveSimSwitchCommonFile,  kReserveForceConnectFile,     kFlashbackFile,
        kCotaMountInfoFile,           kCotaModuleInfoFile,
};

// Inside the device root: every path below is a device path, and every
// symbolic link, absolute ones and loops included, resolves as the library
// meets it at boot. Each finding goes back as one batch of kind 0 (error) or
// 1 (warning) holding its path and problem.
void LintInDevice(sandbox::Context& device, const PropertyMap& seeded,
                  const std::vector<ContextsFile>& given_contexts,
                  const std::set<std::string>* reached) {
    LintContext ctx;
    // The library's checks, from the same sources as the one boot loads.
    ctx.rules.legal = {&IsLegalPropertyName, &IsLegalPropertyValue};
    auto contexts = LoadDeviceContexts(given_contexts, true);
    if (contexts.ok()) {
        ctx.rules.contexts = contexts->get();
    } else {
        ctx.Report(lint_rule::kPropertyContexts, "",
                   "property contexts: " + contexts.error().message());
    }
    for (const std::string& dir : LintCustomizationDirs(&ctx)) {
        char resolved[PATH_MAX];
        if (realpath(dir.c_str(), resolved) == nullptr) {
            if (errno == ELOOP) ctx.Report(lint_rule::kSymlinkLoop, dir, strerror(errno));
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
    if (reached != nullptr) LintUnreadFiles(&ctx, *reached);
    const sandbox::Sink sink = device.sink();
    for (const LintContext::Finding& finding : ctx.findings) {
        sink(0, {{"rule", finding.rule},
                 {"path", finding.path},
                 {"line", std::to_string(finding.line)},
                 {"problem", finding.problem}});
    }
}

}  // namespace

int LintCommand(const LintArgs& args) {
    std::string tree = args.tree;
    if (tree.empty()) return Fail("lint needs a device tree, --root DIR");
    for (const std::string& id : args.disabled) {
        if (FindLintRule(id) == nullptr) return Fail("--disable: no lint rule '" + id + "'");
    }
    if (args.json && args.sarif_file == "-") {
        return Fail("--json and --sarif - would both write to standard output");
    }
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

    // What a boot of the tree really opens, tests and lists.
    BootAccesses accesses;
    const bool booted = !args.no_boot && RecordBootAccesses(args, &accesses, &error);
    if (!args.no_boot && !booted) {
        fprintf(stderr, "extprop-sim: %s; only the checks that read the tree ran\n",
                Printable(error).c_str());
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
            [&](sandbox::Context& device) {
                LintInDevice(device, seeded, given_contexts, booted ? &accesses.reached : nullptr);
            });
    if (!outcome.Completed()) return Fail("cannot read " + tree + ": " + outcome.Describe());

    std::vector<LintFinding> findings;
    for (const sandbox::Batch& batch : outcome.batches) {
        findings.push_back({FindLintRule(batch.props.at("rule")), batch.props.at("path"),
                            std::stoul(batch.props.at("line")), batch.props.at("problem")});
    }
    // A failed read at or below a path the checks of the tree already
    // explain (a link, a loop, a directory) adds nothing.
    for (const LintFinding& failure : accesses.failures) {
        const bool explained =
                std::any_of(findings.begin(), findings.end(), [&](const LintFinding& f) {
                    return !f.path.empty() && (failure.path == f.path ||
                                               failure.path.rfind(f.path + "/", 0) == 0);
                });
        if (!explained) findings.push_back(failure);
    }
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                                  [&](const LintFinding& f) {
                                      return std::count(args.disabled.begin(), args.disabled.end(),
                                                        f.rule->id) != 0;
                                  }),
                   findings.end());
    SortFindings(&findings);
    const size_t errors = std::count_if(findings.begin(), findings.end(),
                                        [](const LintFinding& f) { return f.rule->error; });
    const size_t warnings = findings.size() - errors;

    if (!args.sarif_file.empty()) {
        const std::string sarif = JsonText(SarifLog(tree, findings));
        if (args.sarif_file == "-") {
            fputs(sarif.c_str(), stdout);
        } else if (!android::base::WriteStringToFile(sarif, args.sarif_file)) {
            return Fail("cannot write " + args.sarif_file + ": " + strerror(errno));
        }
    }
    if (args.json) {
        Json document = JsonDocument("lint");
        document["findings"] = FindingsJson(findings);
        document["errors"] = errors;
        document["warnings"] = warnings;
        fputs(JsonText(document).c_str(), stdout);
    } else if (args.sarif_file != "-") {
        for (const LintFinding& finding : findings) {
            printf("%s\n", FindingText(tree, finding).c_str());
        }
        printf("%s: %zu error(s), %zu warning(s)\n", Printable(tree).c_str(), errors, warnings);
    }
    if (errors != 0 || (args.werror && warnings != 0)) return kExitFindings;
    return kExitOk;
}

}  // namespace extprop_sim
