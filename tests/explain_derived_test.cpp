// SPDX-License-Identifier: Apache-2.0
// explain on values the library derives or renames, on sets a switch key
// selects, and on a partition read at both of its mount points.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "sim_tool_support.h"
#include "simulator_run.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class ExplainDerivedTest : public SimToolTest {
  protected:
    // explain NAME on |tree| booted with |script| and the seeded |props|.
    ToolRun Explain(const sandbox::DeviceTree& tree, const std::string& script,
                    const std::string& props, const std::string& name) {
        const std::string root = Tree(tree);
        script_ = std::make_unique<ScriptFile>(script);
        const std::string props_file = script_->dir() + "/seeded.props";
        android::base::WriteStringToFile(props, props_file);
        return RunTool(script_->dir(), {"explain", name, "--root", root, "--lib", LibraryPath(),
                                        "--props", props_file, "--script", script_->path()});
    }

  private:
    std::unique_ptr<ScriptFile> script_;
};

// The lines of the report from the one starting with |header| to the last indented one.
std::vector<std::string> Block(const std::string& out, const std::string& header) {
    std::vector<std::string> lines;
    for (const std::string& line : android::base::Split(out, "\n")) {
        if (lines.empty() ? android::base::StartsWith(line, header)
                          : android::base::StartsWith(line, " ")) {
            lines.push_back(line);
        } else if (!lines.empty()) {
            break;
        }
    }
    return lines;
}

TEST_F(ExplainDerivedTest, EachDerivedValueIsExplainedWithItsInputs) {
    struct Row {
        std::string name;
        sandbox::DeviceTree tree;
        std::string script;
        std::string props;
        std::vector<std::string> block;  // after "Derived by the library: <how>."
    };
    const std::string cota_script =
            "setprop sys.cotaimg.verify 1\nsetprop sys.cota.load.properties /mnt/cota/carrier\n"
            "loadCotaOverrideProperties\n";
    for (const Row& row : std::vector<Row>{
                 {.name = "ro.vendor.zelva.exp.version",
                  .script = "loadPersistOverrideProperties\n",
                  .props = "ro.build.display.id=QX100_11\nro.vendor.zelva.version_suffix=T\n",
                  .block = {"  step 0 slot 6 loadPersistOverrideProperties: 'QX100T_11' from",
                            "    ro.build.display.id='QX100_11'",
                            "    ro.vendor.zelva.version_suffix='T'"}},
                 {.name = "ro.zelva.customize.display.version_name",
                 .tree = sandbox::DeviceTree().File(
                         "/my_carrier/build.prop",
                         "ro.zelva.image.my_carrier.version_name=V2-Vodafone\n"),
                 .script = "loadExtensionPartitionProperties\nloadPersistOverrideProperties\n",
                 .block = {"  step 1 slot 6 loadPersistOverrideProperties: 'Vodafone' from",
                           "    ro.zelva.image.my_carrier.version_name='V2-Vodafone'",
                           "    ro.zelva.image.my_region.version_name unset",
                           "    ro.build.cota.version_name unset",
                           "    log: customize dispaly version Vodafone"}},
                 {.name = "ro.vendor.zelva.market.name",
                 .tree = sandbox::DeviceTree()
                                 .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
                                 .File("/my_product/cust/EU/etc/devicename.cfg",
                                       "ROM=256\nmarket=Alder X1 Pro\ntype=t\nmodel=m\n")
                                 .File("/sys/block/sda/size", "500000000\n"),
                 .script = "loadPersistOverrideProperties\n",
                 .props = "dev.mnt.blk.userdata=sda\n",
                 .block = {"  step 0 slot 6 loadPersistOverrideProperties: 'Alder X1 Pro' from",
                           "    dev.mnt.blk.userdata='sda'",
                           "    /sys/block/sda/size: '500000000' sectors",
                           "    log: Loading property from /my_region/build.prop: EU",
                           "    log: Loading property from /my_product/cust/EU/etc/devicename.cfg: "
                           "256",
                           "    log: Loading property from /my_product/cust/EU/etc/devicename.cfg: "
                           "Alder X1 Pro",
                           "    log: Loading property from /my_product/cust/EU/etc/devicename.cfg: "
                           "t",
                           "    log: Loading property from /my_product/cust/EU/etc/devicename.cfg: "
                           "m"}},
                 {.name = "ro.zelva.cust.ver",
                 .tree = sandbox::DeviceTree().File("/my_carrier/build.prop",
                                                    "ro.zelva.image.my_carrier.type=operator\n"),
                 .script = "loadExtensionPartitionProperties\n",
                 .block = {"  step 0 slot 4 loadExtensionPartitionProperties: '1' from",
                           "    ro.zelva.image.my_carrier.type='operator' in the same batch"}},
                 {.name = "ro.zelva.image.my_carrier.version_name",
                 .tree = sandbox::DeviceTree().File(
                         "/mnt/cota/carrier/build.prop",
                         "ro.zelva.image.my_bigball.version_name=V3-Cota\n"),
                 .script = cota_script,
                 .block = {"  step 2 slot 7 loadCotaOverrideProperties: 'V3-Cota' from",
                           "    ro.zelva.image.my_bigball.version_name='V3-Cota' in "
                           "/mnt/cota/carrier/build.prop"}},
         }) {
        const ToolRun run = Explain(row.tree, row.script, row.props, row.name);
        EXPECT_EQ(run.status, 0) << row.name << ": " << run.err;
        std::vector<std::string> block = Block(run.out, "Derived by the library:");
        if (!block.empty()) block.erase(block.begin());
        EXPECT_THAT(block, ElementsAreArray(row.block)) << row.name << "\n" << run.out;
        EXPECT_THAT(run.out, testing::Not(testing::HasSubstr("No property file set it")));
    }
}

