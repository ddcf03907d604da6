// SPDX-License-Identifier: Apache-2.0
// Properties of the customization partitions and the property sets that the switch keys
// select inside one partition.

#include <gmock/gmock.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::ERROR;
using android::base::WARNING;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCarrierType = "ro.zelva.image.my_carrier.type";
const std::string kCustVersion = "ro.zelva.cust.ver";

TEST(PartitionTest, BuildPropsOfListedDirectoriesLoadInListOrderIntoHostsMap) {
    const sandbox::DeviceTree tree = sandbox::DeviceTree()
                                             .File("/odm/build.prop", "a=odm\nb=odm")
                                             .File("/mnt/vendor/my_product/build.prop", "a=v")
                                             .File("/my_company/build.prop", "a=company");
    sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
        PropertyMap map = {{"a", "host"}};
        Obj()->loadExtensionPartitionProperties(&map);
        ShowMap(ctx, "loaded", map);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(ShownMap(outcome, "loaded"), (PropertyMap{{"a", "company"}, {"b", "odm"}}));
    const std::string overriding = "Overriding previous 'ro.' property 'a':";
    EXPECT_THAT(LogRecords(outcome, {.min_severity = WARNING, .parser = true}),
                testing::IsSupersetOf(
                        {Warning(overriding + "'host' with new value 'odm'"),
                         Warning(overriding + "'odm' with new value 'v'"),
                         Warning(overriding + "'v' with new value 'company'"),
                         Error("partition property load failed:/my_carrier/build.prop")}));
}

TEST(PartitionTest, RealCarrierImageMarksCustomizationVersionUnlessAPartitionSetIt) {
    struct Row {
        std::string name;
        PropertyMap props;
        bool marked;
    };
    const std::vector<Row> rows = {
            {"empty image", {{kCarrierType, "empty"}}, false},
            {"type compared as it stands", {{kCarrierType, "empty "}}, true},
            {"type compared case-sensitively", {{kCarrierType, "Empty"}}, true},
            {"version set, even empty", {{kCarrierType, "full"}, {kCustVersion, ""}}, false},
            {"no carrier type", {{kCustVersion, "7"}}, false}};
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [&](sandbox::Context& ctx) {
        for (const Row& row : rows) {
            PropertyMap map = row.props;
            Obj()->modifyComponentPriorityIfNeed(&map);
            ShowMap(ctx, row.name, map);
        }
    });
    ASSERT_DEVICE_RAN(outcome);
    for (const Row& row : rows) {
        PropertyMap expected = row.props;
        if (row.marked) expected[kCustVersion] = "1";
        EXPECT_EQ(ShownMap(outcome, row.name), expected) << row.name;
    }
}

TEST(PartitionTest, CustomizationVersionIsMarkedAfterTheWalkEvenWhenNoBuildPropLoads) {
    const sandbox::DeviceTree tree =
            sandbox::DeviceTree().File("/my_carrier/build.prop", kCarrierType + "=full\n");
    sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
        PropertyMap walked, nothing_loaded = {{kCarrierType, "full"}};
        Obj()->loadExtensionPartitionProperties(&walked);
        unlink("/my_carrier/build.prop");
        Obj()->loadExtensionPartitionProperties(&nothing_loaded);
        ShowMap(ctx, "walked", walked);
        ShowMap(ctx, "nothing loaded", nothing_loaded);
    });
    ASSERT_DEVICE_RAN(outcome);
    const PropertyMap marked = {{kCarrierType, "full"}, {kCustVersion, "1"}};
    EXPECT_EQ(ShownMap(outcome, "walked"), marked);
    EXPECT_EQ(ShownMap(outcome, "nothing loaded"), marked);
}

