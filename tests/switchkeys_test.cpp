// Switch-key map files, the old NV and SSV identities, directory creation and
// the domestic region conversion.

#include <sys/stat.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;
using android::base::INFO;
using namespace android::init;

TEST(SwitchKeysTest, MapFilesLaterDirectoryWins) {
    sandbox::Outcome outcome = RunInDevice(
            Tree({{"/mnt/vendor/my_product/etc/nvmap.prop", "k1=early\nk2=early2\n"},
                  {"/my_carrier/etc/nvmap.prop", "k9=x"}, {"/my_company/etc/nvmap.prop", "k1=late"},
                  {"/my_product/special/etc/nvmap.prop", "->/my_company/etc/nvmap.prop"},
                  {"/mnt/vendor/my_product/etc/custom_map.prop", "z=U\nb=V\n"},
                  {"/my_company/etc/custom_map.prop", "b=V\na=V\nc=W\n"}}),
            [](sandbox::Context& ctx) {
                InitCustDirList();
                for (const char* key : {"k1", "k2", "missing", ""}) {
                    std::string target = "junk";
                    find_nv_ssv_target_key(key, "nvmap.prop", &target);
                    ctx.Note(std::string(">") + key, target);
                }
                for (const char* value : {"V", "U", "none", ""}) {
                    std::string source = "junk";
                    find_nv_source_key(&source, "custom_map.prop", value);
                    ctx.Note(std::string("<") + value, source);
                }
                find_nv_source_key(nullptr, "custom_map.prop", "V");
            });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props(">k1=late,>k2=early2,>missing=,>=,<V=a,<U=z,<none=,<=junk"));
    // The link is refused by the reader, logged, and the search goes on.
    EXPECT_TRUE(outcome.HasLog(ERROR, "map file load failed:/my_product/special/etc/nvmap.prop"));
}

TEST(SwitchKeysTest, OldNvFlagSources) {
    const std::string config = "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config";
    const std::string platform = "/dev/block/platform/bootdevice/by-name/reserve_exp1";
    const std::string empty = "Couldn't file" + config, failed = "read nv_flag failed :";
    // config file, platform store ("-": absent), flag|key after, messages
    const std::vector<std::array<std::string, 4>> cases = {
            {"", "abc", "pabc|K3", empty},
            {"-", "ABCDEFGHIJKLMNOPQRST", "pABCDEFGH|K8", failed + config},
            {"ABCDEFGHxyz", "abc", "pABCDEFGH|K8", ""},
            {"zz", "-", "pzz|", ""},
            {"", "-", "p|q", empty + "|" + failed + platform + "|" + failed +
                                     "/dev/block/bootdevice/by-name/reserve_exp1"}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/my_product/etc/flags.prop", "abc=K3\nABCDEFGH=K8\n"},
                  {"/mnt/vendor/zelvareserve/radio/", ""},
                  {"/dev/block/platform/bootdevice/by-name/", ""}}),
            std::vector<std::string>(cases.size()), [&](sandbox::Context& ctx, size_t i) {
                unlink(config.c_str());
                unlink(platform.c_str());
                if (cases[i][0] != "-") android::base::WriteStringToFile(cases[i][0], config);
                if (cases[i][1] != "-") android::base::WriteStringToFile(cases[i][1], platform);
                std::string flag = "p", key = "q";
                load_old_nv_key(&flag, &key);
                ctx.Note(std::to_string(i), flag + "|" + key);
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(outcome.notes[std::to_string(i)], cases[i][2]) << i;
        EXPECT_EQ(Logged(outcome, std::to_string(i), android::base::VERBOSE), cases[i][3]) << i;
    }
}

