// SPDX-License-Identifier: Apache-2.0
// Switch-key map lookups, the old NV flag and SSV key, directory creation and the domestic
// region conversion.

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "hostplatform/property_store.h"
#include "switch_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char kNvConfig[] = "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config";
constexpr char kNvPlatform[] = "/dev/block/platform/bootdevice/by-name/reserve_exp1";
constexpr char kNvBootDevice[] = "/dev/block/bootdevice/by-name/reserve_exp1";

// Map files in three customization directories, which the list holds in this order:
// /mnt/vendor/my_product, /my_product (whose custom_map.prop is a symbolic link, which the
// parser refuses) and /my_company.
sandbox::DeviceTree MapDevice() {
    return sandbox::DeviceTree()
            .File("/mnt/vendor/my_product/etc/nvmap.prop", "k1=early\nk2=early\n")
            .File("/my_company/etc/nvmap.prop", "k1=late\n")
            .File("/mnt/vendor/my_product/etc/custom_map.prop", "z=U\nb=V\n")
            .File("/my_company/etc/custom_map.prop", "b=V\na=V\n")
            .Symlink("/my_product/etc/custom_map.prop", "/my_company/etc/custom_map.prop");
}

TEST(SwitchKeyMapTest, ForwardLookupTakesTheLastDirectoryHoldingTheKey) {
    sandbox::Outcome o = RunDevice(MapDevice(), {}, [](sandbox::Context& ctx) {
        for (const char* key : {"k1", "k2", "unmapped"}) {
            std::string target = "stale";
            find_nv_ssv_target_key(key, "nvmap.prop", &target);
            ctx.Note(key, target);
        }
    });
    ASSERT_DEVICE_RAN(o);
    // k1 stands in both nvmap.prop files, k2 only in the earlier one.
    EXPECT_THAT(o.notes, UnorderedElementsAre(Pair("k1", "late"), Pair("k2", "early"),
                                              Pair("unmapped", "")));
}

