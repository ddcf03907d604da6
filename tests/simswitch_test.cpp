// The media path bind (slot 3), the override entries of slots 7 (COTA), 8 (nightjar), 9 and
// 10 (SIM switch) and the boot logo copy that slot 10 triggers.

#include <gmock/gmock.h>

#include "switch_test_support.h"

namespace zelva_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kMediaResult[] = "sys.mount.mediapath.success";

std::vector<LogRecord> InfoRecords(const sandbox::Outcome& o) {
    return LogRecords(o, {.min_severity = android::base::INFO});
}

// Slot 3 onto |target| with the media source |source|, which holds a directory with a mount of
// its own below it: only a recursive bind carries that one along.
sandbox::Outcome BindMediaPath(const std::string& source, const char* target) {
    const sandbox::DeviceTree tree = sandbox::DeviceTree()
                                             .Dir("/my_product/media/sub")
                                             .File("/my_extra/inner", "x")
                                             .Dir("/system/media");
    return RunDevice(tree, {{"ro.sys.custommedia.sourcepath", source}}, [=](sandbox::Context&) {
        mount("/my_extra", "/my_product/media/sub", nullptr, MS_BIND, nullptr);
        Impl()->bindCustomizeMediaPath(target);
    });
}

TEST(MediaPathTest, SourceIsBoundRecursivelyAndTheResultRecorded) {
    sandbox::Outcome o = BindMediaPath("/my_product/media", "/system/media");
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent("/system/media/sub/inner"), "x");
    EXPECT_EQ(o.properties[kMediaResult], "0");
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Mount ringtones result :0")));
}

TEST(MediaPathTest, FailedBindIsRecordedAsMinusOne) {
    sandbox::Outcome o = BindMediaPath("/my_product/media", "/no/such/dir");
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.properties[kMediaResult], "-1");
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Mount ringtones result :-1")));
}

TEST(MediaPathTest, SourceOutsideTheCustomizationImagesIsIgnored) {
    sandbox::Outcome o = BindMediaPath("/system/media", "/system/media");
    ASSERT_DEVICE_RAN(o);
    EXPECT_FALSE(o.Exists("/system/media/sub"));
    EXPECT_EQ(o.properties.count(kMediaResult), 0u);
    EXPECT_THAT(InfoRecords(o), IsEmpty());
}

// Runs |fn| on a device holding |tree| and |props| beside the seed of the special properties.
sandbox::Outcome Call(const sandbox::DeviceTree& tree, const PropertyMap& props,
                      const std::function<void(sandbox::Sink)>& fn) {
    return RunDevice(tree, With(kSpecialSeed, props), [&](sandbox::Context& ctx) {
        fn(ctx.sink());
    });
}

void Nightjar(sandbox::Sink sink) { Impl()->loadNightjarOverrideProperties(sink); }

TEST(NightjarTest, SendsTheCompanyBuildPropertiesThenTheSpecialOnes) {
    sandbox::Outcome o = Call(
            sandbox::DeviceTree().File("/my_company/etc/build.prop", "ro.nightjar=1\n"), {},
            Nightjar);
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({{"ro.nightjar", "1"}}), kSpecialBatch));
}

TEST(NightjarTest, UnreadableCompanyPropertiesSendAnEmptyBatch) {
    sandbox::Outcome o = Call(sandbox::DeviceTree(), {}, Nightjar);
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({}), kSpecialBatch));
    EXPECT_THAT(InfoRecords(o),
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

void SimSwitch(sandbox::Sink sink) { Impl()->loadSimSwitchOverrideProperties(sink); }

TEST(SimSwitchSlotTest, SwitchPropertiesSelectTheSetsOfTheirKeys) {
    sandbox::Outcome o = Call(SwitchSets(),
                              {{"sys.sim.switch.first", "vf"},
                               {"sys.sim.switch.current", "vfc"},
                               {"sys.region.switch.first", "DE"}},
                              SimSwitch);
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o),
                ElementsAre(Ordinary({{"sim.first", "1"}, {"sim.current", "1"}, {"region.de", "1"}}),
                            kSpecialBatch));
}

