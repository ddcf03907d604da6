// SPDX-License-Identifier: Apache-2.0
#include "boot_options.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "option_file.h"
#include "printable.h"

namespace extprop_sim {

bool TakeBootOption(const Args& args, size_t* i, BootOptions* options, std::string* error) {
    const std::string& arg = args[*i];
    if (arg == "-v" || arg == "--verbose") {
        options->verbose = true;
        return true;
    }
    std::string* out = arg == "--root"                ? &options->tree
                       : arg == "--props"             ? &options->props_file
                       : arg == "--script"            ? &options->script_file
                       : arg == "--lib"               ? &options->library
                       : arg == "--host"              ? &options->host
                       : arg == "--property-contexts" ? &options->property_contexts.emplace_back()
                                                      : nullptr;
    if (out == nullptr) return false;
    if (*i + 1 == args.size() || args[*i + 1].empty()) {
        *error = arg + " needs a value";
    } else {
        *out = args[++*i];
    }
    return true;
}

bool MakeBootConfig(const BootOptions& options, BootConfig* config, std::string* error) {
    struct stat st;
    if (stat(options.tree.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = "device tree " + options.tree + " is not a directory";
        return false;
    }
    // Refused here, before any boot starts. The handle stays open: the boot
    // loads the same library again.
    if (dlopen(options.library.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
        *error = std::string("cannot load library: ") + dlerror();
        return false;
    }
    config->tree = options.tree;
    config->library = options.library;
    config->verbose = options.verbose;
    config->steps = DefaultBootSteps();
    if (auto host = ParseHostMode(options.host)) {
        config->init.host = *host;
    } else {
        *error = "--host is vendor or aosp, not '" + options.host + "'";
        return false;
    }
    for (const std::string& file : options.property_contexts) {
        auto content = ReadOptionFile(file);
        if (!content.ok()) {
            *error = content.error().message();
            return false;
        }
        config->init.contexts_files.push_back({file, *content});
    }
    if (!options.props_file.empty() &&
        !ReadPropsFile(options.props_file, &config->properties, error)) {
        return false;
    }
    if (options.script_file.empty()) return true;
    auto script = ReadOptionFile(options.script_file);
    if (!script.ok()) {
        *error = script.error().message();
        return false;
    }
    config->steps.clear();
    if (!ParseScript(*script, &config->steps, error)) {
        *error = options.script_file + ": " + *error;
        return false;
    }
    ResolveScriptPaths(options.script_file, &config->steps);
    return true;
}

bool BootQuietly(const BootConfig& config, BootResult* result, std::string* error) {
    fprintf(stderr, "extprop-sim: booting %s\n", Printable(config.tree).c_str());
    *result = RunBoot(config);
    *error = result->error;
    return error->empty();
}

}  // namespace extprop_sim