TEST(SwitchKeyMapTest, ReverseLookupTakesTheFirstNameInTheLastReadableFileHoldingTheValue) {
    sandbox::Outcome o = RunDevice(MapDevice(), {}, [](sandbox::Context& ctx) {
        for (const char* value : {"V", "U", "unmapped"}) {
            ctx.SetStep(value);
            std::string source = "stale";
            find_nv_source_key(&source, "custom_map.prop", value);
            ctx.Note(value, source);
        }
        std::string untouched = "stale";
        find_nv_source_key(&untouched, "custom_map.prop", "");
        ctx.Note("no value", untouched);
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.notes, UnorderedElementsAre(Pair("V", "a"), Pair("U", "z"), Pair("unmapped", ""),
                                              Pair("no value", "stale")));
    // V is found before the walk reaches the link; U is looked for past it.
    EXPECT_THAT(LogRecords(o, {.step = "V"}), IsEmpty());
    EXPECT_THAT(LogRecords(o, {.step = "U"}),
                ElementsAre(Error("map file load failed:/my_product/etc/custom_map.prop")));
}

// Runs load_old_nv_key over the stores of |tree|, from a flag "before:" and a key "before";
// notes what it leaves as "flag" and "key".
TEST(OldIdentityTest, OldNvFlagComesFromTheFirstStoreWithContent) {
    const struct {
        std::optional<std::string> config, platform;  // the stores' content; nullopt: absent
        std::string flag, key;
        std::vector<LogRecord> logs;
    } cases[] = {
            {.config = "",
             .platform = "abc",
             .flag = "before:abc",
             .key = "K3",
             .logs = {Warning(std::string("Couldn't file") + kNvConfig)}},
            {.config = "ABCDEFGHI", .platform = "abc", .flag = "before:ABCDEFGH", .key = "K8"},
            {.config = "",
             .flag = "before:",
             .key = "before",
             .logs = {Warning(std::string("Couldn't file") + kNvConfig),
                      Error(std::string("read nv_flag failed :") + kNvPlatform),
                      Error(std::string("read nv_flag failed :") + kNvBootDevice)}},
    };
    for (const auto& c : cases) {
        sandbox::DeviceTree tree;
        tree.File("/my_product/etc/flags.prop", "abc=K3\nABCDEFGH=K8\n");
        if (c.config) tree.File(kNvConfig, *c.config);
        if (c.platform) tree.File(kNvPlatform, *c.platform);
        sandbox::Outcome o = RunDevice(tree, {}, [](sandbox::Context& ctx) {
            std::string flag = "before:", key = "before";
            load_old_nv_key(&flag, &key);
            ctx.Note("flag", flag);
            ctx.Note("key", key);
        });
        ASSERT_DEVICE_RAN(o);
        EXPECT_THAT(o.notes, UnorderedElementsAre(Pair("flag", c.flag), Pair("key", c.key)));
        EXPECT_EQ(LogRecords(o, {.step = kCall}), c.logs);
    }
}

// Runs read_old_ssv_key over |tree|; notes the key it leaves as "key".
sandbox::Outcome ReadOldSsvKey(const sandbox::DeviceTree& tree) {
    return RunDevice(tree, {}, [](sandbox::Context& ctx) {
        std::string key = "before";
        read_old_ssv_key(&key);
        ctx.Note("key", key);
    });
}

TEST(OldIdentityTest, OldSsvKeyIsTheWholeFileAndOnlyAnUnreadableOneIsReported) {
    sandbox::Outcome file = ReadOldSsvKey(sandbox::DeviceTree().File(kReserveSsv, "OLD\n"));
    sandbox::Outcome missing = ReadOldSsvKey(sandbox::DeviceTree().Dir(kReserveDir));
    sandbox::Outcome socket = ReadOldSsvKey(sandbox::DeviceTree().Socket(kReserveSsv));
    ASSERT_DEVICE_RAN(file);
    EXPECT_EQ(file.notes["key"], "OLD\n");
    EXPECT_EQ(missing.notes["key"], "before");
    EXPECT_THAT(LogRecords(missing, {.step = kCall}), IsEmpty());
    EXPECT_EQ(socket.notes["key"], "before");
    EXPECT_THAT(LogRecords(socket, {.step = kCall}),
                ElementsAre(Error("read old ssv failed :" + kReserveSsv)));
}

TEST(FirstKeyConversionTest, SourcesAreTriedInOrderUntilOneMapsAndAKeyThereIsKept) {
    const struct {
        std::string carrier, nv_flag, ssv_key, channel, company_type;  // "": not there
        std::string before, after;                                     // the first key
    } cases[] = {
            {.carrier = "QC",
             .nv_flag = "NV",
             .ssv_key = "SSV",
             .channel = "CH",
             .company_type = "CO",
             .after = "KC"},
            {.carrier = "unmapped",
             .nv_flag = "NV",
             .ssv_key = "SSV",
             .channel = "CH",
             .company_type = "CO",
             .after = "KN"},
            {.ssv_key = "SSV", .channel = "CH", .company_type = "CO", .after = "KS"},
            {.channel = "CH", .company_type = "CO", .after = "KH"},
            {.company_type = "CO", .after = "KY"},
            {.after = ""},
            {.carrier = "QC", .before = "kept", .after = "kept"},
    };
    const sandbox::DeviceTree tree = sandbox::DeviceTree().File(
            "/my_company/etc/nvmap.prop", "QC=KC\nNV=KN\nSSV=KS\nCH=KH\nCO=KY\n");
    sandbox::Outcome o = RunDevice(tree, {}, [&](sandbox::Context& ctx) {
        for (size_t i = 0; i < std::size(cases); ++i) {
            hostplatform::ResetProperties();
            hostplatform::SetProperty("ro.boot.qvcarrier", cases[i].carrier);
            hostplatform::SetProperty("persist.sys.channel.info", cases[i].channel);
            hostplatform::SetProperty("ro.zelva.image.my_company.type", cases[i].company_type);
            std::string key = cases[i].before;
            load_convert_first_key(&key, cases[i].nv_flag, cases[i].ssv_key);
            ctx.Note(std::to_string(i), key);
        }
    });
    ASSERT_DEVICE_RAN(o);
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(o.notes[std::to_string(i)], cases[i].after) << "case " << i;
    }
}

