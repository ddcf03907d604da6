// Properties of the customization partitions and the property sets that the
// switch keys select inside one partition.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;

TEST(PartitionTest, BuildPropsDirectoryWalkKeySetsAndVersionRule) {
    const Table files = {
            {"/odm/build.prop", "a=odm\nb=odm\n"}, {"/mnt/vendor/my_product/build.prop", "a=v\n"},
            {"/my_preload/build.prop", "a=v\nc=preload\n"},  // the same value: no warning
            {"/my_company/build.prop", "a=company\n"},
            {"/my_carrier/build.prop", "ro.zelva.image.my_carrier.type=Empty\n"}};
    // The six key sets in order; each set's key is the set's name.
    const std::vector<std::string> sets = {"nv", "ssv", "SimSwitchCurrentTime",
                                           "SimSwitchFirstTime", "switchCarrierChannel",
                                           "regionSwitch"};
    sandbox::DeviceTree tree;
    for (const auto& file : files) tree.File(file[0], file[1]);
    for (const std::string& set : sets) {
        tree.File("/p/properties/" + set + "/" + set + "/a.prop", "k=" + set + "\n" + set + "=1\n");
    }
    tree.File("/d/b.prop", "b=1\n").File("/d/.prop", "dot=1\n").File("/d/x.prop.bak", "bak=1\n")
            .File("/d/a.prop/inner.prop", "n=1\n").File("/d/d.PROP", "upper=1\n")
            .Symlink("/d/link.prop", "/d/b.prop").File("/p/etc/build.nv.prop", "k=nv\nnv=1\n")
            .File("/p/etc/build.ssv.prop", "k=ssv\nssv=1\n")
            .Symlink("/p/etc/build.lnk.prop", "/p/etc/build.nv.prop")
            .File("/p/etc/build..prop", "e=1").File("/p/properties/regionSwitch/a.prop", "e=1");
    sandbox::Outcome outcome = RunInDevice(tree, [&](sandbox::Context& ctx) {
        auto* o = Obj();
        PropertyMap map{{"a", "host"}};
        ctx.SetStep("list");  // every build.prop in list order
        o->loadExtensionPartitionProperties(&map);
        ctx.sink()(0, map);
        ctx.SetStep("rule");  // "+" where ro.zelva.cust.ver=1 is added, "=" where nothing changes
        const std::string t = "ro.zelva.image.my_carrier.type=", v = ",ro.zelva.cust.ver=";
        std::string rule, errors;
        for (const std::string& in : {t + "Empty", t + "empty ", t + "empty", t + "full" + v,
                                      t + "full" + v + "7", v + "7", std::string()}) {
            map = Props(in);
            o->modifyComponentPriorityIfNeed(&map);
            rule += map == Props(in) ? "=" : map == Props(in + v + "1") ? "+" : "?";
        }
        for (const auto& file : files) unlink(file[0].c_str());
        map = Props(t + "full");  // and no build.prop at all: one ERROR each
        o->loadExtensionPartitionProperties(&map);
        for (const std::string& dir : android::init::CustDirList()) {
            errors += "|partition property load failed:" + dir + "/build.prop";
        }
        ctx.Note("rule", rule + (map == Props(t + "full" + v + "1") ? "+" : "?"));
        ctx.Note("errors", errors);
        ctx.SetStep("walk");  // only .prop files of the directory itself; links are tried
        map.clear();
        for (const char* dir : {"/d", "/missing", "/d/b.prop"}) o->loadPropertiesFromDir(dir, &map);
        ctx.sink()(0, map);
        ctx.SetStep("keys");  // first none (what empty keys would name isn't read), then 0..i set:
        map = {{"host", "1"}};  // set i decides k, and i + 1 sets are loaded
        o->loadExtensionPartitionSimswitchProperties("/p", &map);
        ctx.sink()(0, map);
        size_t i = 0;
        for (std::string* key : {&o->nvOldKey, &o->ssvOldKey, &o->simSwitchCurrentKey,
                                 &o->simSwitchFirstKey, &o->switchCarrierChannelKey,
                                 &o->regionSwitchKey}) {
            *key = sets[i++];
            map.clear();
            o->loadExtensionPartitionSimswitchProperties("/p", &map);
            ctx.sink()(0, {{map["k"], std::to_string(map.size() - 1)}});
        }
        ctx.SetStep("failures");  // a file that exists but can't be read; a missing one is silent
        o->nvOldKey = o->ssvOldKey = "lnk";
        o->regionSwitchKey = "gone";
        o->loadExtensionPartitionSimswitchProperties("/p", &map);
        o->nvOldKey = "gone";
        o->loadExtensionPartitionSimswitchProperties("/p", &map);
    });
    ASSERT_DEVICE_RAN(outcome);
    std::string list = Seen(outcome, "list");  // and what the WARNINGs say was overridden
    for (const sandbox::LogRecord& r : outcome.logs) {
        const bool over = r.step == "list" && android::base::StartsWith(r.message, "Overriding");
        if (over) list += "|" + r.message.substr(35);
    }
    EXPECT_EQ(list, "[0 a=company b=odm c=preload ro.zelva.cust.ver=1 ro.zelva.image.my_carrier."
                    "type=Empty]|'a':'host' with new value 'odm'|'a':'odm' with new value 'v'"
                    "|'a':'v' with new value 'company'");
    EXPECT_EQ(Seen(outcome, "rule", ERROR), "++=====+" + outcome.notes["errors"]);
    EXPECT_EQ(Seen(outcome, "walk", ERROR), "[0 b=1 dot=1]|property load failed:/d/link.prop");
    EXPECT_EQ(Seen(outcome, "keys"), "[0 host=1][0 nv=1][0 ssv=2][0 SimSwitchCurrentTime=3]"
                                     "[0 SimSwitchFirstTime=4][0 switchCarrierChannel=5]"
                                     "[0 regionSwitch=6]");
    const std::string failed = " old property load failed:/p/etc/build.lnk.prop";
    EXPECT_EQ(Seen(outcome, "failures", ERROR), "|nv" + failed + "|ssv" + failed + "|ssv" + failed);
}

}  // namespace
}  // namespace zelva_test
