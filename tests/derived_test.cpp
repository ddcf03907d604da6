// SPDX-License-Identifier: Apache-2.0
// Derived version properties, the channel reset after an emergency shutdown, the forced
// internet connection, the data special files and the market name.

#include <gmock/gmock.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;
using android::base::ERROR;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCust = "/data/system/customize/";
const std::string kSsv = "/mnt/vendor/zelvareserve/system/ssv/";
const std::string kShutdown = "persist.sys.911.shutdown";
const std::string kRecopy = "persist.sys.recopy.preload.opinstalled";

const std::string kSuffix = "ro.vendor.zelva.version_suffix";
const std::string kDisplayId = "ro.build.display.id";

TEST(SpecialPropertiesTest, ExperienceVersionSplicesSuffixBeforeFirstUnderscoreOfDisplayId) {
    struct Row {
        std::string name;
        PropertyMap properties;
        std::optional<std::string> version;
    };
    const std::vector<Row> rows = {
            {"spliced", {{kSuffix, "T"}, {kDisplayId, "A_B_C"}}, "AT_B_C"},
            {"id starts with '_'", {{kSuffix, "T"}, {kDisplayId, "_11"}}, std::nullopt},
            {"id without '_'", {{kSuffix, "T"}, {kDisplayId, "QX100"}}, std::nullopt},
            {"no suffix", {{kDisplayId, "Q_1"}}, std::nullopt}};
    sandbox::Outcome outcome = RunRows<Row>(sandbox::DeviceTree(), rows, [](auto& ctx, const Row&) {
        loadSpecialProperties(ctx.sink());
    });
    ASSERT_DEVICE_RAN(outcome);
    for (const Row& row : rows) {
        std::vector<SentBatch> sent;
        if (row.version) sent.push_back(Ordinary({{"ro.vendor.zelva.exp.version", *row.version}}));
        EXPECT_EQ(SentBatches(outcome, row.name), sent) << row.name;
    }
}

TEST(SpecialPropertiesTest, DisplayVersionNameFollowsFirstDashOfCarrierElseRegionName) {
    const std::string carrier = "ro.zelva.image.my_carrier.version_name";
    const std::string region = "ro.zelva.image.my_region.version_name";
    const std::string display = "ro.zelva.customize.display.version_name";
    struct Row {
        std::string name;
        PropertyMap properties;
        std::optional<std::string> display_name;  // logged, and sent unless empty
    };
    const std::vector<Row> rows = {
            {"region's", {{region, "R-B-C"}}, "B-C"},
            {"carrier's first", {{carrier, "Red"}, {region, "R-B"}}, "Red"},
            {"leading dash kept", {{carrier, "-Green"}}, "-Green"},
            {"nothing after dash", {{carrier, "V1-"}}, ""},
            {"set by a partition", {{display, "X"}, {carrier, "V1-G"}}, std::nullopt}};
    sandbox::Outcome outcome = RunRows<Row>(sandbox::DeviceTree(), rows, [](auto& ctx, const Row&) {
        loadSpecialProperties(ctx.sink());
    });
    ASSERT_DEVICE_RAN(outcome);
    for (const Row& row : rows) {
        std::vector<SentBatch> sent;
        std::vector<LogRecord> logs;
        if (row.display_name)
            logs.push_back(Info("customize dispaly version " + *row.display_name));
        if (row.display_name.value_or("") != "")
            sent.push_back(Ordinary({{display, *row.display_name}}));
        EXPECT_EQ(SentBatches(outcome, row.name), sent) << row.name;
        EXPECT_EQ(LogRecords(outcome, {.step = row.name}), logs) << row.name;
    }
}

// The files the channel reset deletes; the last two only when they can be opened.
const std::vector<std::string> kResetFiles = {
        kCust + "empty_appchannel_prop_file.prop", kSsv + "sim_switch_common_prop_file",
        kCust + "data_common_prop_file.prop", kCust + "sim_switch/region_switch_file",
        kSsv + "region_switch_file"};

// Runs the channel reset with |properties| over the reset files, unopenable ones when
// |unopenable|.
sandbox::Outcome RunChannelReset(const PropertyMap& properties, bool unopenable) {
    const sandbox::DeviceTree tree = sandbox::DeviceTree().Dir(kCust + "sim_switch").Dir(kSsv);
    return RunInDevice(tree, {.properties = properties}, [&](sandbox::Context& ctx) {
        for (const std::string& file : kResetFiles) {
            if (unopenable) {
                MakeUnopenable(file);
            } else {
                android::base::WriteStringToFile("a=1", file);
            }
        }
        checkAndRestoreChannelInfo(ctx.sink());
    });
}

std::vector<bool> ResetFilesLeft(const sandbox::Outcome& outcome) {
    std::vector<bool> left;
    for (const std::string& file : kResetFiles) left.push_back(outcome.Exists(file));
    return left;
}

