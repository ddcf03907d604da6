// SPDX-License-Identifier: Apache-2.0
// Boot scripts that take a device through restarts (reboot, wipe-data, ota),
// a SIM switch, and the assertions that make a run fail.

#include <filesystem>

#include <gmock/gmock.h>

#include "sim_tool_support.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;

class BootSequenceTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string why;
        SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    }

    // The tree on disk, for the tool's --root.
    std::string Tree(const sandbox::DeviceTree& tree) {
        std::string error;
        root_ = sandbox::ScratchRoot::Create(tree, &error);
        EXPECT_NE(root_, nullptr) << error;
        return root_ ? root_->path() : "";
    }

  private:
    std::unique_ptr<sandbox::ScratchRoot> root_;
};

TEST_F(BootSequenceTest, RebootIsANewObjectThatKeepsDataReserveAndPersistProperties) {
    const std::string tree = Tree(
            sandbox::DeviceTree()
                    .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
                    .Dir("/data")
                    .Dir("/mnt/vendor"));
    const ScriptFile script(R"(setprop persist.kept yes
setprop sys.dropped yes
write /data/note data
write /mnt/vendor/zelvareserve/note reserve
loadPersistOverrideProperties
loadPersistOverrideProperties
reboot
loadPersistOverrideProperties
expect-prop persist.kept yes
expect-no-prop sys.dropped
expect-file /data/note data
expect-file /mnt/vendor/zelvareserve/note reserve
)");
    const ToolRun run = BootScript(tree, script);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto report = nlohmann::json::parse(run.out);
    EXPECT_THAT(
            StepsByBoot(report),
            ElementsAre("boot 1: setprop persist.kept yes", "boot 1: setprop sys.dropped yes",
                        "boot 1: write /data/note", "boot 1: write /mnt/vendor/zelvareserve/note",
                        "boot 1: slot 6 loadPersistOverrideProperties",
                        "boot 1: slot 6 loadPersistOverrideProperties", "boot 2: reboot",
                        "boot 2: slot 6 loadPersistOverrideProperties",
                        "boot 2: expect-prop persist.kept yes",
                        "boot 2: expect-no-prop sys.dropped", "boot 2: expect-file /data/note data",
                        "boot 2: expect-file /mnt/vendor/zelvareserve/note reserve"));
    // Each boot makes the object anew, reading the brand for its directory lists; the
    // reboot's is logged with the reboot step.
    EXPECT_THAT(StepsLogging(report, "Loading property from /system_ext/etc/build.prop: alder"),
                ElementsAre(-1, 6));
    EXPECT_THAT(Failures(run.err), ElementsAre());
}

TEST_F(BootSequenceTest, WipeDataEmptiesDataAndPersistPropertiesAndKeepsTheReserve) {
    const std::string tree = Tree(sandbox::DeviceTree()
                                          .File("/data/system/customize/tree.prop", "a=1\n")
                                          .File("/mnt/vendor/zelvareserve/key", "k\n"));
    const ScriptFile script(R"(setprop persist.gone yes
write /data/new n
wipe-data
expect-no-prop persist.gone
expect-file /data/new n
expect-file /data/system/customize/tree.prop "a=1\n"
expect-file /mnt/vendor/zelvareserve/key "k\n"
)");
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(
            Failures(run.err),
            ElementsAre(Failure{"line 5: expect-file /data/new n", "/data/new holding 'n'",
                                "/data/new: No such file or directory"},
                        Failure{"line 6: expect-file /data/system/customize/tree.prop a=1\\n",
                                "/data/system/customize/tree.prop holding 'a=1\\n'",
                                "/data/system/customize/tree.prop: No such file or directory"}));
}

