// The object of the static build and the customization directory lists.

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::init::CustDirList;
using android::init::PriorityDirList;

TEST(ObjectStaticTest, FactoryKeepsOneObjectAndTheLastName) {
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [](sandbox::Context& ctx) {
        auto* first = QRAV_FETCH_IInitExtensionProperty("first");
        auto* second = QRAV_FETCH_IInitExtensionProperty("second");
        ctx.Note("same", first == second && first == Obj() ? "y" : "n");
        ctx.Note("name", Obj()->libName);
        android::init::InitExtensionPropertyImpl o;  // builds the lists once more
        ctx.Note("fresh", o.libName + o.regionSwitchKey + o.simSwitchFirstKey +
                                  o.simSwitchCurrentKey + o.switchCarrierChannelKey + o.spareKey +
                                  o.nvOldFlag + o.nvOldKey + o.ssvOldKey);
        android::init::InitCustDirList();
        ctx.Note("sizes", std::to_string(CustDirList().size()) + "/" +
                                  std::to_string(PriorityDirList().size()));
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, Props("same=y,name=second,fresh=,sizes=33/2"));
}

TEST(ObjectDirListTest, BrandLetterRegionAndOrder) {
    // brand ("": no file), /my_region and /mnt/vendor/my_region values ("-": no file),
    // then the letter and region the list is built with.
    const char* cases[][5] = {
            {"ALDER", "EU", "-", "A", "EU"},  {"Alder", "-", "-", "A", ""},
            {"birch", "EU", "IN", "B", "EU"}, {"CeDaR", "", "IN", "C", "IN"},
            {"alder x", "-", "IN", "", "IN"}, {"alderx", "-", "-", "", ""},
            {"", "CN", "-", "", "CN"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        sandbox::DeviceTree tree;
        const std::string brand = "ro.zelva.image.system_ext.brand=",
                          region = "ro.zelva.pipeline.region=";
        if (*c[0]) tree.File("/system_ext/etc/build.prop", brand + c[0]);
        if (*c[1] != '-') tree.File("/my_region/build.prop", region + c[1]);
        if (*c[2] != '-') tree.File("/mnt/vendor/my_region/build.prop", region + c[2]);
        sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
            ctx.Note("list", Obj() ? android::base::Join(CustDirList(), " ") : "");
            ctx.Note("priority", android::base::Join(PriorityDirList(), " "));
        });
        ASSERT_DEVICE_RAN(outcome);
        // Every partition at its early mount point under /mnt/vendor, then at /.
        std::vector<std::string> expected = {"/odm"};
        for (const std::string root : {"/mnt/vendor/my_", "/my_"}) {
            for (const std::string dir :
                 {"preload", "wisp", "stock", "region/global", "region/global/", "product",
                  "region", "region/", "product/cust/", "carrier", "carrier/cust", "bigball",
                  "engineering", "manifest", "company", "product/special"}) {
                const bool sku = dir == "product/cust/", letter = dir.back() == '/' && !sku;
                expected.push_back(root + dir + (letter ? c[3] : "") + (sku ? c[4] : ""));
            }
        }
        EXPECT_EQ(outcome.notes["list"], android::base::Join(expected, " "));
        EXPECT_EQ(outcome.notes["priority"], "/my_carrier /my_company");
    }
}

}  // namespace
}  // namespace zelva_test
