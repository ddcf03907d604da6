// SPDX-License-Identifier: Apache-2.0
// lint --overrides and boot --html: which file:line each property's value
// came from at boot, which definitions are shadowed, and the page that shows
// it, on trees built here and on the bundled examples.

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "sim_tool_support.h"

namespace zelva_test {
namespace {

using Json = nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// One definition as lint --overrides --json reports it.
struct Shown {
    std::string file;
    int line;
    std::string value;
    std::string state;
    bool operator==(const Shown&) const = default;
};

void PrintTo(const Shown& d, std::ostream* os) {
    *os << d.file << ":" << d.line << " '" << d.value << "' " << d.state;
}

// name -> its definitions, from the document.
std::map<std::string, std::vector<Shown>> Overrides(const Json& document) {
    std::map<std::string, std::vector<Shown>> overrides;
    for (const Json& property : document["overrides"]) {
        auto& shown = overrides[property["name"].get<std::string>()];
        for (const Json& d : property["definitions"]) {
            shown.push_back({d["file"], d["line"].is_null() ? 0 : d["line"].get<int>(), d["value"],
                             d["state"]});
        }
    }
    return overrides;
}

// The carrier partition loads after the region partition: its line wins and
// the region's value is dead.
sandbox::DeviceTree ShadowedRegionTree() {
    return sandbox::DeviceTree()
            .File("/my_region/build.prop",
                  "ro.zelva.test.region=from-region\nro.zelva.test.same=one\n"
                  "ro.zelva.test.only=region\n")
            .File("/my_carrier/build.prop",
                  "# carrier\nro.zelva.test.region = from-carrier\nro.zelva.test.same=one\n")
            .Dir("/data");
}

class OverridesTest : public SimToolTest {};

TEST_F(OverridesTest, TextNamesTheWinningLineAndTheShadowedRegionValue) {
    const std::string tree = Tree(ShadowedRegionTree());
    const ToolRun run = RunTool(tree, {"lint", "--overrides", "--root", tree});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(Lines(run.out),
                ElementsAre("ro.zelva.test.region: init holds 'from-carrier'",
                            "  /my_region/build.prop:1: shadowed: 'from-region'",
                            "  /my_carrier/build.prop:2: wins: 'from-carrier'",
                            "ro.zelva.test.same: init holds 'one'",
                            "  /my_region/build.prop:2: same value: 'one'",
                            "  /my_carrier/build.prop:3: wins: 'one'",
                            "2 properties defined in more than one place, 1 shadowed definition(s)"
                            " with a value init doesn't end with"))
            << run.err;
}

TEST_F(OverridesTest, TextEscapesControlBytesOfShadowedValues) {
    const std::string tree =
            Tree(sandbox::DeviceTree()
                         .File("/my_region/build.prop", "ro.zelva.test.x=a\x1b[2Jb\n")
                         .File("/my_carrier/build.prop", "ro.zelva.test.x=c\n")
                         .Dir("/data"));
    const ToolRun run = RunTool(tree, {"lint", "--overrides", "--root", tree});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(Lines(run.out), Contains("  /my_region/build.prop:1: shadowed: 'a\\x1b[2Jb'"));
    EXPECT_THAT(run.out, Not(HasSubstr("\x1b")));
}

TEST_F(OverridesTest, JsonListsEveryDefinitionInLoadOrderWithItsState) {
    const std::string tree = Tree(ShadowedRegionTree());
    const ToolRun run = RunTool(tree, {"lint", "--overrides", "--json", "--root", tree});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ConformsToTheSchema());
    const Json document = Json::parse(run.out);
    EXPECT_THAT(
            Overrides(document),
            ElementsAre(testing::Pair("ro.zelva.test.region",
                                      ElementsAre(Shown{"/my_region/build.prop", 1, "from-region",
                                                        "shadowed"},
                                                  Shown{"/my_carrier/build.prop", 2, "from-carrier",
                                                        "wins"})),
                        testing::Pair(
                                "ro.zelva.test.same",
                                ElementsAre(Shown{"/my_region/build.prop", 2, "one", "same_value"},
                                            Shown{"/my_carrier/build.prop", 3, "one", "wins"}))));
    EXPECT_EQ(document["overrides"][0]["final"], "from-carrier");
}

// A late ro. value from /data: the vendor init sets it over the partition's,
// the AOSP init refuses it, so the partition's definition is what it holds.
struct HostRow {
    const char* host;
    Shown partition;
    Shown data;
};

void PrintTo(const HostRow& row, std::ostream* os) {
    *os << row.host;
}

class OverridesByHostTest : public SimToolTest, public testing::WithParamInterface<HostRow> {};

TEST_P(OverridesByHostTest, WinnerIsTheDefinitionInitKept) {
    const HostRow& row = GetParam();
    const std::string tree =
            Tree(sandbox::DeviceTree()
                         .File("/my_product/build.prop", "ro.zelva.test.late=partition\n")
                         .File("/data/system/customize/data_common_prop_file.prop",
                               "# data\n\nro.zelva.test.late = data \n"));
    const ToolRun run =
            RunTool(tree, {"lint", "--overrides", "--json", "--root", tree, "--host", row.host});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(Overrides(Json::parse(run.out))["ro.zelva.test.late"],
                ElementsAre(row.partition, row.data));
}

INSTANTIATE_TEST_SUITE_P(
        Hosts, OverridesByHostTest,
        testing::Values(HostRow{.host = "vendor",
                                .partition = {"/my_product/build.prop", 1, "partition", "shadowed"},
                                .data = {"/data/system/customize/data_common_prop_file.prop", 3,
                                         "data", "wins"}},
                        HostRow{.host = "aosp",
                                .partition = {"/my_product/build.prop", 1, "partition", "wins"},
                                .data = {"/data/system/customize/data_common_prop_file.prop", 3,
                                         "data", "shadowed"}}),
        [](const testing::TestParamInfo<HostRow>& info) { return std::string(info.param.host); });

// On a bundled example, every winner holds the value a separate boot ends
// with, and each property has exactly one winner.
TEST_F(OverridesTest, WinnersOfTheExampleHoldWhatInitEndsTheBootWith) {
    const SimulatorRun overrides = RunSimulator(
            {"lint", "--overrides", "--json", "--root", "alder-eu", "--props", "alder-eu.props"});
    const SimulatorRun boot =
            RunSimulator({"boot", "--json", "--root", "alder-eu", "--props", "alder-eu.props"});
    ASSERT_EQ(overrides.status, 0) << overrides.err;
    ASSERT_EQ(boot.status, 0) << boot.err;
    std::map<std::string, std::string> after_boot;
    const Json booted = Json::parse(boot.out);
    for (const Json& p : booted["properties"]) {
        after_boot[p["name"].get<std::string>()] = p["value"].get<std::string>();
    }
    const auto all = Overrides(Json::parse(overrides.out));
    ASSERT_THAT(all, Contains(testing::Key("persist.sys.locale.default")));
    for (const auto& [name, definitions] : all) {
        std::vector<std::string> winners;
        for (const Shown& d : definitions) {
            if (d.state == "wins") winners.push_back(d.value);
        }
        EXPECT_THAT(winners, ElementsAre(after_boot[name])) << name;
    }
}

class HtmlReportTest : public SimToolTest {};

TEST_F(HtmlReportTest, TreeTextStaysTextInThePage) {
    const std::string tree = Tree(
            sandbox::DeviceTree()
                    .File("/my_region/build.prop",
                          "persist.test.label=<script>alert(1)</script>\nro.zelva.test.q=a\"b'c\n")
                    .File("/my_carrier/build.prop", "ro.zelva.test.q=a\"b'c&d\n")
                    .Dir("/data"));
    TemporaryDir out;
    const std::string page = std::string(out.path) + "/boot.html";
    const ToolRun run = RunTool(tree, {"boot", "--root", tree, "--html", page});
    ASSERT_EQ(run.status, 0) << run.err;
    std::string html;
    ASSERT_TRUE(android::base::ReadFileToString(page, &html));
    EXPECT_THAT(html, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"));
    // The grid's tooltip attribute holds both definitions, quotes escaped.
    EXPECT_THAT(html, HasSubstr("a&quot;b&#39;c&amp;d (wins)"));
    EXPECT_THAT(html, HasSubstr("a&quot;b&#39;c (shadowed)"));
    EXPECT_THAT(html, Not(HasSubstr("alert(1)</script>")));
    EXPECT_THAT(html, Not(HasSubstr("a\"b")));
    // The page's own script is the only one, and it loads nothing.
    EXPECT_EQ(html.find("<script"), html.rfind("<script"));
    EXPECT_THAT(html, Not(HasSubstr("src=")));
    EXPECT_THAT(html, Not(HasSubstr("http")));
}

}  // namespace
}  // namespace zelva_test
