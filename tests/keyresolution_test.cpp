// SPDX-License-Identifier: Apache-2.0
// Switch key resolution at boot: which keys a boot settles on, what it writes to the reserve
// and data stores for the next boot, and what it hands to init.

#include <gmock/gmock.h>

#include "switch_test_support.h"

namespace zelva_test {
namespace {

using sandbox::MountSetup;
using testing::Contains;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char kFlashbackConfig[] = "/mnt/vendor/zelvareserve/system/flag/flashback.cfg";
constexpr char kNoneClear[] = "ro.none.clear.switch.first";
const PropertyMap kMappedCarrier = {{"ro.boot.qvcarrier", "QC"}};
const std::string kFirstLine = "sys.sim.switch.first=K1\n";
const std::string kConvertLine = "sys.sim.switch.convert= true\n";

// A device whose carrier QC maps to the first key K1, with a data partition; the flashback
// company is set, so that the flashback default stays out of the batch.
sandbox::DeviceTree KeyDevice() {
    return sandbox::DeviceTree().File("/my_product/etc/nvmap.prop", "QC=K1\n").Dir(kDataDir);
}
const PropertyMap kFlashbackSet = {{"ro.sys.customize.flashback.company", "acme"}};

// Slot 6 on a boot of |root| (a DeviceTree or a ScratchRoot kept between boots): the object
// holds no keys yet, so it resolves them. The keys it settles on come back as the notes
// "first", "current" and "region".
template <typename Root>
sandbox::Outcome Boot(const Root& root, PropertyMap props = {},
                      std::vector<MountSetup> mounts = {}) {
    return RunInDevice(root,
                       [](sandbox::Context& ctx) {
                           auto* impl = Impl();
                           impl->loadPersistOverrideProperties(ctx.sink());
                           ctx.Note("first", impl->simSwitchFirstKey);
                           ctx.Note("current", impl->simSwitchCurrentKey);
                           ctx.Note("region", impl->regionSwitchKey);
                       },
                       {.properties = With(kFlashbackSet, props), .mounts = std::move(mounts)});
}

struct Keys {
    std::string first, current, region;
};

auto KeysAre(const Keys& keys) {
    return UnorderedElementsAre(Pair("first", keys.first), Pair("current", keys.current),
                                Pair("region", keys.region));
}

TEST(KeyResolutionTest, EachBootSettlesItsKeysFromTheStoresAndProperties) {
    const std::string first = "sys.sim.switch.first=", current = "sys.sim.switch.current=";
    const std::string region = "sys.region.switch.first=";
    const std::string payjoy = "persist.sys.payjoy.status_change";
    const std::string removal = "persist.sys.remove.region.apk";
    const std::string flashback = "ro.sys.customize.flashback.company";
    const struct {
        std::string behaviour;
        std::map<std::string, std::string> files;  // laid out before the boot
        PropertyMap props;
        std::map<std::string, std::optional<FileState>> after;  // nullopt: absent
        Keys keys;
        std::vector<SentBatch> sent;
        bool without_reserve_dir = false;
    } boots[] = {
            {.behaviour = "the old carrier is converted through the map, with both markers",
             .props = With(kMappedCarrier, {{kNoneClear, "true"}}),
             .after = {{kReserveFirst, KeyFile(kFirstLine)},
                       {kReserveConvert, KeyFile(kConvertLine)},
                       {kReserveNoneClear, KeyFile("1")}},
             .keys = {.first = "K1"},
             .sent = {Ordinary({{kNoneClear, "true"}, {"sys.sim.switch.first", "K1"}})},
             .without_reserve_dir = true},
            {.behaviour = "the none-clear marker needs the value true exactly",
             .props = With(kMappedCarrier, {{kNoneClear, "TRUE"}}),
             .after = {{kReserveFirst, KeyFile(kFirstLine)}, {kReserveNoneClear, std::nullopt}},
             .keys = {.first = "K1"},
             .sent = {Ordinary({{kNoneClear, "TRUE"}, {"sys.sim.switch.first", "K1"}})}},
            {.behaviour = "the convert marker blocks the conversion for good",
             .files = {{kReserveConvert, kConvertLine}},
             .props = kMappedCarrier,
             .after = {{kReserveFirst, std::nullopt}},
             .sent = {Ordinary({{"sys.sim.switch.convert", "true"}})}},
            {.behaviour = "a data copy of the first key blocks the conversion",
             .files = {{kDataFirst, first + "KD\n"}},
             .props = kMappedCarrier,
             .after = {{kReserveFirst, std::nullopt}, {kReserveConvert, std::nullopt}},
             .keys = {.first = "KD"},
             .sent = {Ordinary({{"sys.sim.switch.first", "KD"}})}},
            {.behaviour = "bare keys are rewritten as name=value lines",
             .files = {{kReserveFirst, "K7"}, {kReserveCurrent, "C7"}, {kReserveRegion, "R7"}},
             .after = {{kReserveFirst, KeyFile(first + "K7\n")},
                       {kReserveCurrent, KeyFile(current + "C7\n")},
                       {kReserveRegion, KeyFile(region + "R7\n")}},
             .keys = {"K7", "C7", "R7"},
             .sent = {Ordinary({{"sys.sim.switch.first", "K7"},
                                {"sys.sim.switch.current", "C7"},
                                {"sys.region.switch.first", "R7"}})}},
            {.behaviour = "name=value keys are read and left as they are",
             .files = {{kReserveFirst, first + "K7\n"},
                       {kReserveCurrent, current + "C7\n"},
                       {kReserveRegion, region + "R7\n"}},
             .after = {{kReserveFirst, RootFile(first + "K7\n")},
                       {kReserveCurrent, RootFile(current + "C7\n")},
                       {kReserveRegion, RootFile(region + "R7\n")}},
             .keys = {"K7", "C7", "R7"},
             .sent = {Ordinary({{"sys.sim.switch.first", "K7"},
                                {"sys.sim.switch.current", "C7"},
                                {"sys.region.switch.first", "R7"}})}},
            {.behaviour = "payjoy status 1 without an operator writes the SSV store",
             .props = {{payjoy, "1"}},
             .after = {{kReserveSsv, RootFile("sys.zelva.switch.operator=payjoy\n")}},
             .sent = {Ordinary({{"sys.zelva.switch.operator", "payjoy"}})}},
            {.behaviour = "any other payjoy status writes nothing",
             .props = {{payjoy, "2"}},
             .after = {{kReserveSsv, std::nullopt}}},
            {.behaviour = "nor does status 1 with an operator",
             .props = {{payjoy, "1"}, {"sys.zelva.switch.operator", "x"}},
             .after = {{kReserveSsv, std::nullopt}}},
            {.behaviour = "the removal property names the region key, kept in the data file",
             .props = {{removal, "EU_X"}},
             .after = {{kDataRegion, KeyFile(region + "EU_X\n")}},
             .keys = {.region = "EU_X"},
             .sent = {Ordinary({{"sys.region.switch.first", "EU_X"}})}},
            {.behaviour = "the removal property gives way to a data region file",
             .files = {{kDataRegion, region + "ED\n"}},
             .props = {{removal, "EU_X"}},
             .after = {{kDataRegion, RootFile(region + "ED\n")}},
             .keys = {.region = "ED"},
             .sent = {Ordinary({{"sys.region.switch.first", "ED"}})}},
            {.behaviour = "and to a reserve region file",
             .files = {{kReserveRegion, region + "R1\n"}},
             .props = {{removal, "EU_X"}},
             .after = {{kDataRegion, std::nullopt}},
             .keys = {.region = "R1"},
             .sent = {Ordinary({{"sys.region.switch.first", "R1"}})}},
            {.behaviour = "the removal property false names no region",
             .props = {{removal, "false"}},
             .after = {{kDataRegion, std::nullopt}}},
            {.behaviour = "the flashback company is invalid without configuration or property",
             .props = {{flashback, ""}},
             .sent = {Ordinary({{flashback, "invalid"}})}},
            {.behaviour = "the flashback configuration is loaded",
             .files = {{kFlashbackConfig, flashback + "=cfg\n"}},
             .sent = {Ordinary({{flashback, "cfg"}})}},
    };
    for (const auto& boot : boots) {
        SCOPED_TRACE(boot.behaviour);
        sandbox::DeviceTree tree = KeyDevice();
        if (!boot.without_reserve_dir) tree.Dir(kReserveDir);
        for (const auto& [path, content] : boot.files) tree.File(path, content, 0600);
        sandbox::Outcome o = Boot(tree, boot.props);
        ASSERT_DEVICE_RAN(o);
        for (const auto& [path, state] : boot.after) EXPECT_EQ(FileAt(o, path), state) << path;
        EXPECT_THAT(o.notes, KeysAre(boot.keys));
        EXPECT_EQ(SentBatches(o), boot.sent);
    }
}

// A write that fails on a full reserve leaves neither an empty first file nor a marker, and
// loses none of the call's later batches: the next boot tries again. (A read-only reserve
// fails earlier, at the open, and so can't leave a half-written file.)
TEST(KeyResolutionTest, FailedConversionWriteLeavesNoMarkerAndIsRetriedNextBoot) {
    const PropertyMap seed = With(kSpecialSeed, kMappedCarrier);
    std::string error;
    auto root = sandbox::ScratchRoot::Create(KeyDevice().Dir(kReserveDir), &error);
    ASSERT_TRUE(root) << error;
    sandbox::Outcome failed =
            Boot(*root, seed,
                 {{MountSetup::Kind::kTmpfs, "/mnt/vendor/zelvareserve", 64 << 10, /*fill=*/true}});
    ASSERT_DEVICE_RAN(failed);
    EXPECT_THAT(LogRecords(failed),
                Contains(Error("Unable to write sim_action_first_file Unable to write file "
                               "contents: No space left on device")));
    EXPECT_FALSE(failed.Exists(kReserveFirst) || failed.Exists(kReserveConvert));
    EXPECT_THAT(failed.notes, KeysAre({}));
    EXPECT_EQ(SentBatches(failed).back(), kSpecialBatch);

    sandbox::Outcome next = Boot(*root, seed);
    ASSERT_DEVICE_RAN(next);
    EXPECT_EQ(FileAt(next, kReserveFirst), KeyFile(kFirstLine));
    EXPECT_EQ(FileAt(next, kReserveConvert), KeyFile(kConvertLine));
    EXPECT_THAT(next.notes, KeysAre({.first = "K1"}));
}

}  // namespace
}  // namespace zelva_test
