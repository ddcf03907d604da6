// SPDX-License-Identifier: Apache-2.0
// boot --root DIR: the library at boot, as init drives it.

#include <cstdio>

#include "boot_options.h"
#include "commands.h"
#include "definitions.h"
#include "html_report.h"
#include "printable.h"
#include "report.h"
#include "script_assertions.h"

namespace extprop_sim {

int BootCommand(const BootArgs& args) {
    const BootOptions& options = args.boot;
    const bool json = args.json, keep_root = args.keep_root;
    std::string error;
    if (options.tree.empty()) return Fail("boot needs --root DIR");
    BootConfig config;
    if (!MakeBootConfig(options, &config, &error)) return Fail(error);
    config.keep_root = keep_root;
    // Only a page pays for bringing every loaded file back.
    LoadedFiles loaded;
    if (!args.html_file.empty()) RecordEveryLoadedFile(&config, &loaded);

    BootResult result = RunBoot(config);
    if (!args.html_file.empty() && result.error.empty()) {
        const DefinitionsModel model = BuildDefinitions(result);
        if (!options.verbose) DropVerboseRecords(&result.outcome);
        if (!WriteHtmlReport(args.html_file, config, result, model, &error)) return Fail(error);
    }
    // After the boot rather than as it happens: each record's bytes come from
    // the tree and are escaped like the rest of the text.
    if (!json) {
        for (const sandbox::LogRecord& record : result.outcome.logs) {
            fprintf(stderr, "%c %s:%u] %s\n", SeverityLetter(record.severity),
                    Printable(record.file).c_str(), record.line, Printable(record.message).c_str());
        }
    }
    if (!result.error.empty()) return Fail(result.error);
    if (json) {
        const std::string report = BootReportJson(config, result);
        fwrite(report.data(), 1, report.size(), stdout);
    } else {
        WriteBootReportText(config, result, stdout);
    }
    if (keep_root) {
        fprintf(stderr, "extprop-sim: what the boot changed in the device root is kept at %s\n",
                Printable(result.root).c_str());
    }
    for (const AssertionFailure& failure : result.failures) {
        fprintf(stderr, "extprop-sim: failed at %s", FailureText(result, failure).c_str());
    }
    return result.failures.empty() ? kExitOk : kExitFindings;
}

}  // namespace extprop_sim
