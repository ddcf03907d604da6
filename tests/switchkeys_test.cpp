// SPDX-License-Identifier: Apache-2.0
// Switch-key map files, the old NV and SSV identities, directory creation and
// the domestic region conversion.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using namespace android::init;

TEST(SwitchKeysTest, MapLookupsOldNvFlagFirstKeyAndDirectories) {
    const std::string config = "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config";
    const std::string platform = "/dev/block/platform/bootdevice/by-name/reserve_exp1";
    const std::string ssv = "/mnt/vendor/zelvareserve/system/ssv/sim_action_file";
    const std::string empty = "|Couldn't file" + config, failed = "|read nv_flag failed :";
    const std::string refused = "|map file load failed:/my_product/etc/custom_map.prop";
    const std::string others = "persist.sys.channel.info=CH,ro.zelva.image.my_company.type=CO";
    const std::string qc = "ro.boot.qvcarrier=QC,";
    // Properties, what runs with which arguments, then what it returned (starting from "x")
    // and the messages.
    const Table cases = {
            // A key looked up in nvmap.prop: the last directory with the file and the key wins.
            {"", "to", "k1", "", "late"}, {"", "to", "k2", "", "early"}, {"", "to", "k3", "", ""},
            // A value looked back up in custom_map.prop: the first name with it in the last file
            // that has it, a file that is a link is refused and passed over; "" changes nothing.
            {"", "from", "V", "", "a"}, {"", "from", "U", "", "z" + refused},
            {"", "from", "none", "", refused}, {"", "from", "", "", "x"},
            // The old NV flag, from the first of its stores ("-": absent) with content: cut to
            // 8 characters and appended, then the key that flags.prop gives it.
            {"", "nv", "", "abc", "xabc|K3" + empty}, {"", "nv", "ABCDEFGHI", "a", "xABCDEFGH|K8"},
            {"", "nv", "", "-", "x|x" + empty + failed + platform + failed +
                                        "/dev/block/bootdevice/by-name/reserve_exp1"},
            // The old SSV key as the reserve file holds it; unreadable or absent: kept.
            {"", "ssv", "OLD\n", "", "OLD\n"}, {"", "ssv", "-", "", "x"},
            {"", "ssv", "<socket>", "", "x|read old ssv failed :" + ssv},
            // The first key from an NV flag and an SSV key: what nvmap.prop gives the first of
            // the carrier, the flag, the SSV key, the channel and the company type that it
            // names; never over a key already there ("set").
            {qc + others, "first", "NV", "SSV", "KC"}, {qc, "set", "NV", "", "x"},
            {"ro.boot.qvcarrier=zz," + others, "first", "NV", "SSV", "KN"},
            {others, "first", "", "SSV", "KS"}, {others, "first", "", "", "KH"},
            {"ro.zelva.image.my_company.type=CO", "first", "", "", "KY"},
            // Directories: each prefix that ends in a separator, until one fails; the result,
            // and the mode of the path when it was made.
            {"", "mkdir", "/x/y/z", "", "0|make dir: /x/|make dir: /x/y/"},
            {"", "mkdir", "/q/", "", "0 " + std::to_string(0771) + "|make dir: /q/"},
            {"", "mkdir", "/file/sub/", "", "-1|make dir: /file/"}};
    sandbox::DeviceTree tree;
    tree.File("/mnt/vendor/my_product/etc/nvmap.prop", "k1=early\nk2=early\n")
            .File("/my_company/etc/nvmap.prop", "k1=late\nQC=KC\nNV=KN\nSSV=KS\nCH=KH\nCO=KY\n")
            .File("/mnt/vendor/my_product/etc/custom_map.prop", "z=U\nb=V\n")
            .File("/my_company/etc/custom_map.prop", "b=V\na=V\nc=W\n")
            .Symlink("/my_product/etc/custom_map.prop", "/my_company/etc/custom_map.prop")
            .File("/my_product/etc/flags.prop", "abc=K3\nABCDEFGH=K8\n").File("/file", "x")
            .Dir("/mnt/vendor/zelvareserve/radio/").Dir("/mnt/vendor/zelvareserve/system/ssv")
            .Dir("/dev/block/platform/bootdevice/by-name");
    ExpectCases(tree, cases, android::base::VERBOSE, [&](sandbox::Context&, size_t i) {
        const std::string &what = cases[i][1], &a = cases[i][2], &b = cases[i][3];
        std::string result = what == "first" ? "" : "x", key = "x";
        Obj();  // builds the directory list that the lookups walk
        umask(0);  // a directory made gets the mode asked for
        if (what == "to") find_nv_ssv_target_key(a, "nvmap.prop", &result);
        if (what == "from") find_nv_source_key(&result, "custom_map.prop", a);
        if (what == "first" || what == "set") load_convert_first_key(&result, a, b);
        if (what == "mkdir") result = std::to_string(createDirectory(a));
        if (struct stat s; what == "mkdir" && !stat(a.c_str(), &s))
            result += ' ' + std::to_string(s.st_mode & 0777);
        if (what == "ssv") {
            Put(ssv, a);
            read_old_ssv_key(&result);
        }
        if (what == "nv") {
            Put(config, a);
            Put(platform, b);
            load_old_nv_key(&result, &key);
            result += "|" + key;
        }
        return result;
    });
}

