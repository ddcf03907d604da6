// The persist override pipeline (slot 6) and its priority loader.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

const std::string kCloud = "/data/system/customize/cloud-config/data_cloud_prop_file.prop";

TEST(PersistTest, PriorityLoaderSourcesLaterWins) {
    // Highest priority first, with what its absence logs: each step removes the winner,
    // exposing the next one.
    const Table sources = {
            {"/odm/properties/F/SimSwitchFirstTime/f.prop", ""},
            {"/my_region/properties/CU/SimSwitchCurrentTime/c.prop", ""},
            {"/my_company/build.prop", "cota prop file"},
            {"/my_carrier/build.prop", "cota prop file"},
            {"/my_stock/properties/C/switchCarrierChannel/c.prop", ""},
            {"/my_product/properties/R/regionSwitch/r.prop", ""},
            {"/mnt/vendor/my_product/properties/R/regionSwitch/r.prop", ""},
            {"/data/system/customize/data_common_prop_file.prop", "data common prop"},
            {"/data/system/customize/empty_appchannel_prop_file.prop",
             "empty appchannel prop file"},
            {kCloud, "rsa cloud prop"}};
    sandbox::DeviceTree tree;
    for (size_t i = 0; i < sources.size(); ++i) tree.File(sources[i][0], "p=" + std::to_string(i));
    // The keys the object holds; an unset property leaves its key, a set one replaces it.
    Table cases(sources.size() + 1, {"sys.region.switch.first=R,persist.sys.channel.info=C,"
                                     "sys.sim.switch.current=CU,sys.sim.switch.first=F"});
    cases.push_back({"sys.sim.switch.first=F2"});
    std::string failed;  // what the sources gone so far log, in the order loaded
    for (size_t i = 0; i < cases.size(); ++i) {
        const bool left = i < sources.size(), key2 = i > sources.size();
        const std::string batch = left ? "[0 p=" + std::to_string(i) + "]" : "";
        cases[i].push_back(std::string(key2 ? "RCCUF2" : "RCCUF") + batch + failed);
        if (left && !sources[i][1].empty()) {
            failed = "|load " + sources[i][1] + " failed:" + sources[i][0] + failed;
        }
    }
    ExpectCases(tree, cases, android::base::ERROR, [&](sandbox::Context& ctx, size_t i) {
        auto* o = Obj();
        o->loadOverridePropertiesByPriority(ctx.sink());
        if (i < sources.size()) unlink(sources[i][0].c_str());
        return o->regionSwitchKey + o->switchCarrierChannelKey + o->simSwitchCurrentKey +
               o->simSwitchFirstKey;
    });
}

TEST(PersistTest, WholeCallResolvedKeysCompanyHandOverAndOperatorSsvKey) {
    const std::string a = "persist.sys.zelva.operator.opta=";
    const std::string b = ",persist.sys.zelva.operator.optb=";
    const std::string date = "ro.zelva.image.my_company.date=", cloud = "[0 cloud=1 ro.only=1]";
    const std::string backup = "persist.sys.zelva.company.ota.version.backup=";
    // properties, /my_company/build.prop, ssvOldKey and region key that an earlier resolution
    // left with the other keys ("!": no first key either, "new": no key at all), then the
    // result, ssvOldKey after and the batches
    const Table cases = {
            {"persist.sys.911.shutdown=1,ro.zelva.internet.whether.force.connect=1,"
             "ro.vendor.zelva.version_suffix=T,ro.build.display.id=Q_1,dev.mnt.blk.userdata=sda,"
             + date + "D1", "persist.company=1\nro.company=1\n", "new", "",
             "0[2 persist.sys.recopy.preload.opinstalled=none]"    // channel reset
             "[0 ro.sys.customize.flashback.company=invalid]"     // switch keys
             "[0 cloud=1 persist.company=1 ro.company=1]"         // priority sources
             "[1 persist.company=1][2 " + backup + "D1][0 ro.vendor.zelva.exp.version=QT_1]"
             "[0 ro.zelva.internet.force.connect=1][0 ro.product.littletail_model=X "
             "ro.product.littletail_type=T ro.vendor.zelva.market.name=M]"},
            {date + "D1,ro.vendor.zelva.version_suffix=T,ro.build.display.id=A_B", "ro.only=1",
             "s", "", "0s[2 " + backup + "D1][0 ro.vendor.zelva.exp.version=AT_B]"},
            {a + "MCC" + b + "Open", "ro.only=1", "", "", "0mcc-open" + cloud},
            {a + " Ab" + b + "C d ", "ro.only=1", "", "", "0 ab-c d " + cloud},
            {a + "MCC", "ro.only=1", "", "", "0"}, {b + "Open", "ro.only=1", "", "", "0"},
            {a + "MCC" + b + "Open", "ro.only=1", "keep", "", "0keep"},
            {a + "MCC" + b + "Open", "ro.only=1", "!", "",
             "0mcc-open[0 ro.sys.customize.flashback.company=invalid]" + cloud},
            {date + "D2," + backup + "D1", "ro.a=1\npersist.b=2\nsys.c=3\nRO.d=4\nrom.e=5\n", "x",
             "R", "0x[1 RO.d=4 persist.b=2 persist.r=1 rom.e=5 sys.c=3][2 " + backup + "D2]"},
            {backup + "OLD", "persist.b=2\n", "x", "", "0x[1 persist.b=2][2 " + backup + "]"},
            {date + "D3," + backup + "D3", "persist.b=2\n", "x", "R", "0x"},
            {"", "persist.b=2\n", "x", "R", "0x"}};
    sandbox::DeviceTree tree;
    tree.File(kCloud, "cloud=1").File("/my_company/properties/R/regionSwitch/r.prop", "persist.r=1")
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
            .File("/my_product/cust/EU/etc/devicename.cfg", "ROM=256\nmarket=M\ntype=T\nmodel=X")
            .File("/sys/block/sda/size", std::to_string(256LL << 21) + "\n");
    ExpectCases(tree, cases, -1, [&](sandbox::Context& ctx, size_t i) {
        Put("/my_company/build.prop", cases[i][1]);
        auto* o = Obj();
        const bool fresh = cases[i][2] == "new", first = cases[i][2] != "!" && !fresh;
        o->nvOldFlag = o->simSwitchCurrentKey = o->nvOldKey = fresh ? "" : "x";
        o->simSwitchFirstKey = first ? "x" : "";
        o->ssvOldKey = first ? cases[i][2] : "";
        o->regionSwitchKey = cases[i][3];
        return std::to_string(o->loadPersistOverrideProperties(ctx.sink())) + o->ssvOldKey;
    });
}

}  // namespace
}  // namespace zelva_test
