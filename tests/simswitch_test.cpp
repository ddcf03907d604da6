// SIM-switch override entries (slots 8, 9, 10), the boot logo copy and the
// media path bind (slot 3).

#include <sys/mount.h>

#include "cota_test_support.h"

namespace zelva_test {
namespace {

using android::base::INFO;

TEST(SimSwitchTest, MediaPathIsBoundRecursivelyFromMyPartitionsOnly) {
    struct Case {
        std::string source, target, result;  // sys.mount.mediapath.success; "": left unset
    } cases[] = {{"/my_product/media", "/system/media", "0"},
                 {"/my_product/media", "/no/such/dir", "-1"},
                 {"/system/media", "/system/media", ""}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source + " " + c.target);
        sandbox::DeviceTree tree;
        tree.File("/my_product/media/ring.ogg", "ogg").File("/my_extra/inner", "inner");
        tree.Dir("/my_product/media/sub").Dir("/system/media");
        auto bind = [&](sandbox::Context&) {
            // A mount below the source: only a recursive bind carries it along.
            mount("/my_extra", "/my_product/media/sub", nullptr, MS_BIND, nullptr);
            TakeMountCalls();
            Impl()->bindCustomizeMediaPath(c.target.c_str());
        };
        sandbox::Outcome o = RunDevice(tree, {{"ro.sys.custommedia.sourcepath", c.source}}, bind);
        ASSERT_DEVICE_RAN(o);
        const bool bound = !c.result.empty();
        EXPECT_EQ(o.notes["mounts"], bound ? c.source + ">" + c.target + " 0x5000\n" : "");
        EXPECT_EQ(o.properties["sys.mount.mediapath.success"], c.result);
        EXPECT_EQ(o.HasLog(INFO, "Mount ringtones result :" + c.result), bound);
        EXPECT_EQ(o.FileContent("/system/media/sub/inner").has_value(), c.result == "0");
        EXPECT_EQ(o.FileContent("/system/media/ring.ogg").has_value(), c.result == "0");
    }
}

TEST(SimSwitchTest, NightjarSendsTheCompanyBuildPropEvenEmptyThenSpecial) {
    for (bool present : {true, false}) {
        sandbox::DeviceTree tree;
        if (present) tree.File("/my_company/etc/build.prop", "ro.nightjar=1\n");
        sandbox::Outcome o = RunDevice(tree, kSpecialSeed, [](sandbox::Context& ctx) {
            Impl()->loadNightjarOverrideProperties(ctx.sink());
        });
        ASSERT_DEVICE_RAN(o);
        const PropertyMap first = present ? PropertyMap{{"ro.nightjar", "1"}} : PropertyMap{};
        EXPECT_EQ(Sent(o), (std::vector<PropertyMap>{first, kSpecialBatch}));
        EXPECT_EQ(o.HasLog(INFO, "can not read prop from :/my_company/etc/build.prop"), !present);
    }
}

TEST(SimSwitchTest, SimSwitchEntryLoadsTheSetsOfItsKeys) {
    const PropertyMap first = {{"sys.sim.switch.first", "vf"}}, sim = {{"sim.first", "1"}};
    auto cota = [&](const char* verify, const char* dir) {
        return Merge({{"sys.cotaimg.verify", verify}, {"sys.cota.load.properties", dir}}, first);
    };
    struct Case {
        PropertyMap props, batch;  // batch: the SIM-switch batch; empty: none expected
    } cases[] = {
            {Merge({{"sys.sim.switch.current", "vfc"}, {"sys.region.switch.first", "DE"}}, first),
             {{"sim.first", "1"}, {"sim.current", "1"}, {"region.de", "1"}}},
            // The operator pair replaces the SSV key that the object held ("old").
            {{{"persist.sys.zelva.operator.opta", "VDF"},
              {"persist.sys.zelva.operator.optb", "EU"}},
             {{"ssv.opt", "1"}}},
            {cota("1", "/mnt/c"), {{"sim.first", "1"}, {"cota.first", "1"}}},
            {cota("10", "/mnt/c"), sim},
            {cota("1", "0"), sim},
            {{}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.props));
        sandbox::DeviceTree tree;
        tree.File("/my_carrier/properties/vf/SimSwitchFirstTime/a.prop", "sim.first=1")
                .File("/my_carrier/properties/vfc/SimSwitchCurrentTime/a.prop", "sim.current=1")
                .File("/my_region/properties/DE/regionSwitch/r.prop", "region.de=1")
                .File("/my_carrier/etc/build.vdf-eu.prop", "ssv.opt=1")
                .File("/my_carrier/etc/build.old.prop", "ssv.old=1")
                .File("/mnt/c/properties/vf/SimSwitchFirstTime/c.prop", "cota.first=1");
        auto load = [&](sandbox::Context& ctx) {
            if (c.props.count("persist.sys.zelva.operator.opta")) Impl()->ssvOldKey = "old";
            Impl()->loadSimSwitchOverrideProperties(ctx.sink());
        };
        sandbox::Outcome o = RunDevice(tree, Merge(c.props, kSpecialSeed), load);
        ASSERT_DEVICE_RAN(o);
        std::vector<PropertyMap> expected = {kSpecialBatch};
        if (!c.batch.empty()) expected.insert(expected.begin(), c.batch);
        EXPECT_EQ(Sent(o), expected);
    }
}

