// SPDX-License-Identifier: Apache-2.0
// Boot scripts that take a device through restarts (reboot, wipe-data, ota),
// a SIM switch, and the assertions that make a run fail.

#include <filesystem>

#include <gmock/gmock.h>

#include "sim_tool_support.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;

using BootSequenceTest = SimToolTest;

TEST_F(BootSequenceTest, RebootIsANewObjectThatKeepsDataReserveAndPersistProperties) {
    const std::string tree = Tree(sandbox::DeviceTree().File(
            "/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n"));
    // The record assertions after the reboot look at the second boot only.
    const ScriptFile script(R"(setprop persist.kept yes
setprop sys.dropped yes
write /data/note data
write /mnt/vendor/zelvareserve/note reserve
loadPersistOverrideProperties
reboot
expect-no-log payjoy_status
expect-prop persist.kept yes
expect-no-prop sys.dropped
expect-file /data/note data
expect-file /mnt/vendor/zelvareserve/note reserve
)");
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(Failures(run.err), ElementsAre());
    const auto report = nlohmann::json::parse(run.out);
    EXPECT_THAT(
            StepsByBoot(report),
            ElementsAre("boot 1: setprop persist.kept yes", "boot 1: setprop sys.dropped yes",
                        "boot 1: write /data/note", "boot 1: write /mnt/vendor/zelvareserve/note",
                        "boot 1: slot 6 loadPersistOverrideProperties", "boot 2: reboot",
                        "boot 2: expect-no-log payjoy_status",
                        "boot 2: expect-prop persist.kept yes",
                        "boot 2: expect-no-prop sys.dropped", "boot 2: expect-file /data/note data",
                        "boot 2: expect-file /mnt/vendor/zelvareserve/note reserve"));
    // A new object reads the brand for its directory lists: the reboot's is logged with the
    // reboot step.
    EXPECT_THAT(StepsLogging(report, "Loading property from /system_ext/etc/build.prop: alder"),
                ElementsAre(-1, 5));
}

// ota keeps /data and the persist.* properties; wipe-data keeps the reserve partition only.
TEST_F(BootSequenceTest, OtaAndWipeDataRestartWithAPartitionOrTheDataReplaced) {
    const std::string tree = Tree(sandbox::DeviceTree()
                                          .File("/my_company/build.prop", "ro.date=old\n")
                                          .File("/my_company/old_only.prop", "x=1\n")
                                          .Symlink("/mnt/vendor/my_company", "/my_company")
                                          .File("/data/tree.prop", "a=1\n")
                                          .File("/mnt/vendor/zelvareserve/key", "k\n"));
    // The image lies beside the script, which names it relative to itself.
    const ScriptFile script(R"(setprop persist.p yes
write /data/new n
ota my_company image/my_company
loadExtensionPartitionProperties /mnt/vendor/my_company
expect-batch 5 map ro.date=new
expect-file /my_company/etc/extra.prop e
expect-file /my_company/old_only.prop "x=1\n"
expect-prop persist.p yes
expect-file /data/new n
wipe-data
expect-no-prop persist.p
expect-file /data/new n
expect-file /data/tree.prop "a=1\n"
expect-file /mnt/vendor/zelvareserve/key "k\n"
)");
    const std::string image = script.dir() + "/image/my_company";
    std::filesystem::create_directories(image + "/etc");
    ASSERT_TRUE(android::base::WriteStringToFile("ro.date=new\n", image + "/build.prop"));
    ASSERT_TRUE(android::base::WriteStringToFile("e", image + "/etc/extra.prop"));
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(Failures(run.err),
                ElementsAre(Failure{"line 7: expect-file /my_company/old_only.prop x=1\\n",
                                    "/my_company/old_only.prop holding 'x=1\\n'",
                                    "/my_company/old_only.prop: No such file or directory"},
                            Failure{"line 12: expect-file /data/new n", "/data/new holding 'n'",
                                    "/data/new: No such file or directory"},
                            Failure{"line 13: expect-file /data/tree.prop a=1\\n",
                                    "/data/tree.prop holding 'a=1\\n'",
                                    "/data/tree.prop: No such file or directory"}));
}

// The slot-9 and slot-10 calls that follow read the new key.
TEST_F(BootSequenceTest, SimSwitchRecordsTheKeyThenMakesInitsSwitchCalls) {
    const std::string tree = Tree(sandbox::DeviceTree().File(
            "/my_carrier/properties/orange/SimSwitchCurrentTime/current.prop", "a.b=orange\n"));
    const ScriptFile script(R"(sim-switch orange
expect-prop sys.sim.switch.current orange
expect-file /mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file "sys.sim.switch.current=orange\n"
expect-batch 9 0 a.b=orange
expect-batch 10 0 a.b=orange
)");
    const ToolRun run = BootScript(tree, script);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(Failures(run.err), ElementsAre());
}

// Each assertion once holding and once not, and waits that time out; a failure says what
// it saw.
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
wait-prop a.b two 50
wait-log "never logged" 50
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
                            load_error},
                    Failure{"line 18: wait-prop a.b two 50", "a.b='two' within 50 ms",
                            "a.b='one' when the wait ended"},
                    Failure{"line 19: wait-log \"never logged\" 50",
                            "a record holding 'never logged' within 50 ms",
                            "no record holding it"}));
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
