// SPDX-License-Identifier: Apache-2.0
// Properties of the customization partitions and the property sets that the
// switch keys select inside one partition.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

TEST(PartitionTest, BuildPropsDirectoryWalkKeySetsAndVersionRule) {
    // The six key sets in the order they are read. Each key is its set's name, and each set
    // sets k to that name and the name to 1.
    const std::vector<std::string> sets = {"nv", "ssv", "SimSwitchCurrentTime",
            "SimSwitchFirstTime", "switchCarrierChannel", "regionSwitch"};
    sandbox::DeviceTree tree;
    for (const std::string& set : sets)
        tree.File("/p/properties/" + set + "/" + set + "/a.prop", "k=" + set + "\n" + set + "=1\n");
    // build.prop files of listed partitions, in list order, and the carrier's type; the NV and
    // SSV sets, one that the parser refuses (a link), what the sets of empty keys would name,
    // and a directory to walk.
    tree.File("/odm/build.prop", "a=odm\nb=odm").File("/mnt/vendor/my_product/build.prop", "a=v")
            .File("/my_company/build.prop", "a=company").File("/p/etc/build.nv.prop", "k=nv\nnv=1")
            .File("/my_carrier/build.prop", "ro.zelva.image.my_carrier.type=Empty")
            .File("/p/etc/build.ssv.prop", "k=ssv\nssv=1").File("/p/etc/build..prop", "e=1")
            .Symlink("/p/etc/build.lnk.prop", "/p/etc/build.nv.prop").File("/d/b.prop", "b=1")
            .File("/p/properties/regionSwitch/a.prop", "e=1").File("/d/.prop", "dot=1")
            .File("/d/x.prop.bak", "bak=1").File("/d/d.PROP", "upper=1")
            .File("/d/a.prop/inner.prop", "n=1").Symlink("/d/link.prop", "/d/b.prop");
    sandbox::Outcome outcome = RunInDevice(tree, [&](sandbox::Context& ctx) {
        auto* o = Obj();
        PropertyMap map{{"a", "host"}};
        ctx.SetStep("list");  // every build.prop into the host's map, in list order
        o->loadExtensionPartitionProperties(&map);
        ctx.sink()(0, map);
        // The rule on maps of its own: "+" where ro.zelva.cust.ver=1 is added, "=" where nothing
        // changes; then on the host's map when no build.prop loads at all.
        ctx.SetStep("rule");
        const std::string t = "ro.zelva.image.my_carrier.type=", v = ",ro.zelva.cust.ver=";
        std::string rule;
        for (const std::string& in : {t + "empty ", t + "empty", t + "full" + v, v + "7"}) {
            o->modifyComponentPriorityIfNeed(&(map = Props(in)));
            rule += map == Props(in) ? "=" : map == Props(in + v + "1") ? "+" : "?";
        }
        for (const std::string& dir : android::init::CustDirList())
            unlink((dir + "/build.prop").c_str());
        map = Props(t + "full");
        o->loadExtensionPartitionProperties(&map);
        ctx.Note("rule", rule + (map == Props(t + "full" + v + "1") ? "+" : "?"));
        // Only the .prop files of a directory itself, a link among them tried; then the sets
        // of no key, then of keys 0 to i: set i decides k, and i + 1 sets load; then NV and SSV
        // files that exist but can't be read, and one that doesn't exist.
        ctx.SetStep("sets");
        map.clear();
        for (const char* dir : {"/d", "/missing"}) o->loadPropertiesFromDir(dir, &map);
        ctx.sink()(0, map);
        const std::vector<std::string*> keys = {
                &o->nvOldKey, &o->ssvOldKey, &o->simSwitchCurrentKey, &o->simSwitchFirstKey,
                &o->switchCarrierChannelKey, &o->regionSwitchKey};
        for (size_t i = 0; i <= keys.size(); ++i) {
            if (i > 0) *keys[i - 1] = sets[i - 1];
            map.clear();
            o->loadExtensionPartitionSimswitchProperties("/p", &map);
            ctx.sink()(0, {{map["k"], std::to_string(map.size() - 1)}});
        }
        o->nvOldKey = o->ssvOldKey = "lnk";
        o->loadExtensionPartitionSimswitchProperties("/p", &map);
        o->nvOldKey = "gone";
        o->loadExtensionPartitionSimswitchProperties("/p", &map);
    });
    ASSERT_DEVICE_RAN(outcome);
    std::string list = Seen(outcome, "list");  // and what the WARNINGs say was overridden
    for (const sandbox::LogRecord& r : outcome.logs)
        if (r.step == "list" && android::base::StartsWith(r.message, "Overriding"))
            list += "|" + r.message.substr(35);
    EXPECT_EQ(list, "[0 a=company b=odm ro.zelva.cust.ver=1 ro.zelva.image.my_carrier.type=Empty]"
                    "|'a':'host' with new value 'odm'|'a':'odm' with new value 'v'"
                    "|'a':'v' with new value 'company'");
    EXPECT_EQ(Seen(outcome, "rule"), "+===+");
    // As for every listed directory, when no build.prop loads:
    EXPECT_TRUE(outcome.HasLog(android::base::ERROR,
                               "partition property load failed:/odm/build.prop"));
    const std::string failed = " old property load failed:/p/etc/build.lnk.prop";
    EXPECT_EQ(Seen(outcome, "sets", android::base::ERROR),
              "[0 b=1 dot=1][0 =0][0 nv=1][0 ssv=2][0 SimSwitchCurrentTime=3]"
              "[0 SimSwitchFirstTime=4][0 switchCarrierChannel=5][0 regionSwitch=6]"
              "|property load failed:/d/link.prop|nv" + failed + "|ssv" + failed + "|ssv" + failed);
}

}  // namespace
}  // namespace zelva_test
