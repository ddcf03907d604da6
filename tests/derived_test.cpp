// SPDX-License-Identifier: Apache-2.0
// Derived version properties, the channel reset after an emergency shutdown,
// the forced internet connection, the data special files and the market name.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;
const std::string kCust = "/data/system/customize/", kSsv = "/mnt/vendor/zelvareserve/system/ssv/";

TEST(DerivedTest, VersionsChannelResetForcedConnectionAndDataFiles) {
    // The files that the channel reset deletes; the last two only when they can be opened.
    const std::vector<std::string> files = {kCust + "empty_appchannel_prop_file.prop",
            kSsv + "sim_switch_common_prop_file", kCust + "data_common_prop_file.prop",
            kCust + "sim_switch/region_switch_file", kSsv + "region_switch_file"};
    const std::string id = "ro.vendor.zelva.version_suffix=T,ro.build.display.id=";
    const std::string carrier = "ro.zelva.image.my_carrier.version_name=";
    const std::string sent = "[0 ro.zelva.customize.display.version_name=";
    auto name = [&](const std::string& n) { return sent + n + "]|customize dispaly version " + n; };
    const std::string persist = "persist.sys.", shutdown = "persist.sys.911.shutdown=1,";
    const std::string reset = "[2 persist.sys.reboot.time.count=0 " + persist +
            "recopy.preload.opinstalled=true " + persist + "remove.carrier.apk=false " + persist +
            "remove.region-all.apk=false " + persist + "remove.region.apk=false]";
    const std::string force = shutdown + "ro.zelva.internet.whether.force.connect=1";
    const std::string forced = "ro.zelva.internet.force.connect=1";
    // Properties, what runs, then what it returned, the batches and the messages.
    const Table cases = {
            // The experience version: the suffix goes before the first "_", unless that starts
            // the id. The display version name: what follows the first "-", unless that starts
            // the name; the carrier's name, else the region's, unless a partition set one.
            {id + "A_B_C,ro.zelva.image.my_region.version_name=R-B-C", "versions",
             "[0 ro.vendor.zelva.exp.version=AT_B_C]" + name("B-C")},
            {id + "_11", "versions", ""}, {id + "QX100", "versions", ""},
            {"ro.build.display.id=Q_1", "versions", ""},
            {carrier + "-Green", "versions", name("-Green")},
            {carrier + "V1-", "versions", "|customize dispaly version "},
            {carrier + "Red,ro.zelva.image.my_region.version_name=R-B", "versions", name("Red")},
            {"ro.zelva.customize.display.version_name=X," + carrier + "V1-G", "versions", ""},
            // The channel reset, run twice over |files| made with the content given: which files
            // are left after each run, then the batch of the first run (none from the second,
            // once the host has set the recopy marker).
            {shutdown + persist + "channel.info=c," + persist + "channel.country.info=c",
             "reset <socket>", "0001111111[2 persist.sys.channel.country.info= "
             "persist.sys.channel.info= persist.sys.recopy.preload.opinstalled=none]"},
            {shutdown + persist + "remove.carrier.apk=x", "reset a=1", "0000011111" + reset},
            {shutdown + persist + "remove.region-all.apk=x", "reset a=1", "0000011111" + reset},
            {shutdown + persist + "remove.region.apk=EU", "reset a=1", "0000011111" + reset},
            // Only after the exact marker "1", and only while the recopy marker is unset.
            {persist + "911.shutdown=1 ", "reset a=1", "1111111111"},
            {shutdown + persist + "recopy.preload.opinstalled=none", "reset a=1", "1111111111"},
            // The two data files, with the content given ("-": absent), go into one map, sent
            // after each file that exists, even when it fails to load.
            {"", "data a=1 b=2", "[0 a=1][0 a=1 b=2]"}, {"", "data - -", ""},
            {"", "data <socket> <socket>", "[0][0]|reboot empty appchanel property failed:" +
                     files[0] + "|reboot data common property failed:" + files[2]},
            // The forced connection, over the file given ("-": none): the file, then the batch,
            // which a failed write doesn't stop.
            {force, "force -", forced + "\n[0 " + forced + "]"},
            {force + ",persist.sys.911.shutdown=1 ", "force -", ""},
            {force + ",ro.zelva.internet.whether.force.connect=11", "force -", ""},
            {force + ",ro.zelva.internet.force.connect=0", "force -", ""},
            {force, "force <socket>", "[0 " + forced + "]|Unable to write force_connect_" +
                    "internet_prop_file_path open() failed: No such device or address"}};
    const sandbox::DeviceTree tree = sandbox::DeviceTree().Dir(kCust + "sim_switch/").Dir(kSsv);
    ExpectCases(tree, cases, android::base::VERBOSE, [&](sandbox::Context& ctx, size_t i) {
        const std::vector<std::string> what = android::base::Split(cases[i][1], " ");
        std::string result;
        if (what[0] == "versions") loadSpecialProperties(ctx.sink());
        if (what[0] == "data") {
            Put(files[0], what[1]);
            Put(files[2], what[2]);
            loadDataSpecialProperties(ctx.sink());
        }
        if (what[0] == "force") {
            Put(kSsv + "force_connect_internet_prop_file", what[1]);
            forceInternetConnection(ctx.sink());
            android::base::ReadFileToString(kSsv + "force_connect_internet_prop_file", &result);
        }
        for (int run = 0; what[0] == "reset" && run < 2; ++run) {
            for (const std::string& file : files) Put(file, what[1]);
            checkAndRestoreChannelInfo(ctx.sink());
            for (const std::string& file : files) result += access(file.c_str(), F_OK) ? "0" : "1";
        }
        return result;
    });
}

TEST(DerivedTest, MarketNameMatchesStorageClass) {
    const std::string config = "/my_product/cust/EU/etc/devicename.cfg";
    const std::string name = "[0 ro.product.littletail_model= ro.product.littletail_type=t "
                             "ro.vendor.zelva.market.name=Zelva X]";
    // Properties, ROM ("-": no device name file), sectors of the user data device, then the
    // batch and the errors. 536870912 sectors are 256 GiB.
    Table cases = {{"ro.version.softwareconfidential=true", "256", "536870912", ""},
                   {"ro.version.softwareconfidential=TRUE", "256", "536870912", name},
                   {"", "-", "536870912", "|there is no config file: " + config}};
    // Each class with the sizes just outside and at both edges of its range in GiB, the last
    // sector of a GiB counting to it.
    for (const auto& [rom, low, high] : std::vector<std::tuple<int, long long, long long>>{
                 {128, 79, 177}, {256, 207, 305}, {512, 413, 611}, {1024, 925, 1024}}) {
        const long long first = low << 21, end = (high + 1) << 21;  // sectors in the range
        for (const long long sectors : {first - 1, first, end - 1, end}) {
            const bool sent = sectors >= first && sectors < end;
            cases.push_back({"", std::to_string(rom), std::to_string(sectors), sent ? name : ""});
        }
    }
    const sandbox::DeviceTree tree = sandbox::DeviceTree().File(config, "").Dir("/sys/block/sda/")
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU");
    ExpectCases(tree, cases, android::base::ERROR, [&](sandbox::Context& ctx, size_t i) {
        hostplatform::SetProperty("dev.mnt.blk.userdata", "sda");
        Put(config, cases[i][1] == "-" ? "-" : "ROM=" + cases[i][1] + "\nmarket=Zelva X\ntype=t");
        Put("/sys/block/sda/size", cases[i][2]);
        updateMarketName(ctx.sink());
        return "";
    });
}

}  // namespace
}  // namespace zelva_test