TEST(CreateDirectoryTest, MakesEachMissingPrefixEndingInASeparatorUntilOneFails) {
    sandbox::Outcome o =
            RunDevice(sandbox::DeviceTree().File("/file", "x"), {}, [](sandbox::Context& ctx) {
                umask(0);  // so that the directories get the mode asked for
                ctx.Note("/x/y/z", std::to_string(createDirectory("/x/y/z")));
                ctx.SetStep("failing");
                ctx.Note("/file/sub/", std::to_string(createDirectory("/file/sub/")));
            });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(o.notes, UnorderedElementsAre(Pair("/x/y/z", "0"), Pair("/file/sub/", "-1")));
    EXPECT_THAT(LogRecords(o, {.step = kCall}),
                ElementsAre(Info("make dir: /x/"), Info("make dir: /x/y/")));
    EXPECT_THAT(LogRecords(o, {.step = "failing"}), ElementsAre(Info("make dir: /file/")));
    EXPECT_EQ(o.tree["/x"].mode & 07777, 0771u);
    EXPECT_EQ(o.tree["/x/y"].mode & 07777, 0771u);
    EXPECT_FALSE(o.Exists("/x/y/z"));
}

TEST(DomesticRegionTest, RegionKeyIsWrittenOnceFromTheProvinceOrTheMappedCompanyType) {
    const std::string key = "sys.region.switch.first=";
    const PropertyMap province_and_type = {{"ro.sys.region.switch.first", "PROV"},
                                           {"ro.zelva.image.my_company.type", "TYPE"}};
    const LogRecord start = Info("doRegionSwitchForDomestic");
    const struct {
        std::string region = "CN";
        PropertyMap props;
        std::optional<std::string> data, reserve;  // the region files before; nullopt: absent
        std::optional<FileState> data_after, reserve_after;
        std::vector<LogRecord> logs;  // INFO and above
    } cases[] = {
            {.props = province_and_type,
             .data = key + "ZZ\n",
             .reserve_after = KeyFile(key + "PROV\n"),
             .logs = {start}},
            {.props = {{"ro.zelva.image.my_company.type", "TYPE"}},
             .data = "other=1\n",
             .reserve_after = KeyFile(key + "MAPPED\n"),
             .logs = {Info("no region switch property found in file: " + kDataRegion), start}},
            {.props = {{"ro.zelva.image.my_company.type", "X"}},
             .logs = {start, Info("target company type is empty, skip conversion")}},
            {.logs = {start, Info("no province switch value or company type, skip conversion")}},
            {.region = "CNX", .props = province_and_type},
            {.props = province_and_type,
             .reserve = "old",
             .reserve_after = RootFile("old"),
             .logs = {Info("region switch reserve file already exists, skip conversion")}},
            {.props = province_and_type,
             .data = key + "MAPPED\n",
             .data_after = RootFile(key + "MAPPED\n"),
             .logs = {Info("region switch data file is from custom_map, skip conversion")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("region " + c.region + ", data file " + c.data.value_or("absent"));
        sandbox::DeviceTree tree;
        tree.File("/my_region/build.prop", "ro.zelva.pipeline.region=" + c.region + "\n")
                .File("/my_company/etc/custom_map.prop", "TYPE=MAPPED\n")
                .Dir(kDataDir)
                .Dir(kReserveDir);
        if (c.data) tree.File(kDataRegion, *c.data, 0600);
        if (c.reserve) tree.File(kReserveRegion, *c.reserve, 0600);
        sandbox::Outcome o =
                RunDevice(tree, c.props, [](sandbox::Context&) { doRegionSwitchForDomestic(); });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(FileAt(o, kDataRegion), c.data_after);
        EXPECT_EQ(FileAt(o, kReserveRegion), c.reserve_after);
        EXPECT_EQ(LogRecords(o, {.step = kCall, .min_severity = android::base::INFO}), c.logs);
    }
}

}  // namespace
}  // namespace zelva_test