TEST(PartitionTest, DirectoryLoadsOnlyItsOwnDotPropFiles) {
    const sandbox::DeviceTree tree = sandbox::DeviceTree()
                                             .File("/d/b.prop", "b=1")
                                             .File("/d/.prop", "dot=1")
                                             .File("/d/x.prop.bak", "bak=1")
                                             .File("/d/d.PROP", "upper=1")
                                             .File("/d/a.prop/inner.prop", "inner=1")
                                             .Symlink("/d/link.prop", "/d/b.prop");
    sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
        PropertyMap map;
        ctx.SetStep("load");
        Obj()->loadPropertiesFromDir("/d", &map);
        Obj()->loadPropertiesFromDir("/missing", &map);
        ShowMap(ctx, "loaded", map);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(ShownMap(outcome, "loaded"), (PropertyMap{{"b", "1"}, {"dot", "1"}}));
    // The link is tried, and the parser refuses it.
    EXPECT_THAT(LogRecords(outcome, {.step = "load", .min_severity = ERROR}),
                ElementsAre(Error("property load failed:/d/link.prop")));
}

// The six key sets in the order they load; each set's key is its own name.
const std::vector<std::string> kSets = {
        "nv",          "ssv", "SimSwitchCurrentTime", "SimSwitchFirstTime", "switchCarrierChannel",
        "regionSwitch"};

// A partition /p where every set holds k=<set> and <set>=1; the NV and SSV sets are files of
// etc/, the others directories of properties/. What an empty key would name holds e=1.
sandbox::DeviceTree PartitionWithEverySet() {
    sandbox::DeviceTree tree;
    for (const std::string& set : kSets) {
        tree.File("/p/properties/" + set + "/" + set + "/a.prop", "k=" + set + "\n" + set + "=1\n");
    }
    return tree.File("/p/etc/build.nv.prop", "k=nv\nnv=1")
            .File("/p/etc/build.ssv.prop", "k=ssv\nssv=1")
            .File("/p/etc/build..prop", "e=1")
            .File("/p/properties/regionSwitch/a.prop", "e=1");
}

// The object's keys in the order of kSets.
std::vector<std::string*> KeysOf(android::init::InitExtensionPropertyImpl* o) {
    return {&o->nvOldKey,
            &o->ssvOldKey,
            &o->simSwitchCurrentKey,
            &o->simSwitchFirstKey,
            &o->switchCarrierChannelKey,
            &o->regionSwitchKey};
}

TEST(PartitionTest, EachKeyLoadsItsSetInFixedOrderSoALaterSetWins) {
    sandbox::Outcome outcome = RunInDevice(PartitionWithEverySet(), [](sandbox::Context& ctx) {
        // No key first, then the keys of the first n sets.
        for (size_t n = 0; n <= kSets.size(); ++n) {
            if (n > 0) *KeysOf(Obj())[n - 1] = kSets[n - 1];
            PropertyMap map;
            Obj()->loadExtensionPartitionSimswitchProperties("/p", &map);
            ShowMap(ctx, std::to_string(n), map);
        }
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(ShownMap(outcome, "0"), PropertyMap{});
    PropertyMap expected;
    for (size_t n = 1; n <= kSets.size(); ++n) {
        expected["k"] = kSets[n - 1];
        expected[kSets[n - 1]] = "1";
        EXPECT_EQ(ShownMap(outcome, std::to_string(n)), expected) << "keys of " << n << " sets";
    }
}

TEST(PartitionTest, UnreadableNvOrSsvFileIsAnErrorButAbsentOneIsSkipped) {
    const sandbox::DeviceTree tree =
            PartitionWithEverySet().Symlink("/p/etc/build.lnk.prop", "/p/etc/build.nv.prop");
    sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
        PropertyMap map;
        ctx.SetStep("unreadable");
        Obj()->nvOldKey = Obj()->ssvOldKey = "lnk";
        Obj()->loadExtensionPartitionSimswitchProperties("/p", &map);
        ctx.SetStep("nv absent");
        Obj()->nvOldKey = "gone";
        Obj()->loadExtensionPartitionSimswitchProperties("/p", &map);
        ShowMap(ctx, "loaded", map);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(ShownMap(outcome, "loaded"), PropertyMap{});
    const std::string failed = " old property load failed:/p/etc/build.lnk.prop";
    EXPECT_THAT(LogRecords(outcome, {.step = "unreadable", .min_severity = ERROR}),
                ElementsAre(Error("nv" + failed), Error("ssv" + failed)));
    EXPECT_THAT(LogRecords(outcome, {.step = "nv absent", .min_severity = ERROR}),
                ElementsAre(Error("ssv" + failed)));
}

}  // namespace
}  // namespace zelva_test
