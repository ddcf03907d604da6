// The persist override pipeline (slot 6) and its priority loader.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

const std::string kCloud = "/data/system/customize/cloud-config/data_cloud_prop_file.prop";

// Slot 6 with the switch keys resolved earlier in this boot.
void ResolvedBoot(sandbox::Context& ctx, const std::string& first, const std::string& ssv,
                  const std::string& region = "x") {
    auto* o = Obj();
    o->nvOldFlag = o->simSwitchCurrentKey = o->nvOldKey = "x";
    o->simSwitchFirstKey = first;
    o->ssvOldKey = ssv;
    o->regionSwitchKey = region;
    o->loadPersistOverrideProperties(ctx.sink());
}

TEST(PersistTest, WholeCallSendsEveryBatchInOrder) {
    sandbox::Outcome outcome = RunInDevice(
            Tree({{kCloud, "cloud=1\n"},
                  {"/my_company/build.prop", "persist.company=1\nro.company=1\n"},
                  {"/my_region/build.prop", "ro.zelva.pipeline.region=EU\n"},
                  {"/my_product/cust/EU/etc/devicename.cfg", "ROM=256\nmarket=M\ntype=T\nmodel=X"},
                  {"/sys/block/sda/size", std::to_string(256LL << 21) + "\n"},
                  {"/mnt/vendor/zelvareserve/system/ssv/", ""}}),
            [](sandbox::Context& ctx) {
                const int result = Obj()->loadPersistOverrideProperties(ctx.sink());
                ctx.Note("result", std::to_string(result));
            },
            Opts("persist.sys.911.shutdown=1,ro.zelva.internet.whether.force.connect=1,"
                 "ro.zelva.image.my_company.date=D1,ro.vendor.zelva.version_suffix=T,"
                 "ro.build.display.id=Q_1,dev.mnt.blk.userdata=sda"));
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes["result"], "0");
    EXPECT_EQ(Sent(outcome, ""),
              "2:persist.sys.recopy.preload.opinstalled=none,;"  // channel reset
              "0:ro.sys.customize.flashback.company=invalid,;"  // switch keys
              "0:cloud=1,persist.company=1,ro.company=1,;"      // priority sources
              "1:persist.company=1,;2:persist.sys.zelva.company.ota.version.backup=D1,;"
              "0:ro.vendor.zelva.exp.version=QT_1,;0:ro.zelva.internet.force.connect=1,;"
              "0:ro.product.littletail_model=X,ro.product.littletail_type=T,"
              "ro.vendor.zelva.market.name=M,;");
}

TEST(PersistTest, PriorityLoaderSourcesLaterWins) {
    // Highest priority first: each pass removes the winner, exposing the next one.
    const std::vector<std::string> sources = {
            "/odm/properties/F/SimSwitchFirstTime/f.prop",
            "/my_region/properties/CU/SimSwitchCurrentTime/c.prop",
            "/my_company/build.prop",
            "/my_carrier/build.prop",
            "/my_stock/properties/C/switchCarrierChannel/c.prop",
            "/my_product/properties/R/regionSwitch/r.prop",
            "/mnt/vendor/my_product/properties/R/regionSwitch/r.prop",
            "/data/system/customize/data_common_prop_file.prop",
            "/data/system/customize/empty_appchannel_prop_file.prop",
            kCloud};
    sandbox::DeviceTree tree;
    for (size_t i = 0; i < sources.size(); ++i) tree.File(sources[i], "p=" + std::to_string(i));
    const std::string keys = "sys.region.switch.first=R,persist.sys.channel.info=C,"
                             "sys.sim.switch.current=CU,sys.sim.switch.first=F";
    // An unset property leaves its key (set in the object); a set one replaces it.
    std::vector<std::string> props(sources.size() + 1, keys);
    props.push_back("sys.sim.switch.first=F2");
    sandbox::Outcome outcome = RunCases(tree, props, [&](sandbox::Context& ctx, size_t i) {
        Obj()->loadOverridePropertiesByPriority(ctx.sink());
        if (i < sources.size()) unlink(sources[i].c_str());
        auto* o = Obj();
        ctx.Note(std::to_string(i), o->regionSwitchKey + o->switchCarrierChannelKey +
                                            o->simSwitchCurrentKey + o->simSwitchFirstKey);
    });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < sources.size(); ++i) {
        const std::string step = std::to_string(i);
        EXPECT_EQ(Sent(outcome, step), "0:p=" + step + ",;") << sources[i];
    }
    const std::string none = std::to_string(sources.size());
    EXPECT_EQ(Sent(outcome, none), "");
    EXPECT_EQ(Logged(outcome, none, android::base::ERROR),
              "load rsa cloud prop failed:" + kCloud + "|load empty appchannel prop file failed:" +
                      sources[8] + "|load data common prop failed:" + sources[7] +
                      "|load cota prop file failed:/my_carrier/build.prop"
                      "|load cota prop file failed:/my_company/build.prop");
    EXPECT_EQ(outcome.notes["0"], "RCCUF");
    EXPECT_EQ(outcome.notes[std::to_string(sources.size() + 1)], "RCCUF2");
}

