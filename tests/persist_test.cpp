// SPDX-License-Identifier: Apache-2.0
// The persist override pipeline (slot 6) and its priority loader.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

const std::string kCloud = "/data/system/customize/cloud-config/data_cloud_prop_file.prop";

TEST(PersistTest, PriorityLoaderSourcesLaterWins) {
    // The sources, the highest priority first, with what the absence of each logs.
    const Table sources = {
            {"/odm/properties/F/SimSwitchFirstTime/f.prop", ""},
            {"/my_region/properties/CU/SimSwitchCurrentTime/c.prop", ""},
            {"/my_company/build.prop", "load cota prop file failed:"},
            {"/my_carrier/build.prop", "load cota prop file failed:"},
            {"/my_stock/properties/C/switchCarrierChannel/c.prop", ""},
            {"/my_product/properties/R/regionSwitch/r.prop", ""},
            {"/mnt/vendor/my_product/properties/R/regionSwitch/r.prop", ""},
            {"/data/system/customize/data_common_prop_file.prop", "load data common prop failed:"},
            {"/data/system/customize/empty_appchannel_prop_file.prop",
             "load empty appchannel prop file failed:"},
            {kCloud, "load rsa cloud prop failed:"}};
    sandbox::DeviceTree tree;  // source i sets p=i
    for (size_t i = 0; i < sources.size(); ++i) tree.File(sources[i][0], "p=" + std::to_string(i));
    // Run i removes source i after loading, so that source i + 1 wins the next run. The store
    // names the keys of the sets, then, in a last run with no source left, only the first key,
    // which alone changes. Each run shows the region, channel, current and first keys after.
    Table cases(sources.size(), {"sys.region.switch.first=R,persist.sys.channel.info=C,"
                                 "sys.sim.switch.current=CU,sys.sim.switch.first=F"});
    std::string failed;  // what the sources removed so far log, in the order they are loaded
    for (size_t i = 0; i < sources.size(); ++i) {
        cases[i].push_back("R C CU F[0 p=" + std::to_string(i) + "]" + failed);
        if (!sources[i][1].empty()) failed = "|" + sources[i][1] + sources[i][0] + failed;
    }
    cases.push_back({"sys.sim.switch.first=F2", "R C CU F2" + failed});  // and no batch
    ExpectCases(tree, cases, android::base::ERROR, [&](sandbox::Context& ctx, size_t i) {
        auto* o = Obj();
        o->loadOverridePropertiesByPriority(ctx.sink());
        if (i < sources.size()) unlink(sources[i][0].c_str());
        return o->regionSwitchKey + " " + o->switchCarrierChannelKey + " " +
               o->simSwitchCurrentKey + " " + o->simSwitchFirstKey;
    });
}

TEST(PersistTest, WholeCallResolvedKeysCompanyHandOverAndOperatorSsvKey) {
    const std::string opt = "persist.sys.zelva.operator.opt", ops = opt + "a=MCC," + opt + "b=Open";
    const std::string date = "ro.zelva.image.my_company.date=", cloud = "[0 cloud=1 ro.only=1]";
    const std::string backup = "persist.sys.zelva.company.ota.version.backup=";
    // Properties, /my_company/build.prop, the keys that an earlier resolution left ("fresh":
    // none; "no first key": all but the first and the SSV key; else all of them, with this as
    // the SSV key) and the region key, then the result, the SSV key after and the batches.
    const Table cases = {
            // A fresh object: every batch of the call, in order.
            {"persist.sys.911.shutdown=1,ro.zelva.internet.whether.force.connect=1,"
             "ro.vendor.zelva.version_suffix=T,ro.build.display.id=Q_1,dev.mnt.blk.userdata=sda,"
             + date + "D1", "persist.company=1\nro.company=1\n", "fresh", "",
             "0 [2 persist.sys.recopy.preload.opinstalled=none]"  // channel reset
             "[0 ro.sys.customize.flashback.company=invalid]"     // switch keys
             "[0 cloud=1 persist.company=1 ro.company=1]"         // priority sources
             "[1 persist.company=1][2 " + backup + "D1][0 ro.vendor.zelva.exp.version=QT_1]"
             "[0 ro.zelva.internet.force.connect=1][0 ro.product.littletail_model=X "
             "ro.product.littletail_type=T ro.vendor.zelva.market.name=M]"},
            // Keys already there: no priority sources, the rest still runs.
            {date + "D1,ro.vendor.zelva.version_suffix=T,ro.build.display.id=A_B", "ro.only=1",
             "s", "", "0 s[2 " + backup + "D1][0 ro.vendor.zelva.exp.version=AT_B]"},
            // The SSV key from both operators, in lower case, only when there is none; then the
            // priority sources, and the switch keys first while there is no first key.
            {ops, "ro.only=1", "", "", "0 mcc-open" + cloud},
            {opt + "a=MCC", "ro.only=1", "", "", "0 "}, {opt + "b=Open", "ro.only=1", "", "", "0 "},
            {ops, "ro.only=1", "keep", "", "0 keep"},
            {ops, "ro.only=1", "no first key", "",
             "0 mcc-open[0 ro.sys.customize.flashback.company=invalid]" + cloud},
            // A new company date: its partition's properties but "ro." ones, with those of its
            // region set, then the date to keep; an absent date differs from a kept one.
            {date + "D2," + backup + "D1", "ro.a=1\npersist.b=2\nsys.c=3\nRO.d=4\nrom.e=5\n", "x",
             "R", "0 x[1 RO.d=4 persist.b=2 persist.r=1 rom.e=5 sys.c=3][2 " + backup + "D2]"},
            {backup + "OLD", "persist.b=2\n", "x", "", "0 x[1 persist.b=2][2 " + backup + "]"},
            {date + "D3," + backup + "D3", "persist.b=2\n", "x", "R", "0 x"}};
    sandbox::DeviceTree tree;
    tree.File(kCloud, "cloud=1").File("/my_company/properties/R/regionSwitch/r.prop", "persist.r=1")
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\n")
            .File("/my_product/cust/EU/etc/devicename.cfg", "ROM=256\nmarket=M\ntype=T\nmodel=X")
            .File("/sys/block/sda/size", std::to_string(256LL << 21) + "\n");
    ExpectCases(tree, cases, -1, [&](sandbox::Context& ctx, size_t i) {
        Put("/my_company/build.prop", cases[i][1]);
        auto* o = Obj();
        const std::string& keys = cases[i][2];
        o->nvOldFlag = o->simSwitchCurrentKey = o->nvOldKey = keys == "fresh" ? "" : "x";
        o->simSwitchFirstKey = keys == "fresh" || keys == "no first key" ? "" : "x";
        o->ssvOldKey = o->simSwitchFirstKey.empty() ? "" : keys;
        o->regionSwitchKey = cases[i][3];
        return std::to_string(o->loadPersistOverrideProperties(ctx.sink())) + " " + o->ssvOldKey;
    });
}

}  // namespace
}  // namespace zelva_test