TEST(SwitchKeysTest, FirstKeySourcesInOrder) {
    const std::string carrier = "ro.boot.qvcarrier=", channel = "persist.sys.channel.info=CH,";
    const std::string company = "ro.zelva.image.my_company.type=CO";
    // the carrier, channel and company properties, NV flag, SSV key, the first key
    const std::vector<std::array<std::string, 4>> cases = {
            {carrier + "QC," + channel + company, "NV", "SSV", "KC"},
            {carrier + "zz," + channel + company, "NV", "SSV", "KN"},
            {channel + company, "", "SSV", "KS"}, {channel + company, "", "", "KH"},
            {company, "", "", "KY"}, {"", "", "", ""}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/my_product/etc/nvmap.prop", "QC=KC\nNV=KN\nSSV=KS\nCH=KH\nCO=KY\n"}}), cases,
            [&](sandbox::Context& ctx, size_t i) {
                std::string key, found = "SET";
                load_convert_first_key(&key, cases[i][1], cases[i][2]);
                load_convert_first_key(&found, "NV", "SSV");  // a key already there stays
                ctx.Note(std::to_string(i), found + "|" + key);
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(outcome.notes[std::to_string(i)], "SET|" + cases[i][3]) << i;
    }
}

TEST(SwitchKeysTest, CreateDirectoryMakesSeparatorEndedPrefixes) {
    sandbox::Outcome outcome = RunInDevice(Tree({{"/file", "x"}}), [](sandbox::Context& ctx) {
        umask(0);
        for (const char* path : {"/x/y/z", "/q/r/s/", "", "/file/sub/"}) {
            ctx.Note(path, std::to_string(createDirectory(path)));
        }
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props("/x/y/z=0,/q/r/s/=0,=0,/file/sub/=-1"));
    EXPECT_TRUE(outcome.Exists("/x/y"));
    EXPECT_FALSE(outcome.Exists("/x/y/z"));
    EXPECT_EQ(outcome.tree["/q/r/s"].mode, 0771u);
    EXPECT_EQ(Logged(outcome, "", INFO),
              "make dir: /x/|make dir: /x/y/|make dir: /q/|make dir: /q/r/|make dir: /q/r/s/|"
              "make dir: /file/");
}

TEST(SwitchKeysTest, DomesticRegionConversion) {
    const std::string data = "/data/system/customize/sim_switch/region_switch_file";
    const std::string reserve = "/mnt/vendor/zelvareserve/system/ssv/region_switch_file";
    const std::string k = "sys.region.switch.first=", start = "doRegionSwitchForDomestic";
    const std::string both = "ro.sys.region.switch.first=PROV,ro.zelva.image.my_company.type=TYPE";
    const std::string type = "ro.zelva.image.my_company.type=TYPE";
    // properties, SKU region, data and reserve files before ("-": absent), both after, INFO log
    const std::vector<std::array<std::string, 7>> cases = {
            {both, "CN", "-", "-", "-", k + "PROV\n", start},
            {type, "CN", "-", "-", "-", k + "MAPPED\n", start},
            {"ro.zelva.image.my_company.type=X", "CN", "-", "-", "-", "-",
             start + "|target company type is empty, skip conversion"},
            {"", "CN", "-", "-", "-", "-",
             start + "|no province switch value or company type, skip conversion"},
            {both, "CNX", "-", "-", "-", "-", ""},
            {both, "", "-", "-", "-", "-", ""},
            {both, "CN", "-", k + "OLD\n", "-", k + "OLD\n",
             "region switch reserve file already exists, skip conversion"},
            {both, "CN", k + "MAPPED\n", "-", k + "MAPPED\n", "-",
             "region switch data file is from custom_map, skip conversion"},
            {both, "CN", k + "ZZ\n", "-", "-", k + "PROV\n", start},
            {type, "CN", "other=1\n", "-", "-", k + "MAPPED\n",
             "no region switch property found in file: " + data + "|" + start}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/my_company/etc/custom_map.prop", "TYPE=MAPPED\n"}, {"/my_region/", ""},
                  {"/data/system/customize/sim_switch/", ""},
                  {"/mnt/vendor/zelvareserve/system/ssv/", ""}}),
            cases, [&](sandbox::Context& ctx, size_t i) {
                android::base::WriteStringToFile("ro.zelva.pipeline.region=" + cases[i][1],
                                                 "/my_region/build.prop");
                unlink(data.c_str());
                unlink(reserve.c_str());
                if (cases[i][2] != "-") android::base::WriteStringToFile(cases[i][2], data);
                if (cases[i][3] != "-") android::base::WriteStringToFile(cases[i][3], reserve);
                doRegionSwitchForDomestic();
                struct stat st = {};
                lstat(reserve.c_str(), &st);
                ctx.Note(std::to_string(i), ContentOf(data) + "|" + ContentOf(reserve));
                ctx.Note("owner" + std::to_string(i),
                         std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid));
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        const std::string step = std::to_string(i);
        EXPECT_EQ(outcome.notes[step], cases[i][4] + "|" + cases[i][5]) << step;
        if (geteuid() == 0 && cases[i][3] == "-" && cases[i][5] != "-") {
            EXPECT_EQ(outcome.notes["owner" + step], "1000:1000") << step;
        }
        EXPECT_EQ(Logged(outcome, step, INFO), cases[i][6]) << step;
    }
}

}  // namespace
}  // namespace zelva_test
