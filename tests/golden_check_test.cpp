// SPDX-License-Identifier: Apache-2.0
// check --golden: a boot compared with a saved boot --json document, by
// property; and --then, the script's steps as options.

#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "sandbox.h"
#include "simulator_run.h"

namespace zelva_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

sandbox::DeviceTree Device(const std::string& apn) {
    return sandbox::DeviceTree()
            .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
            .File("/my_region/build.prop",
                  "ro.zelva.pipeline.region=EU\nro.zelva.operator.apn.default=" + apn + "\n");
}

class GoldenCheckTest : public testing::Test {
  protected:
    void SetUp() override {
        REQUIRE_SANDBOX();
        golden_ = std::string(dir_.path) + "/golden.json";
    }
    // Lays |tree| out and checks it against the golden file.
    SimulatorRun Check(const sandbox::DeviceTree& tree, std::vector<std::string> options = {}) {
        std::string error;
        root_ = sandbox::ScratchRoot::Create(tree, &error);
        if (root_ == nullptr) return {2, "", error};
        std::vector<std::string> args = {"check", "--golden", golden_, "--root", root_->path()};
        args.insert(args.end(), options.begin(), options.end());
        return RunSimulator(args);
    }

    TemporaryDir dir_;
    std::string golden_;
    std::unique_ptr<sandbox::ScratchRoot> root_;
};

TEST_F(GoldenCheckTest, UpdateWritesTheGoldenFileThatTheSameBootThenMatches) {
    const SimulatorRun update = Check(Device("web.de"), {"--update"});
    EXPECT_EQ(update.status, 0) << update.err;
    std::string text;
    ASSERT_TRUE(android::base::ReadFileToString(golden_, &text));
    EXPECT_THAT(text, ConformsToTheSchema());

    const SimulatorRun same = Check(Device("web.de"));
    EXPECT_EQ(same.status, 0) << same.err;
    EXPECT_THAT(Lines(same.out), ElementsAre(golden_ + ": same"));
}

TEST_F(GoldenCheckTest, ChangedValueExitsOneWithALinePerBatchAndAfterBootAndWritesThePage) {
    ASSERT_EQ(Check(Device("web.de"), {"--update"}).status, 0);
    const std::string page = std::string(dir_.path) + "/page.html";
    const SimulatorRun run = Check(Device("web.fr"), {"--html", page});
    EXPECT_EQ(run.status, 1);
    std::string html;  // the failed boot's page, to look at
    ASSERT_TRUE(android::base::ReadFileToString(page, &html)) << run.err;
    EXPECT_THAT(html, HasSubstr("web.fr"));
    EXPECT_THAT(Lines(run.out),
                AllOf(Contains("step 0 slot 4 loadExtensionPartitionProperties map: "
                               "\"ro.zelva.operator.apn.default\": golden \"web.de\" (new), "
                               "now \"web.fr\" (new)"),
                      Contains("after boot: \"ro.zelva.operator.apn.default\": golden "
                               "\"web.de\", now \"web.fr\""),
                      Contains(HasSubstr(" difference(s)"))));
}

TEST_F(GoldenCheckTest, IgnoredPropertiesAndWhatVariesBetweenMachinesDontDiffer) {
    ASSERT_EQ(Check(Device("web.de"), {"--update"}).status, 0);
    // Another machine's build: the library's log lines elsewhere.
    std::string text;
    ASSERT_TRUE(android::base::ReadFileToString(golden_, &text));
    auto golden = nlohmann::ordered_json::parse(text);
    ASSERT_FALSE(golden["log"].empty());
    for (auto& record : golden["log"]) record["line"] = 9999;
    ASSERT_TRUE(android::base::WriteStringToFile(golden.dump(2), golden_));
    EXPECT_EQ(Check(Device("web.de")).status, 0);

    const SimulatorRun ignored = Check(Device("web.fr"), {"--ignore", "ro.zelva.operator.*"});
    EXPECT_EQ(ignored.status, 0) << ignored.out;
}

TEST_F(GoldenCheckTest, MissingOrForeignGoldenFileIsAnErrorOfOneLine) {
    const SimulatorRun missing = Check(Device("web.de"));
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("extprop-sim: golden file: cannot read " + golden_));

    ASSERT_TRUE(android::base::WriteStringToFile("{\"schema\": \"extprop-sim/1\", "
                                                 "\"command\": \"lint\"}",
                                                 golden_));
    const SimulatorRun foreign = Check(Device("web.de"));
    EXPECT_EQ(foreign.status, 2);
    EXPECT_EQ(foreign.err, "extprop-sim: " + golden_ +
                                   " is not a document of extprop-sim boot --json\n");
}

TEST(ThenOptionTest, StepsAfterTheBootRunAsScriptLinesAndTheirAssertionsSetTheStatus) {
    REQUIRE_SANDBOX();
    const SimulatorRun reboot = RunSimulator({"boot", "--root", "alder-eu", "--props",
                                              "alder-eu.props", "--then", "reboot", "--then",
                                              "boot-sequence", "--then",
                                              "expect-prop sys.sim.switch.current vodafone"});
    EXPECT_EQ(reboot.status, 0) << reboot.err;
    EXPECT_THAT(Lines(reboot.out), Contains("=== Boot 2"));

    const SimulatorRun failed = RunSimulator(
            {"boot", "--root", "alder-eu", "--then", "expect-prop sys.sim.switch.current nope"});
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.err, HasSubstr("seen: sys.sim.switch.current="));

    const SimulatorRun unknown = RunSimulator({"boot", "--root", "alder-eu", "--then", "frob"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_THAT(unknown.err, HasSubstr("extprop-sim: --then 'frob': unknown step 'frob'"));
}

}  // namespace
}  // namespace zelva_test
