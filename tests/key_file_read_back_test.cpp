// Keys written to a key file are the keys the written name=value line reads back as: a legacy
// reserve key file (a bare key, as older systems wrote them) is rewritten once, and the region
// removal property gives the data region file's key, so that every boot resolves the same key.

#include <gmock/gmock.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using ::testing::Contains;
using ::testing::Not;
using ::testing::Optional;

struct LegacyCase {
    std::string content;  // the legacy file as found
    std::string key;      // the key every boot resolves
};

void PrintTo(const LegacyCase& c, std::ostream* os) {
    *os << "legacy content '" << c.content << "'";
}

class LegacyKeyFileTest : public ::testing::TestWithParam<LegacyCase> {};

TEST_P(LegacyKeyFileTest, RewrittenOnceIntoTheLineItsKeyReadsBackFrom) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().File(android::init::kReserveSimSwitchFirstFile,
                                       GetParam().content),
            &error);
    ASSERT_TRUE(root) << error;
    auto boot = [&] {
        return RunInDevice(*root, [](sandbox::Context& ctx) {
            auto* impl = android::init::InitExtensionPropertyImpl::getInstance();
            impl->loadPersistOverrideProperties(ctx.sink());
            ctx.Note("key", impl->simSwitchFirstKey);
        });
    };
    auto first = boot();
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(first.notes["key"], GetParam().key);
    EXPECT_THAT(first.FileContent(android::init::kReserveSimSwitchFirstFile),
                Optional("sys.sim.switch.first=" + GetParam().key + "\n"));

    auto second = boot();
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(second.notes["key"], GetParam().key);
    EXPECT_THAT(second.Messages(android::base::ERROR),
                Not(Contains("Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY")));
}

INSTANTIATE_TEST_SUITE_P(Contents, LegacyKeyFileTest,
                         testing::Values(LegacyCase{.content = "K7", .key = "K7"},
                                         LegacyCase{.content = "K7\n", .key = "K7"},
                                         LegacyCase{.content = " K7 \r\n", .key = "K7"},
                                         LegacyCase{.content = "K7\nK8\n", .key = "K7"}));

TEST(KeyFileReadBackTest, RegionRemovalPropertyKeyIsTheWrittenLinesKey) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree().Dir("/data/system/customize/sim_switch"), &error);
    ASSERT_TRUE(root) << error;
    sandbox::Options options;
    options.properties = {{"persist.sys.remove.region.apk", " EU "}};
    auto boot = [&] {
        return RunInDevice(*root, [](sandbox::Context& ctx) {
            auto* impl = android::init::InitExtensionPropertyImpl::getInstance();
            impl->loadPersistOverrideProperties(ctx.sink());
            ctx.Note("key", impl->regionSwitchKey);
        }, options);
    };
    auto first = boot();
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(first.notes["key"], "EU");
    EXPECT_THAT(first.FileContent(android::init::kDataRegionSwitchFile),
                Optional(std::string("sys.region.switch.first=EU\n")));
    auto second = boot();
    ASSERT_DEVICE_RAN(second);
    EXPECT_EQ(second.notes["key"], "EU");
}

}  // namespace
}  // namespace zelva_test
