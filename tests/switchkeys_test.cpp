// Switch-key map files, the old NV and SSV identities, directory creation and
// the domestic region conversion.

#include <sys/stat.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;

TEST(SwitchKeysTest, MapLookupsOldNvFlagFirstKeyAndDirectories) {
    const std::string config = "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config";
    const std::string platform = "/dev/block/platform/bootdevice/by-name/reserve_exp1";
    const std::string empty = "|Couldn't file" + config, failed = "|read nv_flag failed :";
    const std::string qc = "ro.boot.qvcarrier=", ch = "persist.sys.channel.info=CH,";
    const std::string co = "ro.zelva.image.my_company.type=CO", mk = "|make dir: ";
    const std::string map = "custom_map.prop";
    // properties, what runs with two arguments, then what it returned and every message: "to"
    // and "from" look a key up in a map file and back, "nv" reads the old NV flag from its two
    // stores ("-": absent), "1st" and "set" derive the first key from an NV flag and an SSV
    // key (for "set" into a key already there), "mkdir" makes a path (and returns its mode).
    const Table cases = {
            {"", "to", "nvmap.prop", "k1", "late"}, {"", "to", "nvmap.prop", "k2", "early2"},
            {"", "to", "nvmap.prop", "missing", ""}, {"", "to", "nvmap.prop", "", ""},
            {"", "to", "l", "k1", "early|Couldn't load property file '/my_company/etc/l': open() "
                                  "failed: Too many levels of symbolic links|map file load "
                                  "failed:/my_company/etc/l"},  // refused, logged, passed over
            {"", "from", map, "V", "a"}, {"", "from", map, "U", "z"}, {"", "from", map, "none", ""},
            {"", "from", map, "", "junk"}, {"", "nv", "", "abc", "pabc|K3" + empty},
            {"", "nv", "-", "ABCDEFGHIJKLMNOPQRST", "pABCDEFGH|K8" + failed + config},
            {"", "nv", "ABCDEFGHxyz", "abc", "pABCDEFGH|K8"}, {"", "nv", "zz", "-", "pzz|"},
            {"", "nv", "", "-", "p|q" + empty + failed + platform + failed +
                                        "/dev/block/bootdevice/by-name/reserve_exp1"},
            {qc + "QC," + ch + co, "1st", "NV", "SSV", "KC"}, {qc + "QC", "set", "NV", "", "SET"},
            {qc + "zz," + ch + co, "1st", "NV", "SSV", "KN"}, {ch + co, "1st", "", "SSV", "KS"},
            {ch + co, "1st", "", "", "KH"}, {co, "1st", "", "", "KY"}, {"", "1st", "", "", ""},
            {"", "mkdir", "/x/y/z", "", "0" + mk + "/x/" + mk + "/x/y/"},
            {"", "mkdir", "/q/r/s/", "",
             "0 " + std::to_string(0771) + mk + "/q/" + mk + "/q/r/" + mk + "/q/r/s/"},
            {"", "mkdir", "", "", "0"}, {"", "mkdir", "/file/sub/", "", "-1" + mk + "/file/"}};
    sandbox::DeviceTree tree;  // a later directory's map wins; a later one without the key doesn't
    tree.File("/mnt/vendor/my_product/etc/nvmap.prop", "k1=early\nk2=early2\n")
            .File("/my_company/etc/nvmap.prop", "k1=late").File("/file", "x")
            .File("/my_product/etc/nvmap.prop", "QC=KC\nNV=KN\nSSV=KS\nCH=KH\nCO=KY\n")
            .File("/mnt/vendor/my_product/etc/l", "k1=early")
            .Symlink("/my_company/etc/l", "/mnt/vendor/my_product/etc/l")
            .File("/mnt/vendor/my_product/etc/custom_map.prop", "z=U\nb=V\n")
            .File("/my_company/etc/custom_map.prop", "b=V\na=V\nc=W\n")
            .File("/my_product/etc/flags.prop", "abc=K3\nABCDEFGH=K8\n")
            .Dir("/mnt/vendor/zelvareserve/radio/").Dir("/dev/block/platform/bootdevice/by-name");
    ExpectCases(tree, cases, android::base::VERBOSE, [&](sandbox::Context&, size_t i) {
        const std::string &what = cases[i][1], &a = cases[i][2], &b = cases[i][3];
        std::string result = what == "set" ? "SET" : what == "1st" ? "" : "junk", flag = "p", key;
        struct stat st = {};
        if (what == "to") find_nv_ssv_target_key(b, a, &result);
        if (what == "from") find_nv_source_key(&result, a, b);
        if (what == "from") find_nv_source_key(nullptr, a, b);
        if (what == "1st" || what == "set") load_convert_first_key(&result, a, b);
        if (what == "mkdir") {
            umask(0);
            result = std::to_string(createDirectory(a));
            if (stat(a.c_str(), &st) == 0) result += " " + std::to_string(st.st_mode & 0777);
        }
        if (what == "nv") {
            Put(config, a);
            Put(platform, b);
            key = "q";
            load_old_nv_key(&flag, &key);
            result = flag + "|" + key;
        }
        return result;
    });
}

