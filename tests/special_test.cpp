// Derived version properties, the channel reset after an emergency shutdown,
// the forced internet connection, the data special files and the market name.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;
using android::init::checkAndRestoreChannelInfo;
using android::init::forceInternetConnection;

TEST(SpecialTest, ExperienceAndDisplayVersions) {
    const std::string id = "ro.vendor.zelva.version_suffix=T,ro.build.display.id=";
    const std::string c = "ro.zelva.image.my_carrier.version_name=";
    const std::string r = "ro.zelva.image.my_region.version_name=";
    const std::string e = "0:ro.vendor.zelva.exp.version=";
    const std::string n = "0:ro.zelva.customize.display.version_name=";
    // properties, batches, the name logged ("-": no log)
    const std::vector<std::array<std::string, 3>> cases = {
            {id + "QX100_11", e + "QX100T_11,;", "-"}, {id + "A_B_C", e + "AT_B_C,;", "-"},
            {id + "_11", "", "-"}, {id + "QX100", "", "-"}, {"ro.build.display.id=Q_1", "", "-"},
            {c + "V1-Green", n + "Green,;", "Green"}, {c + "-Green", n + "-Green,;", "-Green"},
            {c + "A-B-C", n + "B-C,;", "B-C"}, {c + "V1-", "", ""},
            {r + "R-Blue", n + "Blue,;", "Blue"},
            {c + "Green," + r + "R-Blue", n + "Green,;", "Green"},
            {"ro.zelva.customize.display.version_name=X," + c + "V1-Green", "", "-"},
            {id + "Q_1," + r + "Blue", e + "QT_1,;" + n + "Blue,;", "Blue"}};
    sandbox::Outcome outcome = RunCases(sandbox::DeviceTree(), cases, [](auto& ctx, size_t) {
        android::init::loadSpecialProperties(ctx.sink());
    });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        const std::string step = std::to_string(i);
        const std::string logged = "customize dispaly version " + cases[i][2];
        EXPECT_EQ(Sent(outcome, step), cases[i][1]) << cases[i][0];
        EXPECT_EQ(Logged(outcome, step, android::base::INFO), cases[i][2] == "-" ? "" : logged);
    }
}

// The files that the channel reset deletes; the last two only when they can be opened.
const std::vector<std::string> kChannelFiles = {
        "/data/system/customize/empty_appchannel_prop_file.prop",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_common_prop_file",
        "/data/system/customize/data_common_prop_file.prop",
        "/data/system/customize/sim_switch/region_switch_file",
        "/mnt/vendor/zelvareserve/system/ssv/region_switch_file"};

std::string Left(const std::function<bool(const std::string&)>& exists) {
    std::string left;
    for (const std::string& path : kChannelFiles) left += exists(path) ? "1" : "0";
    return left;
}

TEST(SpecialTest, ChannelResetOnlyAfterEmergencyShutdown) {
    const std::string on = "persist.sys.911.shutdown=1,", ch = "persist.sys.channel.";
    const std::string reset = "persist.sys.reboot.time.count=0,persist.sys.recopy.preload."
                              "opinstalled=true,persist.sys.remove.carrier.apk=false,persist.sys."
                              "remove.region-all.apk=false,persist.sys.remove.region.apk=false,;";
    const std::string none = "persist.sys.recopy.preload.opinstalled=none,;";
    const std::vector<std::pair<std::string, std::string>> cases = {  // properties, batches
            {on + ch + "info=c," + ch + "country.info=c",
             "2:" + ch + "country.info=," + ch + "info=," + none},
            {on + "persist.sys.remove.carrier.apk=x", "2:" + reset},
            {on + "persist.sys.remove.region-all.apk=x", "2:" + reset},
            {on + "persist.sys.remove.region.apk=EU," + ch + "info=c",
             "2:" + ch + "info=," + reset},
            {"persist.sys.911.shutdown=11", ""}, {"persist.sys.911.shutdown=1 ", ""}, {"", ""},
            {on + "persist.sys.recopy.preload.opinstalled=none", ""}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/data/system/customize/sim_switch/", ""},
                  {"/mnt/vendor/zelvareserve/system/ssv/", ""}}),
            cases, [](sandbox::Context& ctx, size_t i) {
                for (const std::string& path : kChannelFiles) {
                    android::base::WriteStringToFile("a=1", path);
                }
                checkAndRestoreChannelInfo(ctx.sink());
                ctx.Note(std::to_string(i), Left([](auto& p) { return !access(p.c_str(), F_OK); }));
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Sent(outcome, std::to_string(i)), cases[i].second) << cases[i].first;
        EXPECT_EQ(outcome.notes[std::to_string(i)], cases[i].second.empty() ? "11111" : "00000");
    }

    // Sockets exist, but opening one fails even for root (O_RDONLY on a socket: ENXIO).
    sandbox::DeviceTree sockets;
    for (const std::string& path : kChannelFiles) sockets.Socket(path);
    auto restore = [](sandbox::Context& ctx) { checkAndRestoreChannelInfo(ctx.sink()); };
    outcome = RunInDevice(sockets, restore, Opts(on));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(Left([&](auto& p) { return outcome.Exists(p); }), "00011");
    EXPECT_EQ(Logged(outcome, "", ERROR), "");
}

