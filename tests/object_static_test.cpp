// The object of the static build and the customization directory lists.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

TEST(ObjectStaticTest, OneObjectAndListsBuiltOnceFromBrandAndRegion) {
    // brand ("": no file), /my_region and /mnt/vendor/my_region values ("-": no file),
    // then the letter and region the list is built with.
    const Table cases = {{"ALDER", "EU", "-", "A", "EU"}, {"birch", "EU", "IN", "B", "EU"},
                         {"CeDaR", "", "IN", "C", "IN"}, {"alder x", "-", "-", "", ""},
                         {"", "-", "CN", "", "CN"}};
    for (const auto& c : cases) {
        const std::string region = "ro.zelva.pipeline.region=", brand = "image.system_ext.brand=";
        sandbox::DeviceTree tree;
        if (!c[0].empty()) tree.File("/system_ext/etc/build.prop", "ro.zelva." + brand + c[0]);
        if (c[1] != "-") tree.File("/my_region/build.prop", region + c[1]);
        if (c[2] != "-") tree.File("/mnt/vendor/my_region/build.prop", region + c[2]);
        sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
            auto* first = QRAV_FETCH_IInitExtensionProperty("first");
            const bool same = first == QRAV_FETCH_IInitExtensionProperty("2nd") && first == Obj();
            android::init::InitExtensionPropertyImpl o;  // builds the lists once more
            android::init::InitCustDirList();
            using android::base::Join;
            ctx.Note("", std::string(same ? "same " : "") + Obj()->libName + "|" + o.libName +
                                 o.regionSwitchKey + o.simSwitchFirstKey + o.simSwitchCurrentKey +
                                 o.switchCarrierChannelKey + o.spareKey + o.nvOldFlag + o.nvOldKey +
                                 o.ssvOldKey + "|" + Join(android::init::CustDirList(), " ") + "|" +
                                 Join(android::init::PriorityDirList(), " "));
        });
        ASSERT_DEVICE_RAN(outcome);
        std::string list = "same 2nd||/odm";  // every partition under /mnt/vendor, then at /
        for (const std::string root : {"/mnt/vendor/my_", "/my_"}) {
            for (const std::string dir :
                 {"preload", "wisp", "stock", "region/global", "region/global/", "product",
                  "region", "region/", "product/cust/", "carrier", "carrier/cust", "bigball",
                  "engineering", "manifest", "company", "product/special"}) {
                const bool sku = dir == "product/cust/", letter = dir.back() == '/' && !sku;
                list += " " + root + dir + (letter ? c[3] : "") + (sku ? c[4] : "");
            }
        }
        EXPECT_EQ(outcome.notes[""], list + "|/my_carrier /my_company") << c[0];
    }
}

}  // namespace
}  // namespace zelva_test
