// SPDX-License-Identifier: Apache-2.0
// COTA module directories named in the total module info request: a value is accepted by a plain
// prefix test against the module base or /data/system/customize, and the directory its path
// names is created as the path reads, ".." components included.

#include <gmock/gmock.h>

#include "ZelvaExtensionProperty.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using ::testing::Contains;
using ::testing::Field;
using ::testing::Key;
using ::testing::Not;
using ::testing::Pair;
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

// The prefix test looks at the text only: a value that begins with the base is accepted even
// where its ".." components lead to a sibling of the base, and that sibling is what is made.
TEST(CotaModuleDirTest, PrefixedValueWithParentComponentsCreatesTheDirectoryItNames) {
    auto o = BindBasicPoint("mod=/mnt/cota/../cota_b\n");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.tree, Contains(Pair("/mnt/cota_b", Field(&sandbox::TreeEntry::type, 'd'))));
    EXPECT_THAT(o.Messages(android::base::ERROR), Not(Contains(StartsWith("cota module wrong dir"))));
}

// A value failing the prefix test creates nothing, also when its ".." components would lead
// back below the base.
TEST(CotaModuleDirTest, UnprefixedValueIsRejectedWhereverItLeads) {
    auto o = BindBasicPoint("mod=/mnt/other/../cota/m\n");
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.tree, Not(Contains(Key("/mnt/cota/m"))));
    EXPECT_THAT(o.tree, Not(Contains(Key("/mnt/other"))));
    EXPECT_THAT(o.Messages(android::base::ERROR),
                Contains("cota module wrong dir /mnt/other/../cota/m"));
}

}  // namespace
}  // namespace zelva_test
