// SPDX-License-Identifier: Apache-2.0
// lint's findings as the user sees them: "path:line: severity: message
// [rule]" lines, the --json document, or a SARIF 2.1.0 log for code-review
// tools.
#pragma once

#include <string>
#include <vector>

#include "json.h"
#include "lint_rules.h"

namespace extprop_sim {

struct LintFinding {
    const LintRule* rule;
    std::string path;  // a device path
    size_t line;       // from 1; 0 when no line is at fault
    std::string message;
};

// Sorted by path, line and rule, as every output lists them.
void SortFindings(std::vector<LintFinding>* findings);

// "TREE/path:line: error: message [rule]", control bytes escaped.
std::string FindingText(const std::string& tree, const LintFinding& finding);

// The findings' records of the --json document.
Json FindingsJson(const std::vector<LintFinding>& findings);

// A SARIF 2.1.0 log of one run: every rule of kLintRules, and one result per
// finding located relative to the tree (uriBaseId TREEROOT, which is |tree|).
Json SarifLog(const std::string& tree, const std::vector<LintFinding>& findings);

}  // namespace extprop_sim
