// SPDX-License-Identifier: Apache-2.0
// init's rules in a boot of the simulator: refusals happen in the device, so
// the property store after boot is the one init really has, and the report
// says which entry was refused and why. Also which selinux_android_restorecon
// the library calls once Android's libselinux is loaded for the contexts.

#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// The COTA image's newer ro. values come after the carrier's: stock init
// refuses them and keeps the first in its store.
TEST(InitRulesBootTest, AospHostKeepsTheFirstReadOnlyValueInTheStore) {
    REQUIRE_SANDBOX();
    const SimRun run = Sim("boot --root alder-eu --props alder-eu.props --host aosp");
    EXPECT_THAT(Lines(run.out),
                AllOf(Contains(" ! ro.zelva.image.my_carrier.version_name=V3-VodafoneCota  "
                               "(refused: Read-only property was already set)"),
                      Contains("ro.zelva.image.my_carrier.version_name=V2-Vodafone")));
    EXPECT_EQ(run.status, 0);  // a refusal is a report, not a failure
}

// birch-cn's contexts type persist.sys.zelva.volte.enabled as bool; its
// carrier file says "yes". Boot refuses it, lint reports it.
TEST(InitRulesBootTest, AValueOfTheWrongTypeIsRefusedAndNeverSet) {
    REQUIRE_SANDBOX();
    const std::string reason =
            "Property type check failed, value doesn't match expected type 'bool'";
    const std::vector<std::string> boot = Lines(Sim("boot --root birch-cn").out);
    EXPECT_THAT(boot,
                AllOf(Contains("Init: vendor host; property contexts: "
                               "/system/etc/selinux/plat_property_contexts, "
                               "/odm/etc/selinux/odm_property_contexts"),
                      Contains(" ! persist.sys.zelva.volte.enabled=yes  (refused: " + reason + ")"),
                      Not(Contains("persist.sys.zelva.volte.enabled=yes"))));
    EXPECT_THAT(Lines(Sim("lint --root birch-cn").out),
                Contains("birch-cn/my_carrier/properties/cmcc/SimSwitchFirstTime/first.prop:3: "
                         "error: init refuses persist.sys.zelva.volte.enabled=yes: " +
                         reason + " [refused-by-init]"));
}

TEST(InitRulesBootTest, ExplainShowsTheContextAndWhyValuesWereRefused) {
    REQUIRE_SANDBOX();
    EXPECT_THAT(Sim("explain ro.zelva.image.my_carrier.version_name --root alder-eu --props "
                    "alder-eu.props --host aosp")
                        .out,
                AllOf(HasSubstr("SELinux property context: u:object_r:vendor_zelva_cust_prop:s0\n"),
                      HasSubstr("'V3-VodafoneCota', refused: Read-only property was already set\n"),
                      HasSubstr("the last it set was 'V2-Vodafone'.\n")));
}

TEST(InitRulesBootTest, AScriptHostLineAppliesToTheStepsAfterIt) {
    REQUIRE_SANDBOX();
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().File("/my_carrier/build.prop", "ro.zelva.operator.name=A\n"),
            &error);
    ASSERT_NE(root, nullptr) << error;
    TemporaryFile script;
    ASSERT_TRUE(
            android::base::WriteStringToFd("loadExtensionPartitionProperties /my_carrier\n"
                                           "host aosp\n"
                                           "loadExtensionPartitionProperties /my_carrier\n",
                                           script.fd));
    std::vector<std::string> entries;
    for (const std::string& line :
         Lines(Sim("boot --root " + root->path() + " --script " + script.path).out)) {
        if (android::base::StartsWith(line, " ")) entries.push_back(line);
    }
    EXPECT_THAT(entries, ElementsAre(" + ro.zelva.operator.name=A",
                                     " ! ro.zelva.operator.name=A  (refused: Read-only property "
                                     "was already set)"));
}

// The library creates a COTA module directory and restorecons it, after the
// simulator has loaded Android's libselinux for the tree's contexts: the
// dynamic linker must bind the call to the host's stand-in.
TEST(InitRulesBootTest, LibraryRestoreconBindsToTheHostStandIn) {
    REQUIRE_SANDBOX();
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree()
                    .File("/data/cota/cota_mount_info.prop", "carrier=/mnt/cota/carrier\n")
                    .Dir("/mnt/cota")
                    .File("/system/etc/selinux/plat_property_contexts",
                          "* u:object_r:default_prop:s0\n"),
            &error);
    ASSERT_NE(root, nullptr) << error;
    TemporaryDir dir;
    const std::string script = std::string(dir.path) + "/script";
    ASSERT_TRUE(android::base::WriteStringToFile(
            "slot 12 check_mount\n"
            "setprop sys.cota.bind.load.properties bind_basic_point_boot\n"
            "wait-prop sys.cota.bind.load.properties null\n"
            "setprop sys.cota.bind.load.properties boot_mount_bind_complete\n",
            script));
    const SimRun run = Sim("boot --root " + root->path() + " --script " + script,
                           "LD_DEBUG=bindings LD_DEBUG_OUTPUT=" + std::string(dir.path) + "/ld");
    EXPECT_THAT(run.out, AllOf(HasSubstr("contexts: /system/etc/selinux/plat_property_contexts"),
                               HasSubstr("-- result: seen")));  // the directory was made

    std::vector<std::string> targets;  // what the library's calls bound to
    for (const auto& entry : std::filesystem::directory_iterator(dir.path)) {
        std::string log;
        android::base::ReadFileToString(entry.path(), &log);
        for (const std::string& line : android::base::Split(log, "\n")) {
            if (line.find("libzelvaextproperty.so") != std::string::npos &&
                line.find("`selinux_android_restorecon'") != std::string::npos) {
                targets.push_back(line.substr(line.find(" to ") + 4));
            }
        }
    }
    EXPECT_THAT(targets, AllOf(Not(testing::IsEmpty()), Each(HasSubstr("/libhostplatform.so "))));
}

}  // namespace
}  // namespace zelva_test
