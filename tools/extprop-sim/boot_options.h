// SPDX-License-Identifier: Apache-2.0
// The options that every booting command shares (--root, --props, --script,
// --lib, -v, --host, --property-contexts) and the boot they describe.
#pragma once

#include <string>
#include <vector>

#include "boot.h"

namespace extprop_sim {

struct BootOptions {
    std::string tree;
    std::string props_file;
    std::string script_file;
    std::vector<std::string> then;  // --then STEP: script lines run after the boot or script
    std::string library = DefaultLibraryPath();
    bool verbose = false;
    std::string host = "vendor";                 // --host vendor|aosp
    std::vector<std::string> property_contexts;  // --property-contexts FILE, repeatable
};

// The boot the options describe: the tree must be a directory, the library
// loadable, the props and script files readable and well-formed.
bool MakeBootConfig(const BootOptions& options, BootConfig* config, std::string* error);

// Runs the boot for a command that reports on it afterwards (the library's
// log is kept, not echoed), saying so on stderr. Returns false with the
// reason when the boot couldn't run.
bool BootQuietly(const BootConfig& config, BootResult* result, std::string* error);

}  // namespace extprop_sim
