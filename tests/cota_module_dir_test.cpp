// COTA module directories named in the total module info request: a directory is made only
// below the module base or /data/system/customize, also when its name tries to climb out.

#include <gmock/gmock.h>

#include "test_support.h"
#include "ZelvaExtensionProperty.h"

namespace zelva_test {
namespace {

using ::testing::Contains;
using ::testing::Key;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kRequest[] = "/data/cota/cota_mount_info.prop";

sandbox::Outcome BindBasicPoint(const std::string& request) {
    sandbox::DeviceTree tree;
    tree.File(kRequest, request).Dir("/mnt/cota").Dir("/data/system/customize");
    return RunInDevice(tree, [](sandbox::Context& ctx) {
        android::init::InitExtensionPropertyImpl::getInstance()->loadCotaServiceOverrideProperties(
                "bind_basic_point", ctx.sink());
    });
}

TEST(CotaModuleDirTest, ParentComponentCannotLeaveTheModuleBase) {
    auto o = BindBasicPoint("evil=/mnt/cota/../../etc/evil\n");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.tree, Not(Contains(Key("/etc"))));
    EXPECT_THAT(o.Messages(android::base::ERROR),
                Contains("cota module wrong dir /mnt/cota/../../etc/evil"));
}

TEST(CotaModuleDirTest, ParentComponentCannotLeaveTheCustomizeDirectory) {
    auto o = BindBasicPoint("evil=/data/system/customize/../../x\n");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.tree, Not(Contains(Key("/x"))));
    EXPECT_THAT(o.tree, Not(Contains(Key("/data/x"))));
    EXPECT_THAT(o.Messages(android::base::ERROR),
                Contains("cota module wrong dir /data/system/customize/../../x"));
}

TEST(CotaModuleDirTest, DotsWithinANameAreNoParentComponent) {
    auto o = BindBasicPoint("mod=/mnt/cota/a..b/..c\n");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.tree, Contains(Key("/mnt/cota/a..b/..c")));
    EXPECT_THAT(o.Messages(android::base::ERROR), Not(Contains(StartsWith("cota module wrong dir"))));
}

}  // namespace
}  // namespace zelva_test
