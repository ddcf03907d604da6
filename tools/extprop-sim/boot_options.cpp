// SPDX-License-Identifier: Apache-2.0
#include "boot_options.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "option_file.h"
#include "printable.h"

namespace extprop_sim {

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
    if (!options.script_file.empty()) {
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
    }
    // --then: each a script line of its own; an ota DIR is taken from the
    // working directory.
    for (const std::string& line : options.then) {
        if (line.find('\n') != std::string::npos) {
            *error = "--then takes one step, one line";
            return false;
        }
        if (!ParseScript(line, &config->steps, error)) {
            *error = "--then '" + line + "': " + error->substr(error->find(": ") + 2);
            return false;
        }
    }
    return true;
}

bool BootQuietly(const BootConfig& config, BootResult* result, std::string* error) {
    fprintf(stderr, "extprop-sim: booting %s\n", Printable(config.tree).c_str());
    *result = RunBoot(config);
    *error = result->error;
    return error->empty();
}

}  // namespace extprop_sim
