// Derived version properties, the channel reset after an emergency shutdown,
// the forced internet connection, the data special files and the market name.

#include <sys/stat.h>

#include <array>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;
const std::string kCust = "/data/system/customize/", kSsv = "/mnt/vendor/zelvareserve/system/ssv/";

TEST(SpecialTest, VersionsChannelResetForcedConnectionAndDataFiles) {
    // The files that the channel reset deletes; the last two only when they can be opened.
    const std::vector<std::string> files = {
            kCust + "empty_appchannel_prop_file.prop", kSsv + "sim_switch_common_prop_file",
            kCust + "data_common_prop_file.prop", kCust + "sim_switch/region_switch_file",
            kSsv + "region_switch_file"};
    const std::string id = "ro.vendor.zelva.version_suffix=T,ro.build.display.id=";
    const std::string c = "ro.zelva.image.my_carrier.version_name=", p = "persist.sys.";
    const std::string on = p + "911.shutdown=1,", rc = p + "recopy.preload.opinstalled=";
    const std::string r = "ro.zelva.image.my_region.version_name=", ch = p + "channel.";
    const std::string e = "[0 ro.vendor.zelva.exp.version=", log = "|customize dispaly version ";
    auto name = [&](const std::string& n) {
        return "[0 ro.zelva.customize.display.version_name=" + n + "]" + log + n;
    };
    const std::string none = rc + "none]", remove = p + "remove.";
    const std::string reset = p + "reboot.time.count=0 " + rc + "true " + remove +
                              "carrier.apk=false " + remove + "region-all.apk=false " + remove +
                              "region.apk=false]";
    const std::string net = on + "ro.zelva.internet.whether.force.connect=1", old = "old, longer\n";
    const std::string line = "ro.zelva.internet.force.connect=1", batch = "[0 " + line + "]";
    auto bad = [](const std::string& path, const std::string& what) {  // a directory
        return "|Couldn't load property file '" + path + "': Unable to read file contents: Is a " +
               "directory|reboot " + what + " property failed:" + path;
    };
    // properties, what runs, then what it returned, the batches and every message. "reset"
    // returns which files are left after each run, made as files ("f") or sockets ("s") first;
    // "data" puts the two data files first ("-": absent, "/": a directory, which fails to load);
    // "force" returns its file, written over |old| or over a directory ("/").
    const Table cases = {
            {id + "A_B_C", "version", e + "AT_B_C]"}, {id + "_11", "version", ""},
            {id + "QX100", "version", ""}, {"ro.build.display.id=Q_1", "version", ""},
            {c + "-Green", "version", name("-Green")}, {c + "A-B-C", "version", name("B-C")},
            {c + "V1-", "version", log}, {r + "R-Blue", "version", name("Blue")},
            {c + "Green," + r + "R-Blue", "version", name("Green")},
            {"ro.zelva.customize.display.version_name=X," + c + "V1-Green", "version", ""},
            {id + "Q_1," + r + "Blue", "version", e + "QT_1]" + name("Blue")},
            {on + ch + "info=c," + ch + "country.info=c", "reset f",
             "00000[2 " + ch + "country.info= " + ch + "info= " + none},
            {on, "reset s", "00011[2 " + none},
            {on + remove + "carrier.apk=x", "reset f", "00000[2 " + reset},
            {on + remove + "region-all.apk=x", "reset f", "00000[2 " + reset},
            {on + remove + "region.apk=EU," + ch + "info=c", "reset f f",  // once: marker set
             "0000011111[2 " + ch + "info= " + reset},
            {p + "911.shutdown=11", "reset f", "11111"}, {"", "reset f", "11111"},
            {p + "911.shutdown=1 ", "reset f", "11111"}, {on + rc + "none", "reset f", "11111"},
            {"", "data a=1 b=2", "[0 a=1][0 a=1 b=2]"}, {"", "data - b=2", "[0 b=2]"},
            {"", "data a=1 -", "[0 a=1]"},
            {"", "data / b=2", "[0][0 b=2]" + bad(files[0], "empty appchanel")},
            {"", "data a=1 /", "[0 a=1][0 a=1]" + bad(files[2], "data common")},
            {net, "force", line + "\n" + batch}, {net + "," + p + "911.shutdown=1 ", "force", old},
            {net + ",ro.zelva.internet.whether.force.connect=11", "force", old},
            {net + ",ro.zelva.internet.force.connect=0", "force", old},
            {net, "force /", batch + "|Unable to write force_connect_internet_prop_file_path " +
                                     "open() failed: Is a directory"}};
    const sandbox::DeviceTree tree = sandbox::DeviceTree().Dir(kCust + "sim_switch/").Dir(kSsv);
    ExpectCases(tree, cases, android::base::VERBOSE, [&](sandbox::Context& ctx, size_t i) {
        const std::vector<std::string> what = android::base::Split(cases[i][1], " ");
        const std::string force = kSsv + "force_connect_internet_prop_file";
        std::string result;
        if (what[0] == "version") loadSpecialProperties(ctx.sink());
        if (what[0] == "data") {
            Put(files[0], what[1]);
            Put(files[2], what[2]);
            loadDataSpecialProperties(ctx.sink());
        }
        if (what[0] == "force") {
            Put(force, what.size() > 1 ? "/" : old);
            forceInternetConnection(ctx.sink());
            android::base::ReadFileToString(force, &result);
        }
        for (size_t run = 1; what[0] == "reset" && run < what.size(); ++run) {
            for (const std::string& path : files) {
                Put(path, what[run] == "f" ? "a=1" : "-");
                if (what[run] == "s") mknod(path.c_str(), S_IFSOCK | 0600, 0);
            }
            checkAndRestoreChannelInfo(ctx.sink());
            for (const std::string& f : files) result += access(f.c_str(), F_OK) ? "0" : "1";
        }
        return result;
    });
}