TEST(ChannelResetTest, EmergencyShutdownClearsChannelAndMarksNoRecopy) {
    sandbox::Outcome outcome = RunChannelReset({{kShutdown, "1"},
                                                {"persist.sys.channel.info", "c"},
                                                {"persist.sys.channel.country.info", "c"}},
                                               /*unopenable=*/true);
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), ElementsAre(Restore({{"persist.sys.channel.country.info", ""},
                                                           {"persist.sys.channel.info", ""},
                                                           {kRecopy, "none"}})));
    EXPECT_EQ(ResetFilesLeft(outcome), (std::vector<bool>{false, false, false, true, true}));
}

TEST(ChannelResetTest, AnyApkRemovalFlagResetsEveryFlagAndAsksForRecopy) {
    const SentBatch reset = Restore({{"persist.sys.reboot.time.count", "0"},
                                     {kRecopy, "true"},
                                     {"persist.sys.remove.carrier.apk", "false"},
                                     {"persist.sys.remove.region-all.apk", "false"},
                                     {"persist.sys.remove.region.apk", "false"}});
    for (const std::string flag :
         {"persist.sys.remove.carrier.apk", "persist.sys.remove.region-all.apk",
          "persist.sys.remove.region.apk"}) {
        sandbox::Outcome outcome =
                RunChannelReset({{kShutdown, "1"}, {flag, "x"}}, /*unopenable=*/false);
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_THAT(SentBatches(outcome), ElementsAre(reset)) << flag;
        EXPECT_EQ(ResetFilesLeft(outcome), std::vector<bool>(5, false)) << flag;
    }
}

// Once the host has set the recopy marker of a reset, the next boot's does nothing.
TEST(ChannelResetTest, OnlyExactShutdownMarkerWithRecopyUnsetStartsAReset) {
    for (const PropertyMap& properties :
         std::vector<PropertyMap>{{{kShutdown, "1 "}}, {{kShutdown, "1"}, {kRecopy, "none"}}}) {
        sandbox::Outcome outcome = RunChannelReset(properties, /*unopenable=*/false);
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_THAT(SentBatches(outcome), IsEmpty());
        EXPECT_EQ(ResetFilesLeft(outcome), std::vector<bool>(5, true));
    }
}

TEST(DataSpecialFilesTest, EachFileThatExistsSendsTheMapOfBothSoFarEvenWhenItFailsToLoad) {
    const std::string channel = kResetFiles[0], common = kResetFiles[2];
    sandbox::Outcome outcome =
            RunInDevice(sandbox::DeviceTree().Dir(kCust), [&](sandbox::Context& ctx) {
                ctx.SetStep("none");
                loadDataSpecialProperties(ctx.sink());
                android::base::WriteStringToFile("a=1", channel);
                android::base::WriteStringToFile("b=2", common);
                ctx.SetStep("both");
                loadDataSpecialProperties(ctx.sink());
                MakeUnopenable(channel);
                MakeUnopenable(common);
                ctx.SetStep("unopenable");
                loadDataSpecialProperties(ctx.sink());
            });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome, "none"), IsEmpty());
    EXPECT_THAT(SentBatches(outcome, "both"),
                ElementsAre(Ordinary({{"a", "1"}}), Ordinary({{"a", "1"}, {"b", "2"}})));
    EXPECT_THAT(SentBatches(outcome, "unopenable"), ElementsAre(Ordinary({}), Ordinary({})));
    EXPECT_THAT(LogRecords(outcome, {.step = "unopenable", .min_severity = ERROR}),
                ElementsAre(Error("reboot empty appchanel property failed:" + channel),
                            Error("reboot data common property failed:" + common)));
}

const std::string kForceFile = kSsv + "force_connect_internet_prop_file";
const std::string kForce = "ro.zelva.internet.force.connect";
const std::string kWhetherForce = "ro.zelva.internet.whether.force.connect";

// Runs the forced connection on |tree| after an emergency shutdown that asks for it.
sandbox::Outcome RunForcedConnection(const sandbox::DeviceTree& tree) {
    return RunInDevice(tree, {.properties = {{kShutdown, "1"}, {kWhetherForce, "1"}}},
                       [](sandbox::Context& ctx) { forceInternetConnection(ctx.sink()); });
}

TEST(ForcedConnectionTest, AfterEmergencyShutdownForcesConnectionAndRecordsIt) {
    sandbox::Outcome outcome = RunForcedConnection(sandbox::DeviceTree().Dir(kSsv));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), ElementsAre(Ordinary({{kForce, "1"}})));
    EXPECT_EQ(FileAt(outcome, kForceFile), (FileState{.content = kForce + "=1\n", .mode = 0600}));
}

