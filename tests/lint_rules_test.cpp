// SPDX-License-Identifier: Apache-2.0
// lint's rules: each rule found where it should be, with its path, line and
// severity; --disable and --werror; the SARIF log code-review tools read; and
// the README's rule table, which is the tool's own.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "lint_rules.h"
#include "sandbox.h"
#include "simulator_run.h"

namespace zelva_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::Field;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Finding {
    std::string path;
    int line;  // 0: no line
    std::string severity;
    std::string rule;
    bool operator==(const Finding& o) const {
        return path == o.path && line == o.line && severity == o.severity && rule == o.rule;
    }
};

void PrintTo(const Finding& f, std::ostream* os) {
    *os << f.path << ":" << f.line << ": " << f.severity << " [" << f.rule << "]";
}

// A tree of brand alder and SKU region EU, so that my_region and my_carrier are read.
sandbox::DeviceTree AlderEu() {
    return sandbox::DeviceTree()
            .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n");
}

struct LintRun {
    int status;
    std::vector<Finding> findings;
    std::string document;
};

LintRun Lint(const sandbox::DeviceTree& tree, std::vector<std::string> options = {}) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(tree, &error);
    if (root == nullptr) return {-1, {}, error};
    std::vector<std::string> args = {"lint", "--root", root->path(), "--json"};
    args.insert(args.end(), options.begin(), options.end());
    const SimulatorRun run = RunSimulator(args);
    LintRun lint{run.status, {}, run.out};
    const auto document = nlohmann::json::parse(run.out, nullptr, false);
    if (document.is_discarded()) return lint;
    for (const auto& f : document["findings"]) {
        lint.findings.push_back({f["path"], f["line"].is_null() ? 0 : f["line"].get<int>(),
                                 f["severity"], f["rule"]});
    }
    return lint;
}

struct RuleCase {
    const char* rule;
    sandbox::DeviceTree tree;
    Finding expected;
    bool boots = false;  // a rule of the recorded boot; the others are checked without it
};