TEST(SpecialTest, ChannelResetHappensOnceAcrossBoots) {
    auto root = Root(Tree({{kChannelFiles[2], "a=1"}}));
    ASSERT_TRUE(root);
    sandbox::Options options = Opts("persist.sys.911.shutdown=1");
    auto boot = [](sandbox::Context& ctx) { Obj()->loadPersistOverrideProperties(ctx.sink()); };
    sandbox::Outcome first = RunInDevice(*root, boot, options);
    ASSERT_DEVICE_RAN(first);
    EXPECT_EQ(BatchesOfKind(first, 2),
              std::vector<PropertyMap>{Props("persist.sys.recopy.preload.opinstalled=none")});
    EXPECT_FALSE(first.Exists(kChannelFiles[2]));
    ASSERT_TRUE(android::base::WriteStringToFile("a=1", root->HostPath(kChannelFiles[2])));
    options.properties = NextBoot(options.properties, first.properties);
    sandbox::Outcome second = RunInDevice(*root, boot, options);
    ASSERT_DEVICE_RAN(second);
    EXPECT_TRUE(BatchesOfKind(second, 2).empty());
    EXPECT_TRUE(second.Exists(kChannelFiles[2]));
}

TEST(SpecialTest, ForcedConnectionWrittenAndSent) {
    const std::string file = "/mnt/vendor/zelvareserve/system/ssv/force_connect_internet_prop_file";
    const std::string on = "persist.sys.911.shutdown=1,ro.zelva.internet.whether.force.connect=1";
    const std::string line = "ro.zelva.internet.force.connect=1";
    const std::vector<std::string> props = {on, on + ",persist.sys.911.shutdown=0",
                                            on + ",persist.sys.911.shutdown=1 ",
                                            on + ",ro.zelva.internet.whether.force.connect=11",
                                            on + ",ro.zelva.internet.force.connect=0"};
    sandbox::Outcome outcome = RunCases(Tree({{file, "older, longer content\n"}}), props,
                                        [&](sandbox::Context& ctx, size_t i) {
                                            forceInternetConnection(ctx.sink());
                                            ctx.Note(std::to_string(i), ContentOf(file));
                                            unlink(file.c_str());
                                        });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < props.size(); ++i) {
        EXPECT_EQ(Sent(outcome, std::to_string(i)), i ? "" : "0:" + line + ",;") << props[i];
        EXPECT_EQ(outcome.notes[std::to_string(i)], i ? "-" : line + "\n") << props[i];
    }
    // A read-only reserve: the write fails and the property is still sent.
    outcome = RunInDevice(
            Tree({{"/mnt/vendor/zelvareserve/system/ssv/", ""}}),
            [](sandbox::Context& ctx) { forceInternetConnection(ctx.sink()); },
            Opts(on, {{sandbox::MountSetup::Kind::kReadOnly, "/mnt/vendor/zelvareserve"}}));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(Sent(outcome, ""), "0:" + line + ",;");
    EXPECT_TRUE(android::base::StartsWith(Logged(outcome, "", ERROR),
                                          "Unable to write force_connect_internet_prop_file_path "
                                          "open() failed"));
}

