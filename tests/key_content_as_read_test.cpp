// SPDX-License-Identifier: Apache-2.0
// Keys taken from a legacy reserve key file (a bare key, as older systems wrote them) and from the
// region removal property are used exactly as read, line breaks and blanks included. The line
// written for such a key reads back, on later boots, as the parser sees it: trimmed.

#include <gmock/gmock.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using ::testing::Contains;
using ::testing::Not;
using ::testing::Optional;

constexpr char kFirstConverted[] = "Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY";

sandbox::Outcome BootNoting(const sandbox::ScratchRoot& root,
                            std::string android::init::InitExtensionPropertyImpl::*key,
                            const sandbox::Options& options = {}) {
    return RunInDevice(root, [key](sandbox::Context& ctx) {
        auto* impl = android::init::InitExtensionPropertyImpl::getInstance();
        impl->loadPersistOverrideProperties(ctx.sink());
        ctx.Note("key", android::init::CopyKey(impl->*key));
    }, options);
}

TEST(KeyContentAsReadTest, LegacyKeyKeepsItsTrailingLineBreakOnTheBootThatConvertsIt) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().File(android::init::kReserveSimSwitchFirstFile, "K7\n"), &error);
    ASSERT_TRUE(root) << error;
    const auto key = &android::init::InitExtensionPropertyImpl::simSwitchFirstKey;

    auto first = BootNoting(*root, key);
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(first.notes["key"], "K7\n");
    EXPECT_THAT(first.FileContent(android::init::kReserveSimSwitchFirstFile),
                Optional(std::string("sys.sim.switch.first=K7\n\n")));
    EXPECT_THAT(first.Messages(android::base::ERROR), Contains(kFirstConverted));

    // The rewritten file is in the name=value form: read as a property file, not converted.
    auto second = BootNoting(*root, key);
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(second.notes["key"], "K7");
    EXPECT_THAT(second.Messages(android::base::ERROR), Not(Contains(kFirstConverted)));
}

TEST(KeyContentAsReadTest, RegionRemovalPropertyKeyKeepsItsBlanksOnTheBootThatWritesIt) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().Dir("/data/system/customize/sim_switch"), &error);
    ASSERT_TRUE(root) << error;
    sandbox::Options options;
    options.properties = {{"persist.sys.remove.region.apk", " EU "}};
    const auto key = &android::init::InitExtensionPropertyImpl::regionSwitchKey;

    auto first = BootNoting(*root, key, options);
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(first.notes["key"], " EU ");
    EXPECT_THAT(first.FileContent(android::init::kDataRegionSwitchFile),
                Optional(std::string("sys.region.switch.first= EU \n")));

    auto second = BootNoting(*root, key, options);
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(second.notes["key"], "EU");
}

}  // namespace
}  // namespace zelva_test