TEST_F(BootSequenceTest, OtaReplacesThePartitionAsSeenAtBothMountPoints) {
    const std::string tree = Tree(sandbox::DeviceTree()
                                          .File("/my_company/build.prop", "ro.date=old\n")
                                          .File("/my_company/old_only.prop", "x=1\n")
                                          .Symlink("/mnt/vendor/my_company", "/my_company"));
    // The image lies beside the script, which names it relative to itself.
    const ScriptFile script(R"(setprop persist.kept yes
ota my_company image/my_company
loadExtensionPartitionProperties /mnt/vendor/my_company
expect-batch 5 map ro.date=new
expect-file /my_company/etc/extra.prop "e=1\n"
expect-file /my_company/old_only.prop "x=1\n"
expect-prop persist.kept yes
)");
    const std::string image = script.dir() + "/image/my_company";
    std::filesystem::create_directories(image + "/etc");
    ASSERT_TRUE(android::base::WriteStringToFile("ro.date=new\n", image + "/build.prop"));
    ASSERT_TRUE(android::base::WriteStringToFile("e=1\n", image + "/etc/extra.prop"));
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(Failures(run.err),
                ElementsAre(Failure{"line 6: expect-file /my_company/old_only.prop x=1\\n",
                                    "/my_company/old_only.prop holding 'x=1\\n'",
                                    "/my_company/old_only.prop: No such file or directory"}));
}

TEST_F(BootSequenceTest, SimSwitchRecordsTheKeyThenMakesInitsSwitchCalls) {
    const std::string tree = Tree(sandbox::DeviceTree().File(
            "/my_carrier/properties/orange/SimSwitchCurrentTime/current.prop",
            "persist.sys.carrier.current=orange\n"));
    const ScriptFile script(R"(sim-switch orange
expect-file /mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file "sys.sim.switch.current=orange\n"
expect-batch 9 0 persist.sys.carrier.current=orange
)");
    const ToolRun run = BootScript(tree, script);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto report = nlohmann::json::parse(run.out);
    EXPECT_THAT(
            StepsByBoot(report),
            ElementsAre("boot 1: sim-switch orange",
                        "boot 1: slot 9 loadSimSwitchOverrideProperties",
                        "boot 1: slot 10 loadSimSwitchOverrideProperties propertiesOverrideSwitch",
                        testing::StartsWith("boot 1: expect-file"),
                        "boot 1: expect-batch 9 0 persist.sys.carrier.current=orange"));
    EXPECT_EQ(report["properties"]["sys.sim.switch.current"], "orange");
}

// Each assertion once holding and once not; a failure says what it saw.
TEST_F(BootSequenceTest, EachAssertionPassesOrFailsWithWhatItSaw) {
    const std::string tree = Tree(sandbox::DeviceTree().File("/my_carrier/build.prop", "ro.c=x\n"));
    const ScriptFile script(R"(setprop a.b one
expect-prop a.b one
expect-prop a.b two
expect-no-prop c.d
expect-no-prop a.b
write /data/f x
expect-file /data/f x
expect-file /data/f y
loadExtensionPartitionProperties /my_carrier
loadExtensionPartitionProperties /my_none
expect-batch 5 map ro.c=x
expect-batch 5 map ro.c=y
expect-batch 6 0 ro.c=x
expect-log ERROR "property load failed:/my_none/build.prop"
expect-log W "property load failed:/my_none/build.prop"
expect-no-log "never logged"
expect-no-log "property load failed:/my_none/build.prop"
)");
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 1);
    const std::string load_error = "ERROR 'partition property load failed:/my_none/build.prop'";
    EXPECT_THAT(
            Failures(run.err),
            ElementsAre(
                    Failure{"line 3: expect-prop a.b two", "a.b='two'", "a.b='one'"},
                    Failure{"line 5: expect-no-prop a.b", "a.b unset", "a.b='one'"},
                    Failure{"line 8: expect-file /data/f y", "/data/f holding 'y'",
                            "/data/f holding 'x'"},
                    Failure{"line 12: expect-batch 5 map ro.c=y",
                            "a filled map from slot 5 holding ro.c=y",
                            "batches of that slot and kind: step 8: ro.c='x'; step 9: ro.c "
                            "absent"},
                    Failure{"line 13: expect-batch 6 0 ro.c=x",
                            "a kind 0 batch from slot 6 holding ro.c=x",
                            "no such batch in this boot"},
                    Failure{"line 15: expect-log W \"property load failed:/my_none/build.prop\"",
                            "a WARNING record holding 'property load failed:/my_none/build.prop'",
                            load_error},
                    Failure{"line 17: expect-no-log \"property load failed:/my_none/build.prop\"",
                            "no record holding 'property load failed:/my_none/build.prop'",
                            load_error}));
    EXPECT_THAT(Results(nlohmann::json::parse(run.out)),
                ElementsAre("", "passed", "failed", "passed", "failed", "written", "passed",
                            "failed", "", "", "passed", "failed", "failed", "passed", "failed",
                            "passed", "failed"));
}