TEST(ForcedConnectionTest, FailedRecordStillForcesConnection) {
    sandbox::Outcome outcome = RunForcedConnection(sandbox::DeviceTree().Socket(kForceFile));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), ElementsAre(Ordinary({{kForce, "1"}})));
    EXPECT_THAT(LogRecords(outcome, {.min_severity = ERROR}),
                ElementsAre(Error("Unable to write force_connect_internet_prop_file_path open() "
                                  "failed: No such device or address")));
}

TEST(ForcedConnectionTest, NeedsExactMarkersAndNoForcedValueYet) {
    struct Row {
        std::string name;
        PropertyMap properties;
    };
    std::vector<Row> rows;
    for (const auto& [name, value] :
         PropertyMap{{kShutdown, "1 "}, {kWhetherForce, "11"}, {kForce, "0"}}) {
        PropertyMap properties = {{kShutdown, "1"}, {kWhetherForce, "1"}};
        properties[name] = value;
        rows.push_back({.name = name + "=" + value, .properties = properties});
    }
    sandbox::Outcome outcome =
            RunRows<Row>(sandbox::DeviceTree().Dir(kSsv), rows,
                         [](auto& ctx, const Row&) { forceInternetConnection(ctx.sink()); });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), IsEmpty());
    EXPECT_FALSE(outcome.Exists(kForceFile));
}

const std::string kDeviceName = "/my_product/cust/EU/etc/devicename.cfg";
const SentBatch kMarketName = Ordinary({{"ro.product.littletail_model", ""},
                                        {"ro.product.littletail_type", "t"},
                                        {"ro.vendor.zelva.market.name", "Zelva X"}});

// A device of the EU region whose user data device has |sectors| and whose device name file
// holds |rom| (no such file when nullopt).
sandbox::DeviceTree DeviceWithStorage(long long sectors, std::optional<std::string> rom) {
    sandbox::DeviceTree tree = sandbox::DeviceTree()
                                       .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU")
                                       .File("/sys/block/sda/size", std::to_string(sectors));
    if (rom) tree.File(kDeviceName, "ROM=" + *rom + "\nmarket=Zelva X\ntype=t");
    return tree;
}

sandbox::Outcome RunMarketName(const sandbox::DeviceTree& tree,
                               const PropertyMap& properties = {}) {
    PropertyMap with_userdata = properties;
    with_userdata["dev.mnt.blk.userdata"] = "sda";
    return RunInDevice(tree, {.properties = with_userdata},
                       [](sandbox::Context& ctx) { updateMarketName(ctx.sink()); });
}

constexpr long long k256GiB = 256LL << 21;  // in 512-byte sectors

TEST(MarketNameTest, ConfidentialBuildPublishesNoMarketName) {
    for (const auto& [confidential, published] :
         std::vector<std::pair<std::string, bool>>{{"true", false}, {"TRUE", true}}) {
        sandbox::Outcome outcome =
                RunMarketName(DeviceWithStorage(k256GiB, "256"),
                              {{"ro.version.softwareconfidential", confidential}});
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_EQ(SentBatches(outcome),
                  published ? std::vector{kMarketName} : std::vector<SentBatch>{})
                << confidential;
    }
}

TEST(MarketNameTest, MissingDeviceNameFileIsAnError) {
    sandbox::Outcome outcome = RunMarketName(DeviceWithStorage(k256GiB, std::nullopt));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(SentBatches(outcome), IsEmpty());
    EXPECT_THAT(LogRecords(outcome, {.min_severity = ERROR}),
                ElementsAre(Error("there is no config file: " + kDeviceName)));
}

// One edge of each class is crossed: a GiB inside the range, and the GiB next to it outside.
TEST(MarketNameTest, PublishedOnlyWhenStorageFallsInTheRangeOfTheRomClass) {
    struct Edge {
        int rom;
        long long inside_gib;   // the last (or first) GiB of the range
        long long outside_gib;  // the GiB next to it
    };
    for (const Edge& e : {Edge{.rom = 128, .inside_gib = 177, .outside_gib = 178},
                          Edge{.rom = 256, .inside_gib = 207, .outside_gib = 206},
                          Edge{.rom = 512, .inside_gib = 413, .outside_gib = 412},
                          Edge{.rom = 1024, .inside_gib = 1024, .outside_gib = 1025}}) {
        // The last sector of a GiB still counts to it.
        for (const auto& [sectors, published] : std::vector<std::pair<long long, bool>>{
                     {((e.inside_gib + 1) << 21) - 1, true}, {e.outside_gib << 21, false}}) {
            sandbox::Outcome outcome =
                    RunMarketName(DeviceWithStorage(sectors, std::to_string(e.rom)));
            ASSERT_DEVICE_RAN(outcome);
            EXPECT_EQ(SentBatches(outcome),
                      published ? std::vector{kMarketName} : std::vector<SentBatch>{})
                    << "ROM " << e.rom << " with " << sectors << " sectors";
        }
    }
}

}  // namespace
}  // namespace zelva_test
