// SPDX-License-Identifier: Apache-2.0
// lint: what in a device tree would silently go wrong at boot, found by
// reading the tree's files the way the library reads them, inside the
// device root.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "init_rules.h"
#include "lint_rules.h"

namespace extprop_sim {

// Lint runs inside the device root, so its paths are device paths.
struct LintContext {
    struct Finding {
        const char* rule;  // an id of kLintRules, which gives the severity
        std::string path;
        size_t line;  // from 1; 0 when no line is at fault
        std::string problem;
    };
    std::string tree;               // prefix of the device paths: "" inside the device root
    std::vector<std::string> dirs;  // the customization directories, resolved, each once
    std::vector<Finding> findings;
    std::set<std::string> checked;     // files (with their filter) already checked
    std::vector<std::string> loading;  // files being checked, importer first
    InitRules rules;                   // what init refuses of the files' properties
    // Off for files the library reads for itself (maps, keys, requests): their
    // names never reach init, so only the legality checks apply.
    bool handed_to_init = true;

    void Report(const char* rule, const std::string& path, const std::string& problem,
                size_t line = 0);
};

// Checks one property file, as the parser would read it with
// |filter| (null: none, imports followed): a final symbolic link or an
// unreadable file, properties init would refuse, and imports that can't be
// expanded, name no file or form a cycle. A missing file is not a finding.
void LintPropertyFile(LintContext* ctx, const std::string& path, const char* filter = nullptr);

// The customization directories of the tree's brand and SKU region, as the
// library lists them, warning when the brand or region is missing.
std::vector<std::string> LintCustomizationDirs(LintContext* ctx);

// What every customization directory holds: build.prop and the
// etc/build.<key>.prop files, property sets (properties/<key>/<set>) and map
// files (etc/nvmap.prop, flags.prop, custom_map.prop).
void LintPartitionFiles(LintContext* ctx);
void LintPropertySets(LintContext* ctx);
void LintMapFiles(LintContext* ctx);

}  // namespace extprop_sim