TEST(LintRulesTest, EachRuleFindsItsFaultAtItsPathAndLine) {
    REQUIRE_SANDBOX();
    const std::string too_long(100, 'v');
    const RuleCase cases[] = {
            {.rule = "property-contexts",
             .tree = AlderEu().File("/system/etc/selinux/plat_property_contexts", "garbage\n"),
             .expected = {"", 0, "error", "property-contexts"}},
            {.rule = "symlink-loop",
             .tree = AlderEu().Symlink("/my_carrier", "/my_carrier"),
             .expected = {"/my_carrier", 0, "error", "symlink-loop"}},
            {.rule = "final-symlink",
             .tree = AlderEu().File("/my_company/etc/build.prop", "a=1\n")
                             .Symlink("/my_company/build.prop", "/my_company/etc/build.prop"),
             .expected = {"/my_company/build.prop", 0, "error", "final-symlink"}},
            {.rule = "not-regular-file",
             .tree = AlderEu().Dir("/my_carrier/build.prop"),
             .expected = {"/my_carrier/build.prop", 0, "error", "not-regular-file"}},
            {.rule = "illegal-name",
             .tree = AlderEu().File("/my_carrier/build.prop", "a=1\nbad name=2\n"),
             .expected = {"/my_carrier/build.prop", 2, "error", "illegal-name"}},
            {.rule = "refused-by-init",
             .tree = AlderEu().File("/my_carrier/build.prop", "persist.x=1\n\npersist.x=" +
                                                                  too_long + "\n"),
             .expected = {"/my_carrier/build.prop", 3, "error", "refused-by-init"}},
            {.rule = "import-not-expandable",
             .tree = AlderEu().File("/my_carrier/build.prop", "a=1\nimport /x/${a.b\n"),
             .expected = {"/my_carrier/build.prop", 2, "error", "import-not-expandable"}},
            {.rule = "import-not-found",
             .tree = AlderEu().File("/my_carrier/build.prop", "import /my_carrier/gone.prop\n"),
             .expected = {"/my_carrier/build.prop", 1, "error", "import-not-found"}},
            {.rule = "import-cycle",
             .tree = AlderEu().File("/my_carrier/build.prop", "a=1\nimport /my_carrier/build.prop\n"),
             .expected = {"/my_carrier/build.prop", 2, "error", "import-cycle"}},
            {.rule = "unknown-brand",
             .tree = sandbox::DeviceTree().File("/my_region/build.prop",
                                                "ro.zelva.pipeline.region=EU\n"),
             .expected = {"/system_ext/etc/build.prop", 0, "warning", "unknown-brand"}},
            {.rule = "missing-region",
             .tree = sandbox::DeviceTree().File("/system_ext/etc/build.prop",
                                                "ro.zelva.image.system_ext.brand=alder\n"),
             .expected = {"/my_region/build.prop", 0, "warning", "missing-region"}},
            {.rule = "unknown-set",
             .tree = AlderEu().File("/my_carrier/properties/K/SimSwitchFirst/a.prop", "a=1\n"),
             .expected = {"/my_carrier/properties/K/SimSwitchFirst", 0, "warning", "unknown-set"}},
            {.rule = "directory-in-set",
             .tree = AlderEu().File("/my_carrier/properties/K/regionSwitch/sub/a.prop", "a=1\n"),
             .expected = {"/my_carrier/properties/K/regionSwitch/sub", 0, "warning",
                          "directory-in-set"}},
            {.rule = "not-prop-file",
             .tree = AlderEu().File("/my_carrier/properties/K/regionSwitch/notes.txt", "a=1\n"),
             .expected = {"/my_carrier/properties/K/regionSwitch/notes.txt", 0, "warning",
                          "not-prop-file"}},
            {.rule = "map-target-selects-nothing",
             .tree = AlderEu().File("/my_carrier/etc/nvmap.prop", "# old flags\n7=NOKEY\n"),
             .expected = {"/my_carrier/etc/nvmap.prop", 2, "warning",
                          "map-target-selects-nothing"}},
            // The market name's file, which only the boot reads, as a loop.
            {.rule = "failed-read",
             .tree = AlderEu().Symlink("/my_product/cust/EU/etc/devicename.cfg",
                                       "/my_product/cust/EU/etc/devicename.cfg"),
             .expected = {"/my_product/cust/EU/etc/devicename.cfg", 0, "error", "failed-read"},
             .boots = true},
            // A partition's name mistyped; a set of another key is not unread.
            {.rule = "unread-file",
             .tree = AlderEu().File("/my_regoin/build.prop", "a=1\n")
                             .File("/my_region/properties/FR/regionSwitch/r.prop", "b=1\n"),
             .expected = {"/my_regoin/build.prop", 0, "warning", "unread-file"},
             .boots = true},
    };
    std::set<std::string> tested;
    for (const RuleCase& c : cases) {
        const LintRun run = Lint(c.tree, c.boots ? std::vector<std::string>{}
                                                 : std::vector<std::string>{"--no-boot"});
        // The fault is found where it is, and no other rule fires on it.
        EXPECT_THAT(run.findings, AllOf(Contains(c.expected), Each(Field(&Finding::rule, c.rule))))
                << c.rule << "\n" << run.document;
        EXPECT_EQ(run.status, c.expected.severity == "error" ? 1 : 0) << c.rule;
        tested.insert(c.rule);
    }
    tested.insert("unreadable-file");  // below: it needs a reader other than root
    for (size_t i = 0; i < extprop_sim::kLintRuleCount; ++i) {
        EXPECT_THAT(tested, Contains(extprop_sim::kLintRules[i].id));
    }
}

// A file another user owns, mode 0600, linted by nobody: in its user
// namespace the device root has no power over root's files.
TEST(LintRulesTest, FileNobodyMayReadIsUnreadable) {
    REQUIRE_SANDBOX();
    if (getuid() != 0) GTEST_SKIP() << "laying out a file of another user needs root";
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            AlderEu().File("/my_carrier/build.prop", "a=1\n", 0600), &error);
    ASSERT_NE(root, nullptr) << error;
    ASSERT_EQ(chmod(root->path().c_str(), 0755), 0);
    TemporaryFile out;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out.fd, 1);
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(126);
        execl(ZELVA_SIMULATOR_PATH, ZELVA_SIMULATOR_PATH, "lint", "--root", root->path().c_str(),
              "--no-boot", "--json", nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    std::string document;
    ASSERT_TRUE(android::base::ReadFileToString(out.path, &document));
    EXPECT_THAT(document, HasSubstr("\"rule\": \"unreadable-file\"")) << document;
    EXPECT_THAT(document, HasSubstr("\"path\": \"/my_carrier/build.prop\"")) << document;
}