TEST(SimSwitchSlotTest, OperatorPairReplacesTheOldSsvKeyHeld) {
    sandbox::Outcome o = Call(SwitchSets(),
                              {{"persist.sys.zelva.operator.opta", "VDF"},
                               {"persist.sys.zelva.operator.optb", "EU"}},
                              [](sandbox::Sink sink) {
                                  Impl()->ssvOldKey = "old";
                                  SimSwitch(sink);
                              });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({{"ssv.opt", "1"}}), kSpecialBatch));
}

TEST(SimSwitchSlotTest, OnlyAVerifiedCotaDirectoryAddsItsSets) {
    const struct {
        std::string verify, load_path;
        PropertyMap sent;
    } cases[] = {
            {.verify = "1", .load_path = "/mnt/c", .sent = {{"sim.first", "1"}, {"cota.first", "1"}}},
            {.verify = "10", .load_path = "/mnt/c", .sent = {{"sim.first", "1"}}},
            {.verify = "1", .load_path = "0", .sent = {{"sim.first", "1"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("verify " + c.verify + ", load path " + c.load_path);
        sandbox::Outcome o = Call(SwitchSets(),
                                  {{"sys.sim.switch.first", "vf"},
                                   {"sys.cotaimg.verify", c.verify},
                                   {"sys.cota.load.properties", c.load_path}},
                                  SimSwitch);
        ASSERT_DEVICE_RAN(o);
        EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary(c.sent), kSpecialBatch));
    }
}

TEST(SimSwitchSlotTest, WithoutKeysSendsOnlyTheSpecialProperties) {
    sandbox::Outcome o = Call(SwitchSets(), {}, SimSwitch);
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o), ElementsAre(kSpecialBatch));
}

void Cota(sandbox::Sink sink) { Impl()->loadCotaOverrideProperties(sink); }

// The display version is set, but composing it is left to the COTA service's commands.
TEST(CotaSlotTest, VerifiedDirectoryIsLoadedWithTheBigballVersionRenamed) {
    sandbox::Outcome o = Call(SwitchSets(),
                              {{"sys.cotaimg.verify", "1"},
                               {"sys.cota.load.properties", "/mnt/c"},
                               {"ro.zelva.customize.display.version_name", "D"}},
                              Cota);
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(SentBatches(o),
                ElementsAre(Ordinary({{"ro.zelva.image.my_carrier.version_name", "V-1"}}),
                            kSpecialBatch));
}

TEST(CotaSlotTest, NothingLoadsUnlessVerifiedExactlyWithALoadPath) {
    for (const auto& [verify, load_path] : {std::pair{"10", "/mnt/c"}, std::pair{"1", "0"}}) {
        sandbox::Outcome o = Call(SwitchSets(),
                                  {{"sys.cotaimg.verify", verify},
                                   {"sys.cota.load.properties", load_path}},
                                  Cota);
        ASSERT_DEVICE_RAN(o);
        EXPECT_THAT(SentBatches(o), IsEmpty()) << verify << " " << load_path;
    }
}

TEST(SlotTenTest, OnlyTheExactOverrideTriggerRunsThePriorityLoader) {
    for (const std::string trigger : {"propertiesOverrideSwitch", "propertiesOverrideSwitchX"}) {
        sandbox::Outcome o = Call(SwitchSets(), {}, [&](sandbox::Sink sink) {
            Impl()->loadSimSwitchOverrideProperties(trigger, sink);
        });
        ASSERT_DEVICE_RAN(o);
        if (trigger == "propertiesOverrideSwitch") {
            EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({{"carrier.prop", "1"}})));
        } else {
            EXPECT_THAT(SentBatches(o), IsEmpty());
        }
    }
}