TEST(SimSwitchTest, TriggersAndLogoCopy) {
    constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
    constexpr char kRecord[] = "persist.record.my_company.date.forlogo";
    const PropertyMap dated = {{"ro.zelva.image.my_company.date.utc", "17"}};
    const std::string bin = "/my_company/media/logo/logo.bin";
    const std::map<std::string, std::string> both = {{"/my_company/media/logo/logo.img", "IMG"},
                                                     {bin, "BIN"}};
    const std::string boot = "triggerLogoCopyFromCompanyBoot", none = "No logo resource found";
    const std::string blank(8, '.'), copied = "Logo copied, no need to process again";
    struct Case {
        std::vector<std::string> triggers;
        PropertyMap props;
        std::map<std::string, std::string> files;
        std::optional<std::string> splash, after;  // the partition before and after
        std::string record, log;                    // record: the logo date afterwards
    } cases[] = {
            {{boot, boot}, dated, both, blank, "IMG.....", "17", copied},
            {{"triggerLogoCopyFromCompany"}, Merge(dated, {{kRecord, "17"}}), both, blank,
             "IMG.....", "17", ""},
            {{boot}, dated, {{bin, "BIN"}}, blank, "BIN.....", "17", ""},
            {{boot}, {}, both, blank, blank, "", "Missing component information"},
            {{boot}, dated, {}, blank, blank, "", none},
            {{"triggerLogoCopy/data/l"}, dated, {{"/data/l", "RAW"}}, blank, "RAW.....", "", ""},
            {{"triggerLogoCopyFromCompanyX"}, dated, both, blank, blank, "", none},
            {{"triggerLogoCopy/data/none"}, dated, both, blank, blank, "", none},
            {{boot}, dated, both, {}, {}, "", "Can not access the target Partition"},
            {{boot}, dated, both, "..", "..", "", "Logo resource is too large"},
            {{"propertiesOverrideSwitch"}, dated, both, blank, blank, "", ""},
            {{"propertiesOverrideSwitchX"}, dated, both, blank, blank, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.triggers) + c.splash.value_or("-") + c.log);
        sandbox::DeviceTree tree;
        tree.Dir("/dev/block/by-name").File("/my_carrier/build.prop", "carrier.prop=1\n");
        for (const auto& [path, content] : c.files) tree.File(path, content);
        if (c.splash) tree.File(kSplash, *c.splash);
        sandbox::Outcome o = RunDevice(tree, c.props, [&](sandbox::Context& ctx) {
            for (const std::string& t : c.triggers) {
                Impl()->loadSimSwitchOverrideProperties(t, ctx.sink());
            }
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.FileContent(kSplash), c.after);
        EXPECT_EQ(o.properties[kRecord], c.record);
        EXPECT_TRUE(c.log.empty() || o.HasLog(INFO, c.log));
        std::vector<PropertyMap> reloaded;
        if (c.triggers[0] == "propertiesOverrideSwitch") reloaded = {{{"carrier.prop", "1"}}};
        EXPECT_EQ(Sent(o), reloaded);
    }
}

}  // namespace
}  // namespace zelva_test