TEST_F(ExplainDerivedTest, KeySelectedSetNamesItsKeyAndWhereTheKeyCameFrom) {
    struct Row {
        std::string what;
        sandbox::DeviceTree tree;
        std::string script;
        std::string choice;
    };
    const std::string set = "/my_carrier/properties/orange/SimSwitchCurrentTime/current.prop";
    for (const Row& row : std::vector<
                 Row>{{.what = "the reserve key file",
     .tree = sandbox::DeviceTree()
                               .File(set, "persist.x=1\n")
                               .File("/mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file",
                                     "sys.sim.switch.current=orange\n"),
     .script = "loadPersistOverrideProperties\n",
     .choice = "      chosen by the key 'orange' of sys.sim.switch.current, from "
               "/mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file"},
                      {.what = "a SIM switch",
                      .tree = sandbox::DeviceTree().File(set, "persist.x=1\n"),
                      .script = "sim-switch orange\n",
                      .choice = "      chosen by the key 'orange' of sys.sim.switch.current, from "
                                "system property sys.sim.switch.current set by step 0 sim-switch "
                                "orange"}}) {
        const ToolRun run = Explain(row.tree, row.script, "", "persist.x");
        EXPECT_EQ(run.status, 0) << row.what << ": " << run.err;
        EXPECT_THAT(Block(run.out, "Files that set it"), testing::Contains(row.choice))
                << row.what << "\n"
                << run.out;
    }
}

TEST_F(ExplainDerivedTest, PartitionReadAtBothMountPointsIsOneFileUnlessTheyDiffer) {
    const std::string same = "ro.p=1\n";
    const ToolRun linked = Explain(sandbox::DeviceTree()
                                           .File("/my_carrier/build.prop", same)
                                           .Symlink("/mnt/vendor/my_carrier", "/my_carrier"),
                                   "loadExtensionPartitionProperties\n", "", "ro.p");
    EXPECT_THAT(Block(linked.out, "Files that set it"),
                ElementsAre(testing::_, "  step 0 slot 4 loadExtensionPartitionProperties",
                            "    /mnt/vendor/my_carrier/build.prop (and as "
                            "/my_carrier/build.prop): '1'"));
    const ToolRun apart =
            Explain(sandbox::DeviceTree()
                            .File("/my_carrier/build.prop", same)
                            .File("/mnt/vendor/my_carrier/build.prop", same + "b=2\n"),
                    "loadExtensionPartitionProperties\n", "", "ro.p");
    EXPECT_THAT(Block(apart.out, "Files that set it"),
                ElementsAre(testing::_, "  step 0 slot 4 loadExtensionPartitionProperties",
                            "    /mnt/vendor/my_carrier/build.prop: '1'",
                            "    /my_carrier/build.prop: '1'"));
}

}  // namespace
}  // namespace zelva_test

namespace zelva_test {
namespace {

std::vector<std::string> Values(const nlohmann::json& list) {
    std::vector<std::string> values;
    for (const auto& record : list) values.push_back(record["value"]);
    return values;
}

// --json gives the same derivation, line by line, and each key-selected file's key.
TEST(ExplainDerivedJsonTest, DocumentCarriesTheDerivationAndTheKeyChoice) {
    REQUIRE_SANDBOX();
    const SimulatorRun market = RunSimulator({"explain", "ro.vendor.zelva.market.name", "--root",
                                              "birch-cn", "--props", "birch-cn.props", "--json"});
    ASSERT_EQ(market.status, 0) << market.err;
    EXPECT_THAT(market.out, ConformsToTheSchema());
    EXPECT_THAT(Values(nlohmann::json::parse(market.out)["derived"]),
                testing::IsSupersetOf(
                        {"  step 2 slot 6 loadPersistOverrideProperties: 'Birch B2 Pro' from",
                         "    /sys/block/sda/size: '998244352' sectors"}));

    const SimulatorRun locale =
            RunSimulator({"explain", "persist.sys.locale.default", "--root", "alder-eu",
                          "--props", "alder-eu.props", "--json"});
    ASSERT_EQ(locale.status, 0) << locale.err;
    std::vector<std::string> choices;
    const auto document = nlohmann::json::parse(locale.out);
    for (const auto& definition : document["definitions"]) {
        if (definition["key_choice"].is_string()) choices.push_back(definition["key_choice"]);
    }
    EXPECT_THAT(choices, testing::Contains("chosen by the key 'DE' of sys.region.switch.first, "
                                           "from /mnt/vendor/zelvareserve/system/ssv/"
                                           "region_switch_file"));
}

}  // namespace
}  // namespace zelva_test
