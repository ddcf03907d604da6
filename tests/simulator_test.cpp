// The simulator as a device engineer runs it: boot, explain, diff and lint on the bundled
// example devices and on a broken tree, and its answers to bad usage.

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

// Runs "extprop-sim <args>" in the examples directory (device trees ./alder-eu and ./birch-cn,
// their seeded properties in ./<tree>.props): "<stdout>|<exit status>|<stderr>".
std::string Sim(const std::string& args) {
    TemporaryFile out, err;
    const std::string sh = "(cd " + ExamplesDir() + " && " ZELVA_SIMULATOR_PATH " " + args + " 2>" +
                           err.path + "; printf '|%s|' $?; cat " + err.path + ") >" + out.path;
    std::string text = "system() failed";
    if (system(sh.c_str()) == 0) android::base::ReadFileToString(out.path, &text);
    return text;
}

// Each command and the parts of what it gives. Booting needs the device-root sandbox.
TEST(SimulatorTest, BootExplainDiffAndLint) {
    std::string why, error;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    auto broken = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree()  // no brand nor region either: two more warnings
                    .File("/my_region/build.prop", "bad name=1\nimport /my_region/gone.prop\n")
                    .File("/my_carrier/properties/cmcc/SimSwitchFirst/a.prop", "a=1\n")
                    .Symlink("/my_company/build.prop", "/my_company/etc/build.prop"),
            &error);
    ASSERT_NE(broken, nullptr) << error;
    const std::string a = " --root alder-eu --props alder-eu.props", b = " --root birch-cn";
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
            // The company hand-over: its non-ro. properties as kind 1, the image date as kind 2.
            {"boot --json" + a,
             {R"("kind": 1, "changed": [], "properties": {)" "\n"
              R"(      "persist.sys.company.launcher": "classic",)" "\n",
              R"("kind": 2, "changed": ["persist.sys.zelva.company.ota.version.backup"])",
              R"(Properties", "kind": null, "filled_map": true)", "}\n|0|"}},
            // The region set replaces the brand region's locale; slot 4's value doesn't survive.
            {"boot" + a, {" ~ persist.sys.locale.default=de-DE  (was en-IE)\n",
                          " + persist.sys.locale.default=en-IE  (final: de-DE)\n"}},
            // The files in the order the parser finished them, the batches, the value.
            {"explain ro.product.model" + a,
             {"  step 0 slot 4 loadExtensionPartitionProperties\n"
              "    /mnt/vendor/my_product/build.prop: 'Alder X1'\n"
              "    /mnt/vendor/my_product/cust/EU/build.prop: 'Alder X1 EU', overriding 'Alder X1'",
              "Value after boot: 'Alder X1 EU'\n|0|"}},
            // The imported file is named, not the file that imports it.
            {"explain ro.product.locale.list" + a, {"s\n    /my_region/etc/locale.prop: 'en-"}},
            // The COTA image is mounted over /my_carrier only at the end of boot.
            {"explain persist.sys.cota.feature" + a,
             {":\n  step 11 cota-boot\n    /my_carrier/build.prop: '1'\nBatches"}},
            {"explain dev.mnt.blk.userdata" + a, {"Seeded by --props alder-eu.props: 'sda'\nNo "}},
            // Converted from the old NV flag at this boot.
            {"explain sys.sim.switch.first" + b, {"/ssv/sim_switch_first_file: 'cmcc'\nBatches"}},
            {"explain no.such.property" + b, {"No batch carried it.\nUnset after boot.\n|1|"}},
            {"diff alder-eu birch-cn --props alder-eu.props --props-b birch-cn.props",
             {"~ ro.zelva.pipeline.region: 'EU' -> 'CN'\n", "+ persist.sys.province=guangdong\n",
              "- persist.sys.cota.feature=1\n", "|1|"}},
            {"diff birch-cn birch-cn", {"0 added, 0 removed, 0 changed\n|0|"}},
            {"lint alder-eu", {"alder-eu: 0 error(s), 0 warning(s)\n|0|"}},
            // The bool property its carrier file gives "yes".
            {"lint birch-cn",
             {"first.prop: error: init refuses persist.sys.zelva.volte.enabled=yes: ",
              "birch-cn: 1 error(s), 0 warning(s)\n|1|"}},
            {"lint " + broken->path(),
             {"/my_region/build.prop: error: illegal property name 'bad name'\n",
              "/my_region/build.prop: error: import '/my_region/gone.prop' names no file",
              "/my_carrier/properties/cmcc/SimSwitchFirst: warning: no key selects the set "
              "'SimSwitchFirst'", "/my_company/build.prop: error: symbolic link",
              broken->path() + ": 3 error(s), 3 warning(s)\n|1|"}}};
    for (const auto& [args, parts] : cases) {
        const std::string out = Sim(args);
        for (const std::string& part : parts) EXPECT_THAT(out, testing::HasSubstr(part)) << args;
    }
}

TEST(SimulatorTest, UsageAndSetupErrorsAreOneLineAndExitTwo) {
    for (const char* args : {"boot --root /no/such/tree", "boot --root alder-eu --frobnicate",
                             "explain ro.x --root alder-eu --lib /no/such/lib.so", "frobnicate",
                             "explain --root alder-eu", "diff alder-eu", "lint", "lint /no/such",
                             "diff alder-eu /no/such/tree"}) {
        EXPECT_THAT(Sim(args), testing::MatchesRegex("\\|2\\|extprop-sim: [^\n]*\n")) << args;
    }
}

}  // namespace
}  // namespace zelva_test
