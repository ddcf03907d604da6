// SPDX-License-Identifier: Apache-2.0
// The object of the static build and the customization directory lists.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::base::Join;
using android::base::StringReplace;

TEST(ObjectStaticTest, OneObjectAndListsBuiltOnceFromBrandAndRegion) {
    // Every partition under /mnt/vendor, then at /, after /odm; "@" stands for the brand letter,
    // "#" for the SKU region.
    const std::string dirs = " preload wisp stock region/global region/global/@ product region "
                             "region/@ product/cust/# carrier carrier/cust bigball engineering "
                             "manifest company product/special";
    const std::string list = "/odm" + StringReplace(dirs, " ", " /mnt/vendor/my_", true) +
                             StringReplace(dirs, " ", " /my_", true);
    // The brand, the region in /my_region and in /mnt/vendor/my_region ("-": no file), then the
    // brand letter and the SKU region.
    for (const auto& c : Table{{"ALDER", "EU", "-", "A", "EU"}, {"birch", "EU", "IN", "B", "EU"},
                               {"CeDaR", "", "IN", "C", "IN"}, {"alder x", "-", "-", "", ""}}) {
        const std::string region = "ro.zelva.pipeline.region=";
        sandbox::DeviceTree tree;
        tree.File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=" + c[0]);
        if (c[1] != "-") tree.File("/my_region/build.prop", region + c[1]);
        if (c[2] != "-") tree.File("/mnt/vendor/my_region/build.prop", region + c[2]);
        sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
            auto* first = QRAV_FETCH_IInitExtensionProperty("first");
            const bool same = first == QRAV_FETCH_IInitExtensionProperty("2nd") && first == Obj();
            android::init::InitExtensionPropertyImpl o;  // builds the lists once more
            // One object, which keeps the second name; a new one's strings, all empty; the lists.
            ctx.Note("", std::string(same ? "same " : "") + Obj()->libName + "|" + o.libName +
                    o.regionSwitchKey + o.simSwitchFirstKey + o.simSwitchCurrentKey +
                    o.switchCarrierChannelKey + o.spareKey + o.nvOldFlag + o.nvOldKey +
                    o.ssvOldKey + "|" + Join(android::init::CustDirList(), " ") + "|" +
                    Join(android::init::PriorityDirList(), " "));
        });
        ASSERT_DEVICE_RAN(outcome);
        const auto pasted = StringReplace(StringReplace(list, "@", c[3], true), "#", c[4], true);
        EXPECT_EQ(outcome.notes[""], "same 2nd||" + pasted + "|/my_carrier /my_company") << c[0];
    }
}

}  // namespace
}  // namespace zelva_test
