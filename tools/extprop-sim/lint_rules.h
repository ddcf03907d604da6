// SPDX-License-Identifier: Apache-2.0
// lint's rules: one stable id each, what it finds and how bad that is. The
// README's rule table and the SARIF output's rule list are this table.
#pragma once

#include <string>

namespace extprop_sim {

struct LintRule {
    const char* id;       // stable, for --disable, JSON and SARIF
    bool error;           // else a warning
    const char* summary;  // one line: what a finding of the rule means
};

namespace lint_rule {
constexpr char kPropertyContexts[] = "property-contexts";
constexpr char kSymlinkLoop[] = "symlink-loop";
constexpr char kFinalSymlink[] = "final-symlink";
constexpr char kNotRegularFile[] = "not-regular-file";
constexpr char kUnreadableFile[] = "unreadable-file";
constexpr char kIllegalName[] = "illegal-name";
constexpr char kRefusedByInit[] = "refused-by-init";
constexpr char kImportNotExpandable[] = "import-not-expandable";
constexpr char kImportNotFound[] = "import-not-found";
constexpr char kImportCycle[] = "import-cycle";
constexpr char kUnknownBrand[] = "unknown-brand";
constexpr char kMissingRegion[] = "missing-region";
constexpr char kUnknownSet[] = "unknown-set";
constexpr char kDirectoryInSet[] = "directory-in-set";
constexpr char kNotPropFile[] = "not-prop-file";
constexpr char kMapTargetSelectsNothing[] = "map-target-selects-nothing";
constexpr char kFailedRead[] = "failed-read";
constexpr char kUnreadFile[] = "unread-file";
}  // namespace lint_rule

// Every rule, in the order the README lists them.
extern const LintRule kLintRules[];
extern const size_t kLintRuleCount;

// The rule with |id|, or null.
const LintRule* FindLintRule(const std::string& id);

}  // namespace extprop_sim
