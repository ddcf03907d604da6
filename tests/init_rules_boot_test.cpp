// SPDX-License-Identifier: Apache-2.0
// init's rules in a boot of the simulator: refusals happen in the device, so
// the property store after boot is the one init really has, and the report
// says which entry was refused and why. Also which selinux_android_restorecon
// the library calls once Android's libselinux is loaded for the contexts.

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

struct SimRun {
    int status = -1;
    std::string out;
};

// Runs "extprop-sim <args>" in the examples directory, with |env| before it.
SimRun Sim(const std::string& args, const std::string& env = "") {
    TemporaryFile out;
    const std::string sh = "cd " + ExamplesDir() + " && " + env + " " ZELVA_SIMULATOR_PATH " " +
                           args + " >" + out.path + " 2>/dev/null";
    SimRun run;
    run.status = WEXITSTATUS(system(sh.c_str()));
    android::base::ReadFileToString(out.path, &run.out);
    return run;
}

// name -> refusal reason, over every batch of a boot --json report.
std::vector<std::pair<std::string, std::string>> Refusals(const nlohmann::json& report) {
    std::vector<std::pair<std::string, std::string>> refusals;
    for (const auto& batch : report["batches"]) {
        for (const auto& [name, reason] : batch["refused"].items()) {
            refusals.emplace_back(name, reason.get<std::string>());
        }
    }
    return refusals;
}

#define BOOT_JSON(report, args)                                    \
    nlohmann::json report;                                         \
    {                                                              \
        std::string why;                                           \
        SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why); \
        const SimRun run = Sim("boot --json " args);               \
        ASSERT_EQ(run.status, 0) << run.out;                       \
        report = nlohmann::json::parse(run.out, nullptr, false);   \
        ASSERT_FALSE(report.is_discarded()) << run.out;            \
    }

// The COTA image's newer ro. values come after the carrier's: stock init
// keeps the first, the vendor init takes the late ones.
TEST(InitRulesBootTest, AospHostKeepsTheFirstReadOnlyValueInTheStore) {
    BOOT_JSON(aosp, "--root alder-eu --props alder-eu.props --host aosp");
    EXPECT_EQ(aosp["properties"]["ro.zelva.image.my_carrier.version_name"], "V2-Vodafone");
    EXPECT_THAT(Refusals(aosp), Contains(Pair("ro.zelva.image.my_carrier.version_name",
                                              "Read-only property was already set")));

    BOOT_JSON(vendor, "--root alder-eu --props alder-eu.props");
    EXPECT_EQ(vendor["properties"]["ro.zelva.image.my_carrier.version_name"], "V3-VodafoneCota");
    EXPECT_THAT(Refusals(vendor), Each(Not(Pair(testing::StartsWith("ro."), testing::_))));
}

// birch-cn's contexts type persist.sys.zelva.volte.enabled as bool; its
// carrier file says "yes".
TEST(InitRulesBootTest, AValueOfTheWrongTypeIsRefusedAndNeverSet) {
    BOOT_JSON(report, "--root birch-cn");
    EXPECT_EQ(report["property_contexts"],
              "/system/etc/selinux/plat_property_contexts, /odm/etc/selinux/odm_property_contexts");
    EXPECT_THAT(Refusals(report),
                Contains(Pair("persist.sys.zelva.volte.enabled",
                              "Property type check failed, value doesn't match expected type "
                              "'bool'")));
    EXPECT_FALSE(report["properties"].contains("persist.sys.zelva.volte.enabled"));

    const SimRun lint = Sim("lint birch-cn");
    EXPECT_EQ(lint.status, 1);
    EXPECT_THAT(lint.out, HasSubstr("first.prop: error: init refuses "
                                    "persist.sys.zelva.volte.enabled=yes: Property type check "
                                    "failed, value doesn't match expected type 'bool'\n"));
}

