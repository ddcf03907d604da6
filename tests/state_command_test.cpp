// SPDX-License-Identifier: Apache-2.0
// state: the switch-key files as the tree holds them and as each boot of a
// sequence found and left them.

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "simulator_run.h"

namespace zelva_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

struct KeyFile {
    std::string path, owner_mode, content;
    bool operator==(const KeyFile& o) const {
        return path == o.path && owner_mode == o.owner_mode && content == o.content;
    }
};

void PrintTo(const KeyFile& f, std::ostream* os) {
    *os << f.path << " (" << f.owner_mode << "): " << testing::PrintToString(f.content);
}

std::vector<KeyFile> Files(const nlohmann::json& list) {
    std::vector<KeyFile> files;
    for (const auto& f : list) files.push_back({f["path"], f["owner_mode"], f["content"]});
    return files;
}

// birch-cn converts its old operator flag at first boot and moves to Beijing;
// then a reboot and a factory reset, which keep the reserve partition.
TEST(StateCommandTest, FirstBootWritesTheReserveKeysAndLaterBootsKeepThem) {
    REQUIRE_SANDBOX();
    const std::vector<std::string> args = {"state", "--root", "birch-cn", "--props",
                                           "birch-cn.props", "--script",
                                           "birch-cn-scenario.script"};
    std::vector<std::string> json_args = args;
    json_args.push_back("--json");
    const SimulatorRun run = RunSimulator(json_args);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ConformsToTheSchema());
    const auto document = nlohmann::json::parse(run.out);
    EXPECT_THAT(Files(document["tree"]), IsEmpty());
    const auto& boots = document["boots"];
    ASSERT_EQ(boots.size(), 3u);
    const std::string ssv = "/mnt/vendor/zelvareserve/system/ssv/";
    EXPECT_THAT(Files(boots[0]["start"]), IsEmpty());
    EXPECT_THAT(Files(boots[0]["end"]),
                ElementsAre(KeyFile{ssv + "region_switch_file", "1000:1000 0600",
                                    "sys.region.switch.first=BJ\n"},
                            KeyFile{ssv + "sim_switch_convert_file", "1000:1000 0600",
                                    "sys.sim.switch.convert= true\n"},
                            KeyFile{ssv + "sim_switch_first_file", "1000:1000 0600",
                                    "sys.sim.switch.first=cmcc\n"}));
    EXPECT_EQ(boots[2]["started_by"], "wipe-data");
    EXPECT_EQ(Files(boots[2]["end"]), Files(boots[0]["end"]));

    EXPECT_THAT(Lines(RunSimulator(args).out),
                Contains("  + " + ssv +
                         "sim_switch_first_file: \"sys.sim.switch.first=cmcc\\n\" "
                         "(1000:1000 0600)"));
}

}  // namespace
}  // namespace zelva_test