TEST(PersistTest, ResolvedKeysSkipTheLoaderAndOperatorsDeriveTheSsvKey) {
    const std::string a = "persist.sys.zelva.operator.opta=";
    const std::string b = ",persist.sys.zelva.operator.optb=", cloud = "0:cloud=1,ro.only=1,;";
    const std::string flashback = "0:ro.sys.customize.flashback.company=invalid,;";
    // properties, ssvOldKey before ("!": no first key either), after, batches
    const std::vector<std::array<std::string, 4>> cases = {
            {"ro.zelva.image.my_company.date=D1,ro.vendor.zelva.version_suffix=T,"
             "ro.build.display.id=A_B", "s", "s",
             "2:persist.sys.zelva.company.ota.version.backup=D1,;"
             "0:ro.vendor.zelva.exp.version=AT_B,;"},
            {a + "MCC" + b + "Open", "", "mcc-open", cloud},
            {a + " Ab" + b + "C d ", "", " ab-c d ", cloud},
            {a + "MCC", "", "", ""},
            {b + "Open", "", "", ""},
            {a + "MCC" + b + "Open", "keep", "keep", ""},
            {a + "MCC" + b + "Open", "!", "mcc-open", flashback + cloud}};
    sandbox::Outcome outcome = RunCases(
            Tree({{kCloud, "cloud=1\n"}, {"/my_company/build.prop", "ro.only=1\n"}}), cases,
            [&](sandbox::Context& ctx, size_t i) {
                const bool no_first = cases[i][1] == "!";
                ResolvedBoot(ctx, no_first ? "" : "x", no_first ? "" : cases[i][1]);
                ctx.Note(std::to_string(i), Obj()->ssvOldKey);
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(outcome.notes[std::to_string(i)], cases[i][2]) << cases[i][0];
        EXPECT_EQ(Sent(outcome, std::to_string(i)), cases[i][3]) << cases[i][0];
    }
}

TEST(PersistTest, CompanyHandOverOncePerImageDate) {
    const std::string date = "ro.zelva.image.my_company.date=";
    const std::string backup = "persist.sys.zelva.company.ota.version.backup=";
    // properties, /my_company/build.prop, region key, batches
    const std::vector<std::array<std::string, 4>> cases = {
            {date + "D1", "ro.a=1\nro.b=2\n", "none", "2:" + backup + "D1,;"},
            {date + "D2," + backup + "D1", "ro.a=1\npersist.b=2\nsys.c=3\nRO.d=4\nrom.e=5\n", "R",
             "1:RO.d=4,persist.b=2,persist.r=1,rom.e=5,sys.c=3,;2:" + backup + "D2,;"},
            {backup + "OLD", "persist.b=2\n", "none", "1:persist.b=2,;2:" + backup + ",;"},
            {date + "D3," + backup + "D3", "persist.b=2\n", "R", ""},
            {"", "persist.b=2\n", "R", ""}};
    sandbox::Outcome outcome = RunCases(
            Tree({{"/my_company/properties/R/regionSwitch/r.prop", "persist.r=1\nro.r=1"}}), cases,
            [&](sandbox::Context& ctx, size_t i) {
                android::base::WriteStringToFile(cases[i][1], "/my_company/build.prop");
                ResolvedBoot(ctx, "x", "x", cases[i][2]);
            });
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(Sent(outcome, std::to_string(i)), cases[i][3]) << cases[i][0];
    }
}

}  // namespace
}  // namespace zelva_test
