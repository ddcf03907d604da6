// The simulator as a device engineer runs it: boot, explain, diff and lint on
// the bundled example devices, and its answers to bad usage.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "test_support.h"

namespace zelva_test {
namespace {

struct Result {
    int status;
    std::string out, err;
};

// Runs the simulator with |args| (none holds a quote) through the shell.
Result Simulator(const std::vector<std::string>& args) {
    TemporaryFile out, err;
    std::string command = ZELVA_SIMULATOR_PATH;
    for (const std::string& arg : args) command += " '" + arg + "'";
    const int status = system((command + " >" + out.path + " 2>" + err.path).c_str());
    Result run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, "", ""};
    android::base::ReadFileToString(out.path, &run.out);
    android::base::ReadFileToString(err.path, &run.err);
    return run;
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Tree(const std::string& device) { return ExamplesDir() + "/" + device; }
std::string Props(const std::string& device) { return ExamplesDir() + "/" + device + ".props"; }

// Booting commands need the device-root sandbox.
#define SKIP_WITHOUT_SANDBOX()                                          \
    if (std::string why; !sandbox::Available(&why)) {                   \
        if (InCi()) FAIL() << "sandbox refused in CI: " << why;         \
        GTEST_SKIP() << "device-root sandbox unavailable: " << why;     \
    }

TEST(SimulatorTest, BootReportsBatchesWithKindsAndTheirEffect) {
    SKIP_WITHOUT_SANDBOX();
    Result json = Simulator({"boot", "--root", Tree("alder-eu"), "--props", Props("alder-eu"),
                             "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    // The company hand-over: its non-ro. properties as kind 1, the image date as kind 2.
    EXPECT_TRUE(Has(json.out, R"("operation": "loadPersistOverrideProperties", "kind": 1, )"
                              R"("changed": [], "properties": {)" "\n"
                              R"(      "persist.sys.company.launcher": "classic",)" "\n"
                              R"(      "persist.sys.company.theme": "aurora")" "\n    }}"));
    EXPECT_TRUE(Has(json.out, R"("kind": 2, "changed": ["persist.sys.zelva.company.ota.version)"
                              R"(.backup"], "properties": {)" "\n"
                              R"(      "persist.sys.zelva.company.ota.version.backup": "20261101")"
                              "\n    }}"));
    EXPECT_TRUE(Has(json.out, R"({"step": 0, "slot": 4, "operation": "loadExtensionPartition)"
                              R"(Properties", "kind": null, "filled_map": true)"));
    EXPECT_TRUE(Has(json.out, R"("sys.sim.switch.first": "vodafone")"));

    Result text = Simulator({"boot", "--root", Tree("alder-eu"), "--props", Props("alder-eu")});
    ASSERT_EQ(text.status, 0) << text.err;
    // The region set replaces the brand region's locale; slot 4's value doesn't survive.
    EXPECT_TRUE(Has(text.out, " ~ persist.sys.locale.default=de-DE  (was en-IE)\n"));
    EXPECT_TRUE(Has(text.out, " + persist.sys.locale.default=en-IE  (final: de-DE)\n"));
}

TEST(SimulatorTest, ExplainTellsWhereAPropertyCameFrom) {
    SKIP_WITHOUT_SANDBOX();
    struct Case {
        std::string device, name;
        int status;
        std::vector<std::string> present, absent;
    } cases[] = {  // clang-format off
            {"alder-eu", "ro.product.model", 0,
             {"  step 0 slot 4 loadExtensionPartitionProperties\n"
              "    /mnt/vendor/my_product/build.prop: 'Alder X1'\n"
              "    /mnt/vendor/my_product/cust/EU/build.prop: 'Alder X1 EU', overriding"
              " 'Alder X1'\n",
              "Value after boot: 'Alder X1 EU'"}, {}},
            // The imported file is named, not the file that imports it.
            {"alder-eu", "ro.product.locale.list", 0, {"    /my_region/etc/locale.prop: 'en-GB,"},
             {"/my_region/build.prop:"}},
            // The COTA image is mounted over /my_carrier only at the end of boot.
            {"alder-eu", "persist.sys.cota.feature", 0,
             {"  step 11 cota-boot\n    /my_carrier/build.prop: '1'\n"}, {"step 0", "step 2"}},
            {"alder-eu", "dev.mnt.blk.userdata", 0,
             {"Seeded by --props " + Props("alder-eu") + ": 'sda'", "No batch carried it."}, {}},
            // Converted from the old NV flag at this boot.
            {"birch-cn", "sys.sim.switch.first", 0,
             {"/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file: 'cmcc'",
              "step 2 slot 6 loadPersistOverrideProperties, kind 0: 'cmcc'"}, {}},
            {"birch-cn", "no.such.property", 1, {"No batch carried it.\nUnset after boot."}, {}},
    };  // clang-format on
    for (const Case& c : cases) {
        Result run = Simulator({"explain", c.name, "--root", Tree(c.device), "--props",
                                Props(c.device)});
        EXPECT_EQ(run.status, c.status) << c.name << ": " << run.err;
        for (const std::string& text : c.present) EXPECT_TRUE(Has(run.out, text)) << run.out;
        for (const std::string& text : c.absent) EXPECT_FALSE(Has(run.out, text)) << run.out;
    }
}

TEST(SimulatorTest, DiffExitsOneWhenTheTreesDiffer) {
    SKIP_WITHOUT_SANDBOX();
    Result differ = Simulator({"diff", Tree("alder-eu"), Tree("birch-cn"), "--props",
                               Props("alder-eu"), "--props-b", Props("birch-cn")});
    EXPECT_EQ(differ.status, 1) << differ.err;
    EXPECT_TRUE(Has(differ.out, "~ ro.zelva.pipeline.region: 'EU' -> 'CN'\n"));
    EXPECT_TRUE(Has(differ.out, "+ persist.sys.province=guangdong\n"));
    EXPECT_TRUE(Has(differ.out, "- persist.sys.cota.feature=1\n"));

    Result same =
            Simulator({"diff", Tree("birch-cn"), Tree("birch-cn"), "--props", Props("birch-cn")});
    EXPECT_EQ(same.status, 0) << same.err;
    EXPECT_TRUE(Has(same.out, "0 added, 0 removed, 0 changed"));
}

TEST(SimulatorTest, LintIsCleanOnTheExamplesAndReportsABrokenTree) {
    for (const char* device : {"alder-eu", "birch-cn"}) {
        Result run = Simulator({"lint", Tree(device)});
        EXPECT_EQ(run.status, 0) << run.out;
        EXPECT_TRUE(Has(run.out, ": 0 error(s), 0 warning(s)")) << run.out;
    }
    TemporaryDir tree;
    const std::string root = tree.path;
    auto write = [&](const std::string& path, const std::string& content) {
        std::filesystem::create_directories(android::base::Dirname(root + path));
        ASSERT_TRUE(android::base::WriteStringToFile(content, root + path));
    };
    write("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=birch\n");
    write("/my_region/build.prop",
          "ro.zelva.pipeline.region=CN\nbad name=1\nimport /my_region/gone.prop\n");
    write("/my_carrier/properties/cmcc/SimSwitchFirst/a.prop", "a=1\n");
    write("/my_company/etc/build.prop", "ro.x=1\n");  // the symlinked build.prop's target
    ASSERT_EQ(symlink("/my_company/etc/build.prop", (root + "/my_company/build.prop").c_str()), 0);

    Result run = Simulator({"lint", root});
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    for (const char* finding :
         {"/my_region/build.prop: error: illegal property name 'bad name'",
          "/my_region/build.prop: error: import '/my_region/gone.prop' names no file",
          "/my_carrier/properties/cmcc/SimSwitchFirst: warning: no key selects the set "
          "'SimSwitchFirst'",
          "/my_company/build.prop: error: symbolic link"}) {
        EXPECT_TRUE(Has(run.out, root + finding)) << finding << "\n" << run.out;
    }
    EXPECT_TRUE(Has(run.out, root + ": 3 error(s), 1 warning(s)")) << run.out;
}

TEST(SimulatorTest, UsageAndSetupErrorsAreOneLineAndExitTwo) {
    const std::vector<std::vector<std::string>> cases = {
            {"boot", "--root", "/no/such/tree"},
            {"boot", "--root", Tree("alder-eu"), "--frobnicate"},
            {"explain", "ro.x", "--root", Tree("alder-eu"), "--lib", "/no/such/lib.so"},
            {"explain", "--root", Tree("alder-eu")},
            {"diff", Tree("alder-eu")},
            {"diff", Tree("alder-eu"), "/no/such/tree"},
            {"lint"},
            {"lint", "/no/such/tree"},
            {"frobnicate"},
    };
    for (const std::vector<std::string>& args : cases) {
        Result run = Simulator(args);
        const std::string command = android::base::Join(args, ' ') + ": " + run.err;
        EXPECT_EQ(run.status, 2) << command;
        EXPECT_TRUE(android::base::StartsWith(run.err, "extprop-sim: ")) << command;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << command;
        EXPECT_EQ(run.out, "") << command;
    }
}

}  // namespace
}  // namespace zelva_test
