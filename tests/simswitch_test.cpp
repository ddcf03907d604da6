// SPDX-License-Identifier: Apache-2.0
// The media path bind (slot 3), the override entries of slots 7 (COTA), 8 (nightjar), 9 and
// 10 (SIM switch) and the boot logo copy that slot 10 triggers.

#include <gmock/gmock.h>

#include "switch_test_support.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;

std::vector<LogRecord> InfoRecords(const sandbox::Outcome& o) {
    return LogRecords(o, {.min_severity = android::base::INFO});
}

// The media source holds a directory with a mount of its own below it, which only a recursive
// bind carries along.
TEST(MediaPathTest, SourceInACustomizationImageIsBoundRecursivelyWithItsResultRecorded) {
    const struct {
        std::string source, target;
        bool submount_seen;  // the mount below the source shows through the bind
        std::optional<std::string> result;
        std::vector<LogRecord> logs;
    } cases[] = {
            {.source = "/my_product/media",
             .target = "/system/media",
             .submount_seen = true,
             .result = "0",
             .logs = {Info("Mount ringtones result :0")}},
            {.source = "/my_product/media",
             .target = "/no/such/dir",
             .result = "-1",
             .logs = {Info("Mount ringtones result :-1")}},
            {.source = "/system/media", .target = "/system/media"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.source + " onto " + c.target);
        const sandbox::DeviceTree tree = sandbox::DeviceTree()
                                                 .Dir("/my_product/media/sub")
                                                 .File("/my_extra/inner", "x")
                                                 .Dir("/system/media");
        sandbox::Outcome o = RunDevice(
                tree, {{"ro.sys.custommedia.sourcepath", c.source}}, [&](sandbox::Context&) {
                    mount("/my_extra", "/my_product/media/sub", nullptr, MS_BIND, nullptr);
                    Impl()->bindCustomizeMediaPath(c.target.c_str());
                });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.Exists("/system/media/sub/inner"), c.submount_seen);
        EXPECT_EQ(PropertyAt(o, "sys.mount.mediapath.success"), c.result);
        EXPECT_EQ(InfoRecords(o), c.logs);
    }
}

// Runs |fn| on a device holding |tree| and |props| beside the seed of the special properties.
sandbox::Outcome Call(const sandbox::DeviceTree& tree, const PropertyMap& props,
                      const std::function<void(sandbox::Sink)>& fn) {
    return RunDevice(tree, With(kSpecialSeed, props),
                     [&](sandbox::Context& ctx) { fn(ctx.sink()); });
}

TEST(NightjarTest, SendsTheCompanyBuildPropertiesEvenNoneThenTheSpecialOnes) {
    sandbox::Outcome o =
            Call(sandbox::DeviceTree().File("/my_company/etc/build.prop", "ro.nj=1\n"), {},
                 [](sandbox::Sink sink) { Impl()->loadNightjarOverrideProperties(sink); });
    sandbox::Outcome none = Call(sandbox::DeviceTree(), {}, [](sandbox::Sink sink) {
        Impl()->loadNightjarOverrideProperties(sink);
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({{"ro.nj", "1"}}), kSpecialBatch));
    EXPECT_THAT(SentBatches(none), ElementsAre(Ordinary({}), kSpecialBatch));
    EXPECT_THAT(InfoRecords(none),
                ElementsAre(Info("can not read prop from :/my_company/etc/build.prop")));
}

// Property sets of each switch key, in the carrier image and in a COTA directory /mnt/c.
sandbox::DeviceTree SwitchSets() {
    return sandbox::DeviceTree()
            .File("/my_carrier/properties/vf/SimSwitchFirstTime/a.prop", "sim.first=1\n")
            .File("/my_carrier/properties/vfc/SimSwitchCurrentTime/a.prop", "sim.current=1\n")
            .File("/my_region/properties/DE/regionSwitch/r.prop", "region.de=1\n")
            .File("/my_carrier/etc/build.vdf-eu.prop", "ssv.opt=1\n")
            .File("/my_carrier/etc/build.old.prop", "ssv.old=1\n")
            .File("/mnt/c/properties/vf/SimSwitchFirstTime/c.prop", "cota.first=1\n")
            .File("/mnt/c/build.prop", "ro.zelva.image.my_bigball.version_name=V-1\n")
            .File("/my_carrier/build.prop", "carrier.prop=1\n");
}