constexpr char kSplash[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImage[] = "/my_company/media/logo/logo.img";
constexpr char kLogoBinary[] = "/my_company/media/logo/logo.bin";
constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";
const std::string kBootTrigger = "triggerLogoCopyFromCompanyBoot";
const std::string kCompanyTrigger = "triggerLogoCopyFromCompany";
const PropertyMap kImageDate = {{"ro.zelva.image.my_company.date.utc", "17"}};

// An 8-byte splash partition and, unless told otherwise, both logo files.
sandbox::DeviceTree LogoDevice(bool logo_files = true) {
    sandbox::DeviceTree tree;
    tree.File(kSplash, "........");
    if (logo_files) tree.File(kLogoImage, "IMG").File(kLogoBinary, "BIN");
    return tree;
}

// Slot 10 with |trigger| on |tree| holding |props|.
sandbox::Outcome TriggerLogoCopy(const sandbox::DeviceTree& tree, const std::string& trigger,
                                 const PropertyMap& props = kImageDate) {
    return RunDevice(tree, props, [&](sandbox::Context& ctx) {
        Impl()->loadSimSwitchOverrideProperties(trigger, ctx.sink());
    });
}

TEST(LogoCopyTest, BootTriggerCopiesTheImageAndRecordsItsDate) {
    sandbox::Outcome o = TriggerLogoCopy(LogoDevice(), kBootTrigger);
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "IMG.....");
    EXPECT_EQ(o.properties[kCopiedDate], "17");
    EXPECT_THAT(InfoRecords(o), IsEmpty());
}

TEST(LogoCopyTest, BootTriggerSkipsAnImageDateAlreadyCopied) {
    sandbox::Outcome o =
            TriggerLogoCopy(LogoDevice(), kBootTrigger, With(kImageDate, {{kCopiedDate, "17"}}));
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "........");
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Logo copied, no need to process again")));
}

TEST(LogoCopyTest, CompanyTriggerCopiesWhateverDateWasRecorded) {
    sandbox::Outcome o = TriggerLogoCopy(LogoDevice(), kCompanyTrigger,
                                         With(kImageDate, {{kCopiedDate, "17"}}));
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "IMG.....");
}

TEST(LogoCopyTest, BinaryIsTheSecondChoice) {
    sandbox::Outcome o = TriggerLogoCopy(LogoDevice(false).File(kLogoBinary, "BIN"), kBootTrigger);
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "BIN.....");
    EXPECT_EQ(o.properties[kCopiedDate], "17");
}

TEST(LogoCopyTest, CompanyTriggerNeedsTheImageDate) {
    sandbox::Outcome o = TriggerLogoCopy(LogoDevice(), kBootTrigger, {});
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "........");
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Missing component information")));
}

TEST(LogoCopyTest, PathTriggerCopiesTheFileItNamesAndRecordsNoDate) {
    sandbox::Outcome o =
            TriggerLogoCopy(LogoDevice().File("/data/l", "RAW"), "triggerLogoCopy/data/l");
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "RAW.....");
    EXPECT_EQ(o.properties[kCopiedDate], "");
}

TEST(LogoCopyTest, TriggerWithoutASourceCopiesNothing) {
    const struct {
        sandbox::DeviceTree tree;
        std::string trigger;
    } cases[] = {
            {LogoDevice(false), kBootTrigger},
            {LogoDevice(), kCompanyTrigger + "X"},  // a path trigger without a path
            {LogoDevice(), "triggerLogoCopy/data/none"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.trigger);
        sandbox::Outcome o = TriggerLogoCopy(c.tree, c.trigger);
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.FileContent(kSplash), "........");
        EXPECT_THAT(InfoRecords(o), ElementsAre(Info("No logo resource found")));
    }
}

TEST(LogoCopyTest, MissingSplashPartitionIsReported) {
    sandbox::Outcome o = TriggerLogoCopy(
            sandbox::DeviceTree().File(kLogoImage, "IMG").Dir("/dev/block/by-name"), kBootTrigger);
    ASSERT_DEVICE_RAN(o);
    EXPECT_FALSE(o.Exists(kSplash));
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Can not access the target Partition")));
}

TEST(LogoCopyTest, SourceLargerThanThePartitionIsNotCopied) {
    sandbox::Outcome o = TriggerLogoCopy(
            sandbox::DeviceTree().File(kLogoImage, "IMG").File(kSplash, ".."), kBootTrigger);
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.FileContent(kSplash), "..");
    EXPECT_EQ(o.properties[kCopiedDate], "");
    EXPECT_THAT(InfoRecords(o), ElementsAre(Info("Logo resource is too large")));
}

}  // namespace
}  // namespace zelva_test