TEST(SpecialTest, MarketNameMatchesStorageClass) {
    const std::string sda = "dev.mnt.blk.userdata=sda", size = std::to_string(256LL << 21);
    const std::string config = "/my_product/cust/EU/etc/devicename.cfg";
    const std::string name = "[0 ro.product.littletail_model= ro.product.littletail_type=t "
                             "ro.vendor.zelva.market.name=Zelva X]";
    // properties, ROM ("-": no device name file), size file, then the batch and errors
    Table cases = {{sda, "256G", size, ""}, {sda, "", size, ""}, {sda, "256", "many", ""},
                   {sda, "300", std::to_string(300LL << 21), ""}, {"", "256", size, ""},
                   {sda + ",ro.version.softwareconfidential=true", "256", size, ""},
                   {sda + ",ro.version.softwareconfidential=TRUE", "256", size, name},
                   {sda, "-", size, "|there is no config file: " + config}};
    for (const auto& [rom, low, high] : std::vector<std::array<long long, 3>>{
                 {128, 79, 177}, {256, 207, 305}, {512, 413, 611}, {1024, 925, 1024}}) {
        // Just outside and at both edges; the last sector of a GiB still counts to it.
        for (const auto& [gib, more, sent] : std::vector<std::tuple<long long, int, bool>>{
                     {low - 1, 2097151, false}, {low, 0, true}, {high, 2097151, true},
                     {high + 1, 0, false}}) {
            const std::string sectors = std::to_string((gib << 21) + more);
            cases.push_back({sda, std::to_string(rom), sectors, sent ? name : ""});
        }
    }
    sandbox::DeviceTree tree;
    tree.File("/my_region/build.prop", "ro.zelva.pipeline.region=EU").Dir("/sys/block/sda/")
            .Dir("/my_product/cust/EU/etc/");
    ExpectCases(tree, cases, android::base::ERROR, [&](sandbox::Context& ctx, size_t i) {
        const std::string rom = cases[i][1];
        Put(config, rom == "-" ? "-" : "ROM=" + rom + "\nmarket=Zelva X\ntype=t");
        Put("/sys/block/sda/size", cases[i][2]);
        updateMarketName(ctx.sink());
        return "";
    });
}

}  // namespace
}  // namespace zelva_test
