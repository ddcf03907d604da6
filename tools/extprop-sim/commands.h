// SPDX-License-Identifier: Apache-2.0
// The simulator's subcommands, each with the arguments its command line
// gave (main.cpp parses them). Each returns the process exit status:
// 0 success, 1 findings (lint errors, differing trees, a property that plays
// no part in the boot), 2 a usage or setup error (one line on stderr).
#pragma once

#include <string>
#include <vector>

#include "boot_options.h"

namespace extprop_sim {

constexpr int kExitOk = 0;
constexpr int kExitFindings = 1;
constexpr int kExitError = 2;

struct BootArgs {
    BootOptions boot;
    bool json = false;
    bool keep_root = false;
    std::string html_file;  // --html FILE: the boot as one self-contained page
};

struct ExplainArgs {
    BootOptions boot;
    std::string name;
    bool json = false;
};

struct DiffArgs {
    BootOptions boot;     // its tree is A's
    std::string root_b;   // --root-b
    std::string props_b;  // --props-b; empty: B takes --props too
    bool json = false;
};

struct CheckArgs {
    BootOptions boot;
    std::string golden_file;           // --golden FILE
    std::vector<std::string> ignored;  // --ignore GLOB, repeatable
    bool update = false;               // write the golden file instead of comparing
    std::string html_file;             // --html FILE: the boot's page, when the check fails
};

struct StateArgs {
    BootOptions boot;
    bool json = false;
};

struct LintArgs {
    std::string tree;  // --root
    std::string props_file;
    std::vector<std::string> property_contexts;
    std::vector<std::string> disabled;  // --disable RULE, repeatable
    bool werror = false;                // warnings fail too
    std::string sarif_file;             // --sarif FILE; "-" for standard output
    bool no_boot = false;               // the static checks only
    bool overrides = false;             // --overrides: which definition wins at boot
    std::string host = "vendor";        // --host, for --overrides' boot
    bool json = false;
};

struct ParseArgs {
    std::string file;
    std::string root;
    std::string filter;
    std::vector<std::string> props;  // --prop NAME=VALUE, repeatable
    bool verbose = false;
    bool json = false;
};

int BootCommand(const BootArgs& args);
int ExplainCommand(const ExplainArgs& args);
int DiffCommand(const DiffArgs& args);
int CheckCommand(const CheckArgs& args);
int StateCommand(const StateArgs& args);
int LintCommand(const LintArgs& args);
int LintOverridesCommand(const LintArgs& args);
int ParseCommand(const ParseArgs& args);

// Prints "extprop-sim: <message>" on stderr and returns kExitError.
int Fail(const std::string& message);

}  // namespace extprop_sim