TEST(SimSwitchSlotTest, SwitchPropertiesSelectTheSetsOfTheirKeys) {
    const PropertyMap first = {{"sys.sim.switch.first", "vf"}};
    const std::string verify = "sys.cotaimg.verify", load_path = "sys.cota.load.properties";
    const struct {
        std::string behaviour, held_ssv_key;
        PropertyMap props;
        std::vector<SentBatch> sent;
    } cases[] = {
            {.behaviour = "each key its set",
             .props = {{"sys.sim.switch.first", "vf"},
                       {"sys.sim.switch.current", "vfc"},
                       {"sys.region.switch.first", "DE"}},
             .sent = {Ordinary({{"sim.first", "1"}, {"sim.current", "1"}, {"region.de", "1"}}),
                      kSpecialBatch}},
            {.behaviour = "the operator pair replaces the SSV key held",
             .held_ssv_key = "old",
             .props = {{"persist.sys.zelva.operator.opta", "VDF"},
                       {"persist.sys.zelva.operator.optb", "EU"}},
             .sent = {Ordinary({{"ssv.opt", "1"}}), kSpecialBatch}},
            {.behaviour = "a verified COTA directory adds its sets",
             .props = With(first, {{verify, "1"}, {load_path, "/mnt/c"}}),
             .sent = {Ordinary({{"sim.first", "1"}, {"cota.first", "1"}}), kSpecialBatch}},
            {.behaviour = "only when verified exactly",
             .props = With(first, {{verify, "10"}, {load_path, "/mnt/c"}}),
             .sent = {Ordinary({{"sim.first", "1"}}), kSpecialBatch}},
            {.behaviour = "and with a load path",
             .props = With(first, {{verify, "1"}, {load_path, "0"}}),
             .sent = {Ordinary({{"sim.first", "1"}}), kSpecialBatch}},
            {.behaviour = "no keys: only the special properties", .sent = {kSpecialBatch}},
    };
    for (const auto& c : cases) {
        sandbox::Outcome o = Call(SwitchSets(), c.props, [&](sandbox::Sink sink) {
            Impl()->ssvOldKey = c.held_ssv_key;
            Impl()->loadSimSwitchOverrideProperties(sink);
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(SentBatches(o), c.sent) << c.behaviour;
    }
}

// The display version is set, but composing it is left to the COTA service's commands.
TEST(CotaSlotTest, OnlyAVerifiedDirectoryWithALoadPathIsLoadedWithTheBigballVersionRenamed) {
    const PropertyMap display = {{"ro.zelva.customize.display.version_name", "D"}};
    const struct {
        std::string verify, load_path;
        std::vector<SentBatch> sent;
    } cases[] = {
            {.verify = "1",
             .load_path = "/mnt/c",
             .sent = {Ordinary({{"ro.zelva.image.my_carrier.version_name", "V-1"}}),
                      kSpecialBatch}},
            {.verify = "10", .load_path = "/mnt/c"},
            {.verify = "1", .load_path = "0"},
    };
    for (const auto& c : cases) {
        sandbox::Outcome o = Call(
                SwitchSets(),
                With(display,
                     {{"sys.cotaimg.verify", c.verify}, {"sys.cota.load.properties", c.load_path}}),
                [](sandbox::Sink sink) { Impl()->loadCotaOverrideProperties(sink); });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(SentBatches(o), c.sent) << "verify " << c.verify << ", path " << c.load_path;
    }
}

TEST(SlotTenTest, OnlyTheExactOverrideTriggerRunsThePriorityLoader) {
    for (const std::string trigger : {"propertiesOverrideSwitch", "propertiesOverrideSwitchX"}) {
        sandbox::Outcome o = Call(SwitchSets(), {}, [&](sandbox::Sink sink) {
            Impl()->loadSimSwitchOverrideProperties(trigger, sink);
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(SentBatches(o), trigger == "propertiesOverrideSwitch"
                                          ? std::vector{Ordinary({{"carrier.prop", "1"}})}
                                          : std::vector<SentBatch>{});
    }
}

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImage[] = "/my_company/media/logo/logo.img";
constexpr char kLogoBinary[] = "/my_company/media/logo/logo.bin";
constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";
const PropertyMap kImageDate = {{"ro.zelva.image.my_company.date.utc", "17"}};

struct LogoCase {
    std::string trigger;
    std::map<std::string, std::string> files = {
            {kSplash, "........"}, {kLogoImage, "IMG"}, {kLogoBinary, "BIN"}};
    PropertyMap props = kImageDate;
    std::optional<std::string> splash_after = "........";
    std::optional<std::string> copied_date;  // recorded after the trigger
    std::vector<LogRecord> logs;
};

TEST(LogoCopyTest, TriggersCopyTheLogoThatTheyNameOntoTheSplashPartition) {
    const std::string company = "triggerLogoCopyFromCompany", boot = company + "Boot";
    const PropertyMap copied = With(kImageDate, {{kCopiedDate, "17"}});
    const LogoCase cases[] = {
            {.trigger = boot, .splash_after = "IMG.....", .copied_date = "17"},
            {.trigger = boot,
             .props = copied,
             .copied_date = "17",
             .logs = {Info("Logo copied, no need to process again")}},
            {.trigger = company, .props = copied, .splash_after = "IMG.....", .copied_date = "17"},
            {.trigger = boot,
             .files = {{kSplash, "........"}, {kLogoBinary, "BIN"}},
             .splash_after = "BIN.....",
             .copied_date = "17"},
            {.trigger = boot, .props = {}, .logs = {Info("Missing component information")}},
            {.trigger = "triggerLogoCopy/data/l",
             .files = {{kSplash, "........"}, {"/data/l", "RAW"}},
             .splash_after = "RAW....."},
            {.trigger = boot,
             .files = {{kSplash, "........"}},
             .logs = {Info("No logo resource found")}},
            {.trigger = company + "X", .logs = {Info("No logo resource found")}},  // no path
            {.trigger = "triggerLogoCopy/data/none", .logs = {Info("No logo resource found")}},
            {.trigger = boot,
             .files = {{kLogoImage, "IMG"}},
             .splash_after = std::nullopt,
             .logs = {Info("Can not access the target Partition")}},
            {.trigger = boot,
             .files = {{kSplash, ".."}, {kLogoImage, "IMG"}},
             .splash_after = "..",
             .logs = {Info("Logo resource is too large")}},
    };
    for (const LogoCase& c : cases) {
        SCOPED_TRACE(c.trigger + " with " + testing::PrintToString(c.files));
        sandbox::DeviceTree tree;
        tree.Dir("/dev/block/by-name");
        for (const auto& [path, content] : c.files) tree.File(path, content);
        sandbox::Outcome o = RunDevice(tree, c.props, [&](sandbox::Context& ctx) {
            Impl()->loadSimSwitchOverrideProperties(c.trigger, ctx.sink());
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.FileContent(kSplash), c.splash_after);
        EXPECT_EQ(PropertyAt(o, kCopiedDate), c.copied_date);
        EXPECT_EQ(InfoRecords(o), c.logs);
    }
}

}  // namespace
}  // namespace zelva_test
