// SPDX-License-Identifier: Apache-2.0
// The simulator as a device engineer runs it: boot, explain, diff and lint on the bundled
// example devices and on a broken tree, and its answers to bad usage.

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using testing::HasSubstr;

// Output holding every one of |parts|.
testing::Matcher<std::string> Holds(const std::vector<std::string>& parts) {
    std::vector<testing::Matcher<std::string>> matchers;
    for (const std::string& part : parts) matchers.push_back(HasSubstr(part));
    return testing::AllOfArray(matchers);
}

const std::string kAlder = " --root alder-eu --props alder-eu.props";

// Booting a device tree needs the device-root sandbox.
class SimulatorTest : public testing::Test {
  protected:
    void SetUp() override { REQUIRE_SANDBOX(); }
};

TEST_F(SimulatorTest, CommandsOnTheExampleDevices) {
    struct Row {
        std::string args;
        int status;
        std::vector<std::string> output;  // parts of the standard output
    };
    for (const Row& row : std::vector<Row>{
                 // The region set replaces the brand region's locale; slot 4's value doesn't
                 // survive.
                 {"boot" + kAlder,
                  0,
                  {" ~ persist.sys.locale.default=de-DE  (was en-IE)\n",
                   " + persist.sys.locale.default=en-IE  (final: de-DE)\n"}},
                 // The files in the order the parser finished them, the batches, the value.
                 {"explain ro.product.model" + kAlder,
                  0,
                  {"  step 0 slot 4 loadExtensionPartitionProperties\n"
                   "    /mnt/vendor/my_product/build.prop: 'Alder X1'\n"
                   "    /mnt/vendor/my_product/cust/EU/build.prop: 'Alder X1 EU', overriding "
                   "'Alder X1'",
                   "Value after boot: 'Alder X1 EU'\n"}},
                 // The imported file is named, not the file that imports it.
                 {"explain ro.product.locale.list" + kAlder,
                  0,
                  {"s\n    /my_region/etc/locale.prop: 'en-"}},
                 // The COTA image is mounted over /my_carrier only at the end of boot.
                 {"explain persist.sys.cota.feature" + kAlder,
                  0,
                  {":\n  step 11 cota-boot\n    /my_carrier/build.prop: '1'\nBatches"}},
                 {"explain dev.mnt.blk.userdata" + kAlder,
                  0,
                  {"Seeded by --props alder-eu.props: 'sda'\nNo "}},
                 // Converted from the old NV flag at this boot.
                 {"explain sys.sim.switch.first --root birch-cn",
                  0,
                  {"/ssv/sim_switch_first_file: 'cmcc'\nBatches"}},
                 {"explain no.such.property --root birch-cn",
                  1,
                  {"No batch carried it.\nUnset after boot.\n"}},
                 {"diff --root alder-eu --root-b birch-cn --props alder-eu.props --props-b birch-cn.props",
                  1,
                  {"~ ro.zelva.pipeline.region: 'EU' -> 'CN'\n",
                   "+ persist.sys.province=guangdong\n", "- persist.sys.cota.feature=1\n"}},
                 {"diff --root birch-cn --root-b birch-cn", 0, {"0 added, 0 removed, 0 changed\n"}},
                 {"lint --root alder-eu", 0, {"alder-eu: 0 error(s), 0 warning(s)\n"}},
                 // The bool property its carrier file gives "yes".
                 {"lint --root birch-cn",
                  1,
                  {"first.prop:3: error: init refuses persist.sys.zelva.volte.enabled=yes: ",
                   "birch-cn: 1 error(s), 0 warning(s)\n"}}}) {
        const SimRun run = Sim(row.args);
        EXPECT_EQ(run.status, row.status) << row.args << ": " << run.err;
        EXPECT_THAT(run.out, Holds(row.output)) << row.args;
    }
}

TEST_F(SimulatorTest, UsageAndSetupErrorsAreOneLineAndExitTwo) {
    for (const char* args : {"boot --root /no/such/tree", "boot --root alder-eu --frobnicate",
                             "explain ro.x --root alder-eu --lib /no/such/lib.so", "frobnicate",
                             "explain --root alder-eu", "diff --root alder-eu", "lint",
                             "lint --root /no/such", "diff --root alder-eu --root-b /no/such/tree"}) {
        const SimRun run = Sim(args);
        EXPECT_EQ(run.status, 2) << args;
        EXPECT_THAT(run.err, testing::MatchesRegex("extprop-sim: [^\n]*\n")) << args;
    }
}

}  // namespace
}  // namespace zelva_test