TEST(SpecialTest, DataSpecialFilesInTwoBatches) {
    // appchannel file ("-": absent, "->": a link the reader refuses), data common file, batches
    const std::vector<std::array<std::string, 3>> cases = {
            {"a=1", "b=2", "0:a=1,;0:a=1,b=2,;"}, {"-", "b=2", "0:b=2,;"}, {"a=1", "-", "0:a=1,;"},
            {"->", "b=2", "0:;0:b=2,;"}, {"-", "-", ""}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/target", "t=1"}, {"/data/system/customize/", ""}}),
            std::vector<std::string>(cases.size()), [&](sandbox::Context& ctx, size_t i) {
                for (size_t f : {0, 2}) {
                    const std::string& content = cases[i][f / 2];
                    if (content == "->") symlink("/target", kChannelFiles[f].c_str());
                    if (content[0] != '-') {
                        android::base::WriteStringToFile(content, kChannelFiles[f]);
                    }
                }
                android::init::loadDataSpecialProperties(ctx.sink());
                for (size_t f : {0, 2}) unlink(kChannelFiles[f].c_str());
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Sent(outcome, std::to_string(i)), cases[i][2]) << i;
    }
    EXPECT_EQ(Logged(outcome, "3", ERROR),
              "reboot empty appchanel property failed:" + kChannelFiles[0]);
}

TEST(SpecialTest, MarketNameMatchesStorageClass) {
    const std::string sda = "dev.mnt.blk.userdata=sda", size = std::to_string(256LL << 21);
    // properties, ROM ("-": no device name file), size file, whether it is sent
    std::vector<std::array<std::string, 4>> cases = {
            {sda, "256G", size, "n"}, {sda, "", size, "n"}, {sda, "256", "many", "n"},
            {sda, "300", std::to_string(300LL << 21), "n"},
            {sda + ",ro.version.softwareconfidential=true", "256", size, "n"},
            {sda + ",ro.version.softwareconfidential=TRUE", "256", size, "y"},
            {"", "256", size, "n"}, {sda, "-", size, "n"}};
    for (const auto& [rom, low, high] : std::vector<std::array<long long, 3>>{
                 {128, 79, 177}, {256, 207, 305}, {512, 413, 611}, {1024, 925, 1024}}) {
        // Just outside and at both edges; the last sector of a GiB still counts to it.
        using Probe = std::tuple<long long, int, const char*>;  // GiB, extra sectors, sent
        for (const auto& [gib, sectors, sent] : std::vector<Probe>{
                     {low - 1, 2097151, "n"}, {low, 0, "y"}, {high, 2097151, "y"},
                     {high + 1, 0, "n"}}) {
            const std::string sectors_text = std::to_string((gib << 21) + sectors);
            cases.push_back({sda, std::to_string(rom), sectors_text, sent});
        }
    }
    const std::string config = "/my_product/cust/EU/etc/devicename.cfg";
    sandbox::Outcome outcome = RunCases(
            Tree({{"/my_region/build.prop", "ro.zelva.pipeline.region=EU"},
                  {"/my_product/cust/EU/etc/", ""}, {"/sys/block/sda/", ""}}),
            cases, [&](sandbox::Context& ctx, size_t i) {
                unlink(config.c_str());
                const std::string cfg = "ROM=" + cases[i][1] + "\nmarket=Zelva X\ntype=t";
                if (cases[i][1] != "-") android::base::WriteStringToFile(cfg, config);
                android::base::WriteStringToFile(cases[i][2], "/sys/block/sda/size");
                android::init::updateMarketName(ctx.sink());
            });
    ASSERT_DEVICE_RAN(outcome);
    const std::string name = "0:ro.product.littletail_model=,ro.product.littletail_type=t,"
                             "ro.vendor.zelva.market.name=Zelva X,;";
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Sent(outcome, std::to_string(i)), cases[i][3] == "y" ? name : "")
                << cases[i][0] << ", ROM " << cases[i][1] << ", sectors " << cases[i][2];
    }
    EXPECT_EQ(Logged(outcome, "7", ERROR), "there is no config file: " + config);
}

}  // namespace
}  // namespace zelva_test