TEST(SwitchKeysTest, DomesticRegionConversion) {
    const std::string data = "/data/system/customize/sim_switch/region_switch_file";
    const std::string reserve = "/mnt/vendor/zelvareserve/system/ssv/region_switch_file";
    const std::string both = "ro.sys.region.switch.first=PROV,ro.zelva.image.my_company.type=TYPE";
    const std::string type = "ro.zelva.image.my_company.type=TYPE", k = "sys.region.switch.first=";
    const std::string start = "|doRegionSwitchForDomestic", skip = ", skip conversion";
    const std::string system = geteuid() == 0 ? "1000:1000" : "";  // a reserve file root wrote
    const std::string prov = "/" + k + "PROV\n" + system, mapped = "/" + k + "MAPPED\n" + system;
    // properties, SKU region, data and reserve files before ("-": absent), then both after
    // ("": absent) and the INFO messages
    const Table cases = {
            {both, "CN", "-", "-", prov + start}, {type, "CN", "-", "-", mapped + start},
            {"ro.zelva.image.my_company.type=X", "CN", "-", "-",
             "/" + start + "|target company type is empty" + skip},
            {"", "CN", "-", "-", "/" + start + "|no province switch value or company type" + skip},
            {both, "CNX", "-", "-", "/"}, {both, "", "-", "-", "/"},
            {both, "CN", "-", k + "OLD", "/" + k + "OLD|region switch reserve file already exists" +
                                                 skip},
            {both, "CN", k + "MAPPED", "-",
             k + "MAPPED/|region switch data file is from custom_map" + skip},
            {both, "CN", k + "ZZ", "-", prov + start},
            {type, "CN", "other=1", "-",
             mapped + "|no region switch property found in file: " + data + start}};
    sandbox::DeviceTree tree;
    tree.File("/my_company/etc/custom_map.prop", "TYPE=MAPPED\n").Dir("/my_region/")
            .Dir("/data/system/customize/sim_switch/").Dir("/mnt/vendor/zelvareserve/system/ssv/");
    ExpectCases(tree, cases, android::base::INFO, [&](sandbox::Context&, size_t i) {
        Put("/my_region/build.prop", "ro.zelva.pipeline.region=" + cases[i][1]);
        Put(data, cases[i][2]);
        Put(reserve, cases[i][3]);
        doRegionSwitchForDomestic();
        std::string data_after, reserve_after;
        android::base::ReadFileToString(data, &data_after);
        struct stat st = {};
        if (android::base::ReadFileToString(reserve, &reserve_after) && cases[i][3] == "-" &&
            !system.empty() && lstat(reserve.c_str(), &st) == 0) {
            reserve_after += std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid);
        }
        return data_after + "/" + reserve_after;
    });
}

}  // namespace
}  // namespace zelva_test