TEST_F(BootSequenceTest, RecordAssertionsLookAtTheirOwnBootOnly) {
    const std::string tree = Tree(sandbox::DeviceTree().File("/my_carrier/build.prop", "ro.c=x\n"));
    const ScriptFile script(R"(loadExtensionPartitionProperties /my_none
reboot
expect-no-log "property load failed:/my_none/build.prop"
expect-batch 5 map ro.c=x
)");
    const ToolRun run = BootScript(tree, script);
    EXPECT_THAT(Failures(run.err), ElementsAre(Failure{"line 4: expect-batch 5 map ro.c=x",
                                                       "a filled map from slot 5 holding ro.c=x",
                                                       "no such batch in this boot"}));
}

TEST_F(BootSequenceTest, TimedOutWaitsFailTheRun) {
    const std::string tree = Tree(sandbox::DeviceTree());
    const ScriptFile script("setprop x.y 0\nwait-prop x.y 1 50\nwait-log \"never logged\" 50\n");
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(Failures(run.err),
                ElementsAre(Failure{"line 2: wait-prop x.y 1 50", "x.y='1' within 50 ms",
                                    "x.y='0' when the wait ended"},
                            Failure{"line 3: wait-log \"never logged\" 50",
                                    "a record holding 'never logged' within 50 ms",
                                    "no record holding it"}));
}

TEST_F(BootSequenceTest, ScriptLinesThatCannotRunAreUsageErrors) {
    struct Row {
        std::string line;
        std::string error;
    };
    for (const Row& row : std::vector<Row>{
                 {"ota /my_company dir",
                  "line 1: ota needs a partition name (my_company), not '/my_company'"},
                 {"reboot now", "line 1: reboot takes 0 argument(s)"},
                 {"expect-batch 6 0 nameonly",
                  "line 1: expect-batch needs NAME=VALUE, not 'nameonly'"},
                 {"expect-log LOUD text",
                  "line 1: expect-log needs a severity (I, INFO, ...), not 'LOUD'"},
                 {"wait-prop a b soon", "line 1: wait-prop waits milliseconds, not 'soon'"}}) {
        const ScriptFile script(row.line + "\n");
        const ToolRun run = BootScript(ExamplesDir() + "/birch-cn", script);
        EXPECT_EQ(run.status, 2) << row.line;
        EXPECT_EQ(run.err, "extprop-sim: " + script.path() + ": " + row.error + "\n");
    }
}

TEST_F(BootSequenceTest, TheExamplesScenariosHold) {
    for (const std::string device : {"alder-eu", "birch-cn"}) {
        const ToolRun run = RunTool(
                ExamplesDir(), {"boot", "--root", device, "--props", device + ".props", "--lib",
                                LibraryPath(), "--script", device + "-scenario.script"});
        EXPECT_EQ(run.status, 0) << device;
        EXPECT_THAT(Failures(run.err), ElementsAre()) << device;
    }
}

}  // namespace
}  // namespace zelva_test
