// SPDX-License-Identifier: Apache-2.0
// check --golden FILE: boots (or runs the script) and compares what init
// received with a saved boot --json document, so that a ROM's CI notices the
// boot that silently changes a carrier's APN or a switch key.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <android-base/file.h>

#include "boot_options.h"
#include "commands.h"
#include "definitions.h"
#include "golden.h"
#include "html_report.h"
#include "option_file.h"
#include "printable.h"
#include "report.h"
#include "script_assertions.h"

namespace extprop_sim {
namespace {

bool IsBootDocument(const Json& document) {
    return document.is_object() && document.value("schema", Json()) == kJsonSchemaTag &&
           document.value("command", Json()) == "boot";
}

}  // namespace

int CheckCommand(const CheckArgs& args) {
    if (args.boot.tree.empty()) return Fail("check needs --root DIR");
    Json golden;
    if (!args.update) {
        auto text = ReadOptionFile(args.golden_file);
        if (!text.ok()) return Fail("golden file: " + text.error().message());
        golden = Json::parse(*text, nullptr, false);
        if (!IsBootDocument(golden)) {
            return Fail(args.golden_file + " is not a document of extprop-sim boot --json");
        }
    }
    BootConfig config;
    std::string error;
    if (!MakeBootConfig(args.boot, &config, &error)) return Fail(error);
    // Only a page pays for bringing every loaded file back.
    LoadedFiles loaded;
    if (!args.html_file.empty()) RecordEveryLoadedFile(&config, &loaded);
    BootResult result;
    if (!BootQuietly(config, &result, &error)) return Fail(error);
    const DefinitionsModel model =
            args.html_file.empty() ? DefinitionsModel() : BuildDefinitions(result);
    if (!args.boot.verbose) DropVerboseRecords(&result.outcome);
    // An ota step's DIR is relative to the script's directory, wherever that lies.
    const std::string script_dir =
            args.boot.script_file.empty()
                    ? ""
                    : std::filesystem::path(args.boot.script_file).parent_path().string();
    const Json now = NormalizedBootDocument(Json::parse(BootReportJson(config, result)),
                                            args.ignored, script_dir);

    int status = kExitOk;
    for (const AssertionFailure& failure : result.failures) {
        fprintf(stderr, "extprop-sim: failed at %s", FailureText(result, failure).c_str());
        status = kExitFindings;
    }
    if (args.update) {
        if (!android::base::WriteStringToFile(JsonText(now), args.golden_file)) {
            return Fail("cannot write " + args.golden_file + ": " + strerror(errno));
        }
        printf("%s: written\n", Printable(args.golden_file).c_str());
        return status;
    }
    const std::vector<std::string> differences =
            GoldenDifferences(NormalizedBootDocument(std::move(golden), args.ignored, ""), now);
    for (const std::string& difference : differences) printf("%s\n", difference.c_str());
    // The page of a boot that failed its check, to look at.
    const bool failed = !differences.empty() || status != kExitOk;
    if (failed && !args.html_file.empty()) {
        if (!WriteHtmlReport(args.html_file, config, result, model, &error)) return Fail(error);
        fprintf(stderr, "extprop-sim: the boot's page is %s\n", Printable(args.html_file).c_str());
    }
    printf("%s: %s\n", Printable(args.golden_file).c_str(),
           differences.empty() ? "same" : (std::to_string(differences.size()) + " difference(s)").c_str());
    return differences.empty() ? status : kExitFindings;
}

}  // namespace extprop_sim
