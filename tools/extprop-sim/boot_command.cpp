// boot --root DIR: the library at boot, as init drives it.

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include <android-base/file.h>

#include "boot.h"
#include "commands.h"
#include "report.h"

namespace extprop_sim {

int BootCommand(const Args& args) {
    BootConfig config;
    config.library = DefaultLibraryPath();
    config.steps = DefaultBootSteps();
    config.echo_logs = true;
    bool json = false;
    std::string props_file, script_file;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&](std::string* out) {
            if (i + 1 == args.size()) return false;
            *out = args[++i];
            return true;
        };
        if (arg == "--root" || arg == "--props" || arg == "--script" || arg == "--lib") {
            std::string* out = arg == "--root"    ? &config.tree
                               : arg == "--props" ? &props_file
                               : arg == "--script" ? &script_file
                                                  : &config.library;
            if (!value(out)) return Fail(arg + " needs a value");
        } else if (arg == "--json") {
            json = true;
        } else if (arg == "-v" || arg == "--verbose") {
            config.verbose = true;
        } else if (arg == "--keep-root") {
            config.keep_root = true;
        } else {
            return Fail("unknown argument '" + arg + "' for boot");
        }
    }
    if (config.tree.empty()) return Fail("boot needs --root DIR");
    struct stat st;
    if (stat(config.tree.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return Fail("device tree " + config.tree + " is not a directory");
    }
    std::string error;
    if (!props_file.empty() && !ReadPropsFile(props_file, &config.properties, &error)) {
        return Fail(error);
    }
    if (!script_file.empty()) {
        std::string script;
        if (!android::base::ReadFileToString(script_file, &script)) {
            return Fail("cannot read script " + script_file + ": " + strerror(errno));
        }
        config.steps.clear();
        if (!ParseScript(script, &config.steps, &error)) return Fail(script_file + ": " + error);
    }
    config.echo_logs = !json;

    BootResult result = RunBoot(config);
    if (!result.error.empty()) return Fail(result.error);
    const std::string report = json ? BootReportJson(config, result) : BootReportText(config, result);
    fwrite(report.data(), 1, report.size(), stdout);
    if (config.keep_root) fprintf(stderr, "extprop-sim: device root kept at %s\n", result.root.c_str());
    return kExitOk;
}

}  // namespace extprop_sim