TEST(InitRulesBootTest, ExplainShowsTheContextAndWhyValuesWereRefused) {
    std::string why;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    const SimRun run =
            Sim("explain ro.zelva.image.my_carrier.version_name --root alder-eu --props "
                "alder-eu.props --host aosp");
    EXPECT_THAT(run.out,
                AllOf(HasSubstr("'V3-VodafoneCota', refused: Read-only property was already set\n"),
                      HasSubstr("the last it set was 'V2-Vodafone'.\n"),
                      HasSubstr("SELinux property context: u:object_r:vendor_zelva_cust_prop:s0\n"),
                      HasSubstr("Value after boot: 'V2-Vodafone'\n")));
}

// A script's "host" line changes the rules for the steps after it.
TEST(InitRulesBootTest, AScriptHostLineAppliesToTheStepsAfterIt) {
    std::string why, error;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().File("/my_carrier/build.prop", "ro.zelva.operator.name=A\n"),
            &error);
    ASSERT_NE(root, nullptr) << error;
    TemporaryFile script;
    ASSERT_TRUE(android::base::WriteStringToFd("loadExtensionPartitionProperties /my_carrier\n"
                                               "host aosp\n"
                                               "loadExtensionPartitionProperties /my_carrier\n",
                                               script.fd));
    const SimRun run = Sim("boot --root " + root->path() + " --script " + script.path);
    ASSERT_EQ(run.status, 0);
    std::vector<std::string> entries;
    for (const std::string& line : android::base::Split(run.out, "\n")) {
        if (android::base::StartsWith(line, " ")) entries.push_back(line);
    }
    EXPECT_THAT(entries, testing::ElementsAre(" + ro.zelva.operator.name=A",
                                              " ! ro.zelva.operator.name=A  (refused: Read-only "
                                              "property was already set)"));
}

// The library creates a COTA module directory and restorecons it, after the
// simulator has loaded Android's libselinux for the tree's contexts: the
// dynamic linker must bind the call to the host's stand-in.
TEST(InitRulesBootTest, LibraryRestoreconBindsToTheHostStandIn) {
    std::string why, error;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    TemporaryDir dir;
    const std::string script = std::string(dir.path) + "/s";
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree()
                    .File("/data/cota/cota_mount_info.prop", "carrier=/mnt/cota/carrier\n")
                    .Dir("/mnt/cota")
                    .File("/system/etc/selinux/plat_property_contexts",
                          "* u:object_r:default_prop:s0\n"),
            &error);
    ASSERT_NE(root, nullptr) << error;
    ASSERT_TRUE(android::base::WriteStringToFile(
            "slot 12 check_mount\n"
            "setprop sys.cota.bind.load.properties bind_basic_point_boot\n"
            "wait-prop sys.cota.bind.load.properties null\n"
            "setprop sys.cota.bind.load.properties boot_mount_bind_complete\n",
            script));
    const std::string bindings = std::string(dir.path) + "/ld";
    const SimRun run = Sim("boot --root " + root->path() + " --script " + script,
                           "LD_DEBUG=bindings LD_DEBUG_OUTPUT=" + bindings);
    ASSERT_EQ(run.status, 0);
    EXPECT_THAT(run.out,
                HasSubstr("property contexts: /system/etc/selinux/plat_property_contexts"));
    EXPECT_THAT(run.out, HasSubstr("-- result: seen"));  // the thread made the directory

    std::vector<std::string> targets;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path)) {
        if (!android::base::StartsWith(entry.path().filename().string(), "ld.")) continue;
        std::string log;
        android::base::ReadFileToString(entry.path(), &log);
        for (const std::string& line : android::base::Split(log, "\n")) {
            if (line.find("libzelvaextproperty.so") == std::string::npos ||
                line.find("`selinux_android_restorecon'") == std::string::npos) {
                continue;
            }
            targets.push_back(line.substr(line.find(" to ") + 4));
        }
    }
    EXPECT_THAT(targets, AllOf(Not(testing::IsEmpty()), Each(HasSubstr("/libhostplatform.so "))));
}

}  // namespace
}  // namespace zelva_test
