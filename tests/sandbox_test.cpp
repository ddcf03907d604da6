// The device-root sandbox that the other tests rely on.

#include <sys/mount.h>
#include <unistd.h>

#include <android-base/file.h>

#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {
namespace {

TEST(SandboxTest, RootIsTheDeviceTreeAndResultsComeBack) {
    sandbox::Options options;
    options.properties = {{"ro.seeded", "yes"}};
    sandbox::Outcome outcome = RunInDevice(
            sandbox::DeviceTree().File("/my_carrier/build.prop", "a=1\n").Dir("/data"),
            [](sandbox::Context& ctx) {
                std::string content;
                android::base::ReadFileToString("/my_carrier/build.prop", &content);
                ctx.Note("content", content);
                ctx.Note("seeded", hostplatform::GetProperty("ro.seeded").value_or(""));
                ctx.SetStep("one");
                ctx.sink()(2, {{"x.applied", "v"}});
                LOG(WARNING) << "hello";
                unlink("/my_carrier/build.prop");
                android::base::WriteStringToFile("new", "/data/file");
            },
            options);
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes["content"], "a=1\n");
    EXPECT_EQ(outcome.notes["seeded"], "yes");
    ASSERT_EQ(outcome.batches.size(), 1u);
    EXPECT_EQ(outcome.batches[0].step, "one");
    EXPECT_EQ(outcome.batches[0].kind, 2);
    EXPECT_EQ(outcome.properties["x.applied"], "v");  // applied as init would
    EXPECT_TRUE(outcome.HasLog(android::base::WARNING, "hello"));
    EXPECT_FALSE(outcome.Exists("/my_carrier/build.prop"));
    EXPECT_EQ(outcome.FileContent("/data/file"), "new");
}

TEST(SandboxTest, ReadOnlyAndFullMountsRefuseWrites) {
    sandbox::Options options;
    options.mounts = {{sandbox::MountSetup::Kind::kReadOnly, "/ro", 0, false},
                      {sandbox::MountSetup::Kind::kTmpfs, "/full", 64 * 1024, true}};
    sandbox::Outcome outcome = RunInDevice(
            sandbox::DeviceTree().File("/ro/a", "old").File("/full/b", "kept"),
            [](sandbox::Context& ctx) {
                ctx.Note("ro", android::base::WriteStringToFile("x", "/ro/a") ? "written" : strerror(errno));
                ctx.Note("full", android::base::WriteStringToFile(std::string(8192, 'x'), "/full/c")
                                         ? "written"
                                         : strerror(errno));
            },
            options);
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes["ro"], strerror(EROFS));
    EXPECT_EQ(outcome.notes["full"], strerror(ENOSPC));
    EXPECT_EQ(outcome.FileContent("/ro/a"), "old");
    EXPECT_EQ(outcome.FileContent("/full/b"), "kept");  // the tmpfs starts with the tree's content
}

TEST(SandboxTest, EachRunIsAFreshProcessAndCrashesAreReported) {
    sandbox::Outcome crashed = RunInDevice(sandbox::DeviceTree(), [](sandbox::Context&) { abort(); });
    ASSERT_TRUE(crashed.unavailable.empty() || !InCi()) << crashed.unavailable;
    if (!crashed.unavailable.empty()) GTEST_SKIP() << crashed.unavailable;
    EXPECT_EQ(crashed.signal, SIGABRT);
    EXPECT_FALSE(crashed.Completed());
}

}  // namespace
}  // namespace zelva_test