TEST(SwitchKeysTest, DomesticRegionConversion) {
    const std::string data = "/data/system/customize/sim_switch/region_switch_file";
    const std::string reserve = "/mnt/vendor/zelvareserve/system/ssv/region_switch_file";
    const std::string type = "ro.zelva.image.my_company.type=", k = "sys.region.switch.first=";
    const std::string both = "ro.sys.region.switch.first=PROV," + type + "TYPE";
    const std::string start = "|doRegionSwitchForDomestic", skip = ", skip conversion";
    const std::string system = geteuid() == 0 ? " system" : "";  // owns what root wrote here
    // Properties, SKU region, data and reserve files before ("-": absent), then whether the
    // data file is kept, the reserve file after (and " system" if the system owns it) and the
    // INFO messages.
    const Table cases = {
            // Without a region file: the province, else the company type as the map gives it.
            {type + "X", "CN", "-", "-", "/" + start + "|target company type is empty" + skip},
            {"", "CN", "-", "-", "/" + start + "|no province switch value or company type" + skip},
            // Only for the exact region CN.
            {both, "CNX", "-", "-", "/"},
            // A reserve file is never rewritten; a data file blocks the conversion only when
            // its key is a value of the map, and is deleted otherwise.
            {both, "CN", "-", "old", "/old|region switch reserve file already exists" + skip},
            {"", "CN", k + "MAPPED", "-",
             "kept/|region switch data file is from custom_map" + skip},
            {both, "CN", k + "ZZ", "-", "/" + k + "PROV\n" + system + start},
            {type + "TYPE", "CN", "other=1", "-", "/" + k + "MAPPED\n" + system +
                     "|no region switch property found in file: " + data + start}};
    sandbox::DeviceTree tree;
    tree.File("/my_company/etc/custom_map.prop", "TYPE=MAPPED\n").Dir("/my_region/")
            .Dir("/data/system/customize/sim_switch/").Dir("/mnt/vendor/zelvareserve/system/ssv/");
    ExpectCases(tree, cases, android::base::INFO, [&](sandbox::Context&, size_t i) {
        Obj();  // builds the directory list that the map lookups walk
        Put("/my_region/build.prop", "ro.zelva.pipeline.region=" + cases[i][1]);
        Put(data, cases[i][2]);
        Put(reserve, cases[i][3]);
        doRegionSwitchForDomestic();
        struct stat st = {};
        const bool owned = !stat(reserve.c_str(), &st) && st.st_uid == 1000 && st.st_gid == 1000;
        std::string after;
        android::base::ReadFileToString(reserve, &after);
        return (access(data.c_str(), F_OK) ? "/" : "kept/") + after + (owned ? " system" : "");
    });
}

}  // namespace
}  // namespace zelva_test
