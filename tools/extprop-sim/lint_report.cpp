// SPDX-License-Identifier: Apache-2.0
#include "lint_report.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <tuple>

#include "build_config.h"
#include "printable.h"

namespace extprop_sim {
namespace {

constexpr char kSarifSchema[] = "https://json.schemastore.org/sarif-2.1.0.json";
constexpr char kTreeRoot[] = "TREEROOT";

const char* Level(const LintRule& rule) {
    return rule.error ? "error" : "warning";
}

// A device path as a URI reference relative to the tree: the leading slash
// dropped, every byte outside the unreserved set and "/" percent-encoded.
std::string RelativeUri(const std::string& path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string uri;
    for (size_t i = path.find_first_not_of('/'); i < path.size(); ++i) {
        const unsigned char c = path[i];
        if (isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            uri += static_cast<char>(c);
        } else {
            uri += '%';
            uri += kHex[c >> 4];
            uri += kHex[c & 0xf];
        }
    }
    return uri;
}

// file:// URI of the tree's directory, with a final slash, as SARIF wants a base.
std::string TreeUri(const std::string& tree) {
    char resolved[PATH_MAX];
    const std::string absolute = realpath(tree.c_str(), resolved) != nullptr ? resolved : tree;
    return "file:///" + RelativeUri(absolute) + (absolute == "/" ? "" : "/");
}

size_t RuleIndex(const LintRule* rule) {
    return static_cast<size_t>(rule - kLintRules);
}

}  // namespace

void SortFindings(std::vector<LintFinding>* findings) {
    std::stable_sort(findings->begin(), findings->end(),
                     [](const LintFinding& a, const LintFinding& b) {
                         return std::tie(a.path, a.line, a.rule->id) <
                                std::tie(b.path, b.line, b.rule->id);
                     });
}

std::string FindingText(const std::string& tree, const LintFinding& finding) {
    std::string text = tree + finding.path;
    if (finding.line != 0) text += ":" + std::to_string(finding.line);
    text += std::string(": ") + Level(*finding.rule) + ": " + finding.message + " [" +
            finding.rule->id + "]";
    return Printable(text);
}

Json FindingsJson(const std::vector<LintFinding>& findings) {
    Json records = Json::array();
    for (const LintFinding& finding : findings) {
        Json record = Json::object();
        PutBytes(&record, "path", finding.path);
        record["line"] = finding.line != 0 ? Json(finding.line) : Json(nullptr);
        record["severity"] = Level(*finding.rule);
        PutBytes(&record, "message", finding.message);
        record["rule"] = finding.rule->id;
        records.push_back(std::move(record));
    }
    return records;
}

Json SarifLog(const std::string& tree, const std::vector<LintFinding>& findings) {
    Json rules = Json::array();
    for (size_t i = 0; i < kLintRuleCount; ++i) {
        const LintRule& rule = kLintRules[i];
        rules.push_back({{"id", rule.id},
                         {"shortDescription", {{"text", rule.summary}}},
                         {"defaultConfiguration", {{"level", Level(rule)}}}});
    }
    Json results = Json::array();
    for (const LintFinding& finding : findings) {
        Json locations = Json::array();  // none for a finding about no file
        if (!finding.path.empty()) {
            Json physical = {{"artifactLocation",
                              {{"uri", RelativeUri(finding.path)}, {"uriBaseId", kTreeRoot}}}};
            if (finding.line != 0) physical["region"] = {{"startLine", finding.line}};
            locations.push_back({{"physicalLocation", std::move(physical)}});
        }
        // SARIF text is a JSON string: bytes that are not UTF-8 become U+FFFD.
        results.push_back({{"ruleId", finding.rule->id},
                           {"ruleIndex", RuleIndex(finding.rule)},
                           {"level", Level(*finding.rule)},
                           {"message", {{"text", ReplaceInvalidUtf8(finding.message)}}},
                           {"locations", std::move(locations)}});
    }
    Json driver = {{"name", "extprop-sim lint"},
                   {"version", EXTPROP_SIM_VERSION},
                   {"rules", std::move(rules)}};
    Json run = {{"tool", {{"driver", std::move(driver)}}},
                {"originalUriBaseIds", {{kTreeRoot, {{"uri", TreeUri(tree)}}}}},
                {"results", std::move(results)}};
    return {{"version", "2.1.0"}, {"$schema", kSarifSchema}, {"runs", Json::array({run})}};
}

}  // namespace extprop_sim
