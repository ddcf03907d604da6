// SPDX-License-Identifier: Apache-2.0
// The device-root sandbox that the other tests rely on.

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "expectations.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using android::base::WriteStringToFile;
using testing::ElementsAre;
using Kind = sandbox::MountSetup::Kind;

TEST(SandboxTest, RootIsTheTreeAndTheTreeComesBackAsTheChildLeftIt) {
    const sandbox::DeviceTree tree =
            sandbox::DeviceTree().File("/my_carrier/build.prop", "a=1\n").Dir("/data");
    const sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context&) {
        unlink("/my_carrier/build.prop");
        WriteStringToFile("new", "/data/file");
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_FALSE(outcome.Exists("/my_carrier/build.prop"));
    EXPECT_EQ(outcome.FileContent("/data/file"), "new");
}

TEST(SandboxTest, ReadOnlyMountRefusesWritesAndFullTmpfsKeepsItsContentButTakesNoMore) {
    const sandbox::DeviceTree tree =
            sandbox::DeviceTree().File("/ro/a", "old").File("/full/b", "kept");
    const sandbox::Options options = {
            .mounts = {{Kind::kReadOnly, "/ro"}, {Kind::kTmpfs, "/full", 64 << 10, /*fill=*/true}}};
    const sandbox::Outcome outcome = RunInDevice(tree, options, [](sandbox::Context& ctx) {
        ctx.Note("ro", WriteStringToFile("x", "/ro/a") ? "written" : strerror(errno));
        ctx.Note("full", WriteStringToFile("x", "/full/c") ? "written" : strerror(errno));
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, (PropertyMap{{"ro", strerror(EROFS)}, {"full", strerror(ENOSPC)}}));
    EXPECT_EQ(outcome.FileContent("/ro/a"), "old");
    EXPECT_EQ(outcome.FileContent("/full/b"), "kept");
}

TEST(SandboxTest, BatchesAreAppliedToTheSeededStoreAndComeBackWithLogsByStep) {
    const sandbox::Outcome outcome =
            RunInDevice(sandbox::DeviceTree(), {.properties = {{"ro.seeded", "yes"}}},
                        [](sandbox::Context& ctx) {
                            ctx.SetStep("one");
                            ctx.sink()(kRestore, {{"x.applied", "v"}});
                            LOG(WARNING) << "hello";
                        });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome, "one"), ElementsAre(Restore({{"x.applied", "v"}})));
    EXPECT_THAT(LogRecords(outcome, {.step = "one"}), ElementsAre(Warning("hello")));
    EXPECT_EQ(outcome.properties, (PropertyMap{{"ro.seeded", "yes"}, {"x.applied", "v"}}));
}

// A batch can hold a whole large build.prop: it and the store travel a buffer at a time and
// are decoded as the pipe delivers them, so records split across reads must come back whole
// and in their order.
TEST(SandboxTest, BatchAndStoreLargerThanThePipeComeBackWholeAndInOrder) {
    PropertyMap large;
    for (int i = 0; i < 5000; ++i) large["persist.large.entry_" + std::to_string(i)] = "v";
    // Longer than one write of the child and one read of the parent.
    large["ro.large.value"] = std::string(100 << 10, 'x');
    const sandbox::Outcome outcome =
            RunInDevice(sandbox::DeviceTree(), {.properties = {{"ro.seeded", "yes"}}},
                        [&large](sandbox::Context& ctx) {
                            ctx.SetStep("one");
                            ctx.sink()(kRestore, large);
                            LOG(WARNING) << "between";
                            ctx.sink()(kRestore, {{"x.after", "v"}});
                        });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome, "one"),
                ElementsAre(Restore(large), Restore({{"x.after", "v"}})));
    EXPECT_THAT(LogRecords(outcome, {.step = "one"}), ElementsAre(Warning("between")));
    PropertyMap store = large;
    store.insert({{"ro.seeded", "yes"}, {"x.after", "v"}});
    EXPECT_EQ(outcome.properties, store);
}

TEST(SandboxTest, CrashOfTheChildIsReportedAsItsSignal) {
    const sandbox::Outcome crashed = RunInDevice(sandbox::DeviceTree(), [](auto&) { abort(); });
    SKIP_WITHOUT_SANDBOX(crashed.unavailable);
    EXPECT_EQ(crashed.signal, SIGABRT) << crashed.Describe();
    EXPECT_FALSE(crashed.Completed());
}

}  // namespace
}  // namespace zelva_test