TEST(LintRulesTest, DisableDropsARulesFindingsAndWerrorFailsOnWarnings) {
    REQUIRE_SANDBOX();
    const sandbox::DeviceTree tree =
            AlderEu().File("/my_carrier/properties/K/regionSwitch/notes.txt", "a=1\n");
    EXPECT_EQ(Lint(tree).status, 0);
    const LintRun werror = Lint(tree, {"--werror"});
    EXPECT_EQ(werror.status, 1);
    EXPECT_THAT(werror.findings, Not(IsEmpty()));
    const LintRun disabled = Lint(tree, {"--werror", "--disable", "not-prop-file"});
    EXPECT_EQ(disabled.status, 0);
    EXPECT_THAT(disabled.findings, IsEmpty());
    EXPECT_THAT(disabled.document, ConformsToTheSchema());

    const SimulatorRun unknown = RunSimulator({"lint", "--root", "alder-eu", "--disable", "nope"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "extprop-sim: --disable: no lint rule 'nope'\n");
}

TEST(LintRulesTest, TextFindingIsPathLineSeverityMessageAndRule) {
    REQUIRE_SANDBOX();
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            AlderEu().File("/my_carrier/build.prop", "a=1\nbad name=2\n"), &error);
    ASSERT_NE(root, nullptr) << error;
    EXPECT_THAT(Lines(RunSimulator({"lint", "--root", root->path()}).out),
                ElementsAre(root->path() + "/my_carrier/build.prop:2: error: illegal property "
                                           "name 'bad name' [illegal-name]",
                            root->path() + ": 1 error(s), 0 warning(s)"));
}

// What SARIF 2.1.0 requires of a log, a run, its tool and its results.
TEST(LintRulesTest, SarifLogHasTheRulesAndLocatedResults) {
    REQUIRE_SANDBOX();
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            AlderEu().File("/my_carrier/build.prop", "a=1\nbad name=2\n"), &error);
    ASSERT_NE(root, nullptr) << error;
    TemporaryFile sarif_file;
    const SimulatorRun run =
            RunSimulator({"lint", "--root", root->path(), "--sarif", sarif_file.path});
    EXPECT_EQ(run.status, 1);
    std::string text;
    ASSERT_TRUE(android::base::ReadFileToString(sarif_file.path, &text));
    const auto sarif = nlohmann::json::parse(text);
    EXPECT_EQ(sarif["version"], "2.1.0");
    EXPECT_EQ(sarif["$schema"], "https://json.schemastore.org/sarif-2.1.0.json");
    ASSERT_EQ(sarif["runs"].size(), 1u);
    const auto& run0 = sarif["runs"][0];
    const auto& rules = run0["tool"]["driver"]["rules"];
    EXPECT_EQ(run0["tool"]["driver"]["name"], "extprop-sim lint");
    ASSERT_EQ(rules.size(), extprop_sim::kLintRuleCount);
    ASSERT_EQ(run0["results"].size(), 1u);
    const auto& result = run0["results"][0];
    EXPECT_EQ(result["ruleId"], "illegal-name");
    EXPECT_EQ(rules[result["ruleIndex"].get<size_t>()]["id"], "illegal-name");
    EXPECT_EQ(result["level"], "error");
    EXPECT_EQ(result["message"]["text"], "illegal property name 'bad name'");
    const auto& location = result["locations"][0]["physicalLocation"];
    EXPECT_EQ(location["artifactLocation"]["uri"], "my_carrier/build.prop");
    EXPECT_EQ(location["artifactLocation"]["uriBaseId"], "TREEROOT");
    EXPECT_EQ(location["region"]["startLine"], 2);
    EXPECT_EQ(run0["originalUriBaseIds"]["TREEROOT"]["uri"], "file://" + root->path() + "/");
}

// The README's table: "| `id` | severity | ..." rows, one per rule, in the tool's order.
TEST(LintRulesTest, ReadmeTableListsEveryRuleWithItsSeverity) {
    std::string readme;
    ASSERT_TRUE(android::base::ReadFileToString(ZELVA_SOURCE_DIR "/README.md", &readme));
    std::vector<std::string> rows;
    for (const std::string& line : android::base::Split(readme, "\n")) {
        if (!android::base::StartsWith(line, "| `")) continue;
        const std::vector<std::string> cells = android::base::Split(line, "|");
        if (cells.size() > 3 && android::base::Trim(cells[2]) != "error" &&
            android::base::Trim(cells[2]) != "warning") {
            continue;  // another table
        }
        if (cells.size() > 3) {
            rows.push_back(android::base::Trim(cells[1]) + " " + android::base::Trim(cells[2]));
        }
    }
    std::vector<std::string> registry;
    for (size_t i = 0; i < extprop_sim::kLintRuleCount; ++i) {
        const extprop_sim::LintRule& rule = extprop_sim::kLintRules[i];
        registry.push_back(std::string("`") + rule.id + "` " + (rule.error ? "error" : "warning"));
    }
    EXPECT_EQ(rows, registry);
}

}  // namespace
}  // namespace zelva_test
