// Properties of the customization partitions and the property sets that the
// switch keys select inside one partition.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;

TEST(PartitionTest, BuildPropsApplyInListOrder) {
    sandbox::Outcome outcome = RunInDevice(
            Tree({{"/odm/build.prop", "a=odm\nb=odm\n"},
                  {"/mnt/vendor/my_product/build.prop", "a=vendor\n"},
                  {"/my_preload/build.prop", "a=vendor\nc=preload\n"},  // same value: no warning
                  {"/my_company/build.prop", "a=company\n"},
                  {"/my_carrier/build.prop", "ro.zelva.image.my_carrier.type=Empty\n"}}),
            [](sandbox::Context& ctx) {
                PropertyMap props{{"a", "host"}};
                Obj()->loadExtensionPartitionProperties(&props);
                for (const auto& [name, value] : props) ctx.Note(name, value);
            });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props("a=company,b=odm,c=preload,ro.zelva.cust.ver=1,"
                                   "ro.zelva.image.my_carrier.type=Empty"));
    std::string overrides;
    for (const std::string& m : outcome.Messages(android::base::WARNING)) {
        if (android::base::StartsWith(m, "Overriding")) overrides += m.substr(35) + "|";
    }
    EXPECT_EQ(overrides, "'a':'host' with new value 'odm'|'a':'odm' with new value 'vendor'|"
                         "'a':'vendor' with new value 'company'|");
    std::vector<std::string> errors = outcome.Messages(ERROR);
    ASSERT_EQ(errors.size(), 33u - 5u);
    EXPECT_EQ(errors[0], "partition property load failed:/mnt/vendor/my_preload/build.prop");
}

TEST(PartitionTest, CustomizationVersionRule) {
    const std::string t = "ro.zelva.image.my_carrier.type=", v = ",ro.zelva.cust.ver=";
    const std::vector<std::pair<std::string, std::string>> cases = {
            {"", ""}, {t + "empty", t + "empty"}, {t + "Empty", t + "Empty" + v + "1"},
            {t + "empty ", t + "empty " + v + "1"}, {t + "full" + v, t + "full" + v},
            {t + "full" + v + "7", t + "full" + v + "7"}, {v + "7", v + "7"}};
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [&](sandbox::Context& ctx) {
        for (size_t i = 0; i < cases.size(); ++i) {
            PropertyMap props = Props(cases[i].first);
            Obj()->modifyComponentPriorityIfNeed(&props);
            ctx.Note(std::to_string(i), props == Props(cases[i].second) ? "ok" : "wrong");
        }
        PropertyMap props = Props(t + "full");  // and no partition has a build.prop
        Obj()->loadExtensionPartitionProperties(&props);
        ctx.Note("nothing loaded", props["ro.zelva.cust.ver"]);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props("0=ok,1=ok,2=ok,3=ok,4=ok,5=ok,6=ok,nothing loaded=1"));
}

TEST(PartitionTest, DirectoryLoadTakesOnlyPropFilesOfTheDirectoryItself) {
    sandbox::Outcome outcome = RunInDevice(
            Tree({{"/d/b.prop", "b=1\n"}, {"/d/.prop", "dot=1\n"}, {"/d/plain", "p=1\n"},
                  {"/d/a.prop/inner.prop", "n=1\n"}, {"/d/sub/inner.prop", "n=1\n"},
                  {"/d/x.prop.bak", "bak=1\n"}, {"/d/d.PROP", "upper=1\n"},
                  {"/d/link.prop", "->/d/b.prop"}}),
            [](sandbox::Context& ctx) {
                PropertyMap props;
                for (const char* dir : {"/d", "/missing", "/d/b.prop"}) {
                    Obj()->loadPropertiesFromDir(dir, &props);
                }
                for (const auto& [name, value] : props) ctx.Note(name, value);
            });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props("b=1,dot=1"));
    // A link is no directory: it is tried, and the reader refuses links.
    EXPECT_EQ(Logged(outcome, "", ERROR), "property load failed:/d/link.prop");
}

TEST(PartitionTest, SwitchKeySetsLoadInFixedOrder) {
    // The six sets in their order; the key of each is the name of its set.
    const std::vector<std::string> sets = {"nv", "ssv", "SimSwitchCurrentTime",
                                           "SimSwitchFirstTime", "switchCarrierChannel",
                                           "regionSwitch"};
    sandbox::DeviceTree tree = Tree({{"/p/etc/build.nv.prop", "k=nv\nnv=1\n"},
                                     {"/p/etc/build.ssv.prop", "k=ssv\nssv=1\n"},
                                     {"/p/etc/build.lnk.prop", "->/p/etc/build.nv.prop"},
                                     {"/p/properties/a/b/regionSwitch/a.prop", "k=deep\n"}});
    for (size_t i = 2; i < sets.size(); ++i) {
        const std::string& set = sets[i];
        tree.File("/p/properties/" + set + "/" + set + "/a.prop", "k=" + set + "\n" + set + "=1\n");
    }
    sandbox::Outcome outcome = RunInDevice(tree, [&](sandbox::Context& ctx) {
        auto* obj = Obj();
        std::string* keys[] = {&obj->nvOldKey, &obj->ssvOldKey, &obj->simSwitchCurrentKey,
                               &obj->simSwitchFirstKey, &obj->switchCarrierChannelKey,
                               &obj->regionSwitchKey};
        PropertyMap props{{"host", "1"}};
        ctx.SetStep("none");
        obj->loadExtensionPartitionSimswitchProperties("/p", &props);
        ctx.Note("none", std::to_string(props.size()));
        ctx.SetStep("keys");
        for (size_t i = 0; i < sets.size(); ++i) {  // keys 0..i set: set i decides k
            *keys[i] = sets[i];
            props.clear();
            obj->loadExtensionPartitionSimswitchProperties("/p", &props);
            ctx.Note(sets[i], props["k"] + "+" + std::to_string(props.size() - 1));
        }
        obj->regionSwitchKey = "a/b";
        obj->loadExtensionPartitionSimswitchProperties("/p", &props);
        ctx.Note("deep", props["k"]);
        ctx.SetStep("failures");  // a file that exists but can't be read; a missing one is silent
        obj->nvOldKey = obj->ssvOldKey = "lnk";
        obj->regionSwitchKey = "gone";
        obj->loadExtensionPartitionSimswitchProperties("/p", &props);
        obj->nvOldKey = "gone";
        obj->loadExtensionPartitionSimswitchProperties("/p", &props);
    });
    ASSERT_DEVICE_RAN(outcome);
    PropertyMap expected{{"none", "1"}, {"deep", "deep"}};
    for (size_t i = 0; i < sets.size(); ++i) {
        expected[sets[i]] = sets[i] + "+" + std::to_string(i + 1);
    }
    EXPECT_EQ(outcome.notes, expected);
    EXPECT_EQ(Logged(outcome, "none", android::base::VERBOSE), "");
    const std::string failed = " old property load failed:/p/etc/build.lnk.prop";
    EXPECT_EQ(Logged(outcome, "failures", ERROR),
              "nv" + failed + "|ssv" + failed + "|ssv" + failed);
}

}  // namespace
}  // namespace zelva_test
