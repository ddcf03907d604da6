// SPDX-License-Identifier: Apache-2.0
// The device-root sandbox that the other tests rely on.

#include <android-base/file.h>

#include "test_support.h"

namespace zelva_test {
namespace {

using android::base::WriteStringToFile;
using Kind = sandbox::MountSetup::Kind;

TEST(SandboxTest, RootIsTheTreeMountsRefuseWritesResultsComeBackAndCrashesAreReported) {
    sandbox::Options options;
    options.properties = {{"ro.seeded", "yes"}};
    options.mounts = {{Kind::kReadOnly, "/ro", 0, false}, {Kind::kTmpfs, "/full", 64 << 10, true}};
    auto child = [](sandbox::Context& ctx) {
        ctx.Note("ro", WriteStringToFile("x", "/ro/a") ? "written" : strerror(errno));
        ctx.Note("full", WriteStringToFile("x", "/full/c") ? "written" : strerror(errno));
        ctx.SetStep("one");
        ctx.sink()(2, {{"x.applied", "v"}});
        LOG(WARNING) << "hello";
        unlink("/my_carrier/build.prop");  // the tree's file: "/" is the tree
        WriteStringToFile("new", "/data/file");
    };
    const sandbox::Outcome outcome = RunInDevice(
            sandbox::DeviceTree().File("/my_carrier/build.prop", "a=1\n").File("/ro/a", "old")
                    .File("/full/b", "kept").Dir("/data"), child, options);
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, (PropertyMap{{"ro", strerror(EROFS)}, {"full", strerror(ENOSPC)}}));
    EXPECT_EQ(Kinds(outcome), std::vector<int>{2});
    EXPECT_EQ(outcome.batches.at(0).step, "one");
    // The seeded store, and the batch applied to it as init would.
    EXPECT_EQ(outcome.properties, (PropertyMap{{"ro.seeded", "yes"}, {"x.applied", "v"}}));
    EXPECT_EQ(outcome.Messages(android::base::WARNING), std::vector<std::string>{"hello"});
    EXPECT_FALSE(outcome.Exists("/my_carrier/build.prop"));
    // The full tmpfs starts with the tree's content.
    EXPECT_EQ(outcome.tree.at("/data/file").data + outcome.tree.at("/full/b").data, "newkept");
    const sandbox::Outcome crashed = RunInDevice(sandbox::DeviceTree(), [](auto&) { abort(); });
    EXPECT_TRUE(crashed.signal == SIGABRT && !crashed.Completed()) << crashed.Describe();
}

}  // namespace
}  // namespace zelva_test
