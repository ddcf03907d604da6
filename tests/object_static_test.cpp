// The object of the static build and the customization directory lists.

#include <gmock/gmock.h>

#include "persist_test_support.h"

namespace zelva_test {
namespace {

using android::init::CustDirList;
using android::init::InitExtensionPropertyImpl;
using android::init::PriorityDirList;
using testing::ElementsAre;
using testing::ElementsAreArray;

// Every partition at its early mount point under /mnt/vendor, then at its final one, after /odm;
// later directories' properties win.
std::vector<std::string> CustDirs(const std::string& letter, const std::string& region) {
    return {"/odm",
            "/mnt/vendor/my_preload",
            "/mnt/vendor/my_wisp",
            "/mnt/vendor/my_stock",
            "/mnt/vendor/my_region/global",
            "/mnt/vendor/my_region/global/" + letter,
            "/mnt/vendor/my_product",
            "/mnt/vendor/my_region",
            "/mnt/vendor/my_region/" + letter,
            "/mnt/vendor/my_product/cust/" + region,
            "/mnt/vendor/my_carrier",
            "/mnt/vendor/my_carrier/cust",
            "/mnt/vendor/my_bigball",
            "/mnt/vendor/my_engineering",
            "/mnt/vendor/my_manifest",
            "/mnt/vendor/my_company",
            "/mnt/vendor/my_product/special",
            "/my_preload",
            "/my_wisp",
            "/my_stock",
            "/my_region/global",
            "/my_region/global/" + letter,
            "/my_product",
            "/my_region",
            "/my_region/" + letter,
            "/my_product/cust/" + region,
            "/my_carrier",
            "/my_carrier/cust",
            "/my_bigball",
            "/my_engineering",
            "/my_manifest",
            "/my_company",
            "/my_product/special"};
}

// Shows both lists as they stand, as the notes "cust" and "priority" (one entry a line).
void NoteLists(sandbox::Context& ctx) {
    ctx.Note("cust", android::base::Join(CustDirList(), "\n"));
    ctx.Note("priority", android::base::Join(PriorityDirList(), "\n"));
}

std::vector<std::string> Lines(const std::string& text) {
    return android::base::Split(text, "\n");
}

TEST(DirectoryListTest, BrandLetterAndSkuRegionNameTheirDirectories) {
    const std::string region = "ro.zelva.pipeline.region=";
    struct Row {
        std::string brand;
        std::optional<std::string> region_file;  // /my_region/build.prop
        std::optional<std::string> vendor_region_file;  // /mnt/vendor/my_region/build.prop
        std::string letter;
        std::string sku_region;
    };
    for (const Row& row : std::vector<Row>{
                 {.brand = "ALDER", .region_file = region + "EU", .vendor_region_file = std::nullopt,
                  .letter = "A", .sku_region = "EU"},
                 {.brand = "birch", .region_file = region + "EU", .vendor_region_file = region + "IN",
                  .letter = "B", .sku_region = "EU"},
                 // An empty region in /my_region counts as none.
                 {.brand = "CeDaR", .region_file = region, .vendor_region_file = region + "IN",
                  .letter = "C", .sku_region = "IN"},
                 {.brand = "alder x", .region_file = std::nullopt,
                  .vendor_region_file = std::nullopt, .letter = "", .sku_region = ""}}) {
        sandbox::DeviceTree tree;
        tree.File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=" + row.brand);
        if (row.region_file) tree.File("/my_region/build.prop", *row.region_file);
        if (row.vendor_region_file) tree.File("/mnt/vendor/my_region/build.prop", *row.vendor_region_file);
        sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
            Obj();
            NoteLists(ctx);
        });
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_THAT(Lines(outcome.notes["cust"]), ElementsAreArray(CustDirs(row.letter, row.sku_region)))
                << row.brand;
        EXPECT_THAT(Lines(outcome.notes["priority"]), ElementsAre("/my_carrier", "/my_company"));
    }
}

TEST(DirectoryListTest, ListsAreBuiltOnlyByTheFirstObject) {
    const sandbox::DeviceTree tree = sandbox::DeviceTree().File(
            "/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder");
    sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
        Obj();
        android::base::WriteStringToFile("ro.zelva.image.system_ext.brand=birch",
                                         "/system_ext/etc/build.prop");
        InitExtensionPropertyImpl another;
        NoteLists(ctx);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_THAT(Lines(outcome.notes["cust"]), ElementsAreArray(CustDirs("A", "")));
}

TEST(ObjectTest, FactoryGivesTheOneObjectWhichKeepsTheLastLibraryName) {
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [](sandbox::Context& ctx) {
        auto* first = QRAV_FETCH_IInitExtensionProperty("first");
        auto* second = QRAV_FETCH_IInitExtensionProperty("2nd");
        ctx.Note("same object", first == second && first == Obj() ? "yes" : "no");
        ctx.Note("name", Obj()->libName);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes, (PropertyMap{{"same object", "yes"}, {"name", "2nd"}}));
}

TEST(ObjectTest, NewObjectHoldsNoKeysAndNoName) {
    sandbox::Outcome outcome = RunInDevice(sandbox::DeviceTree(), [](sandbox::Context& ctx) {
        Obj()->setLibName("set on the one object");
        InitExtensionPropertyImpl o;
        ctx.Note("state", o.libName + o.regionSwitchKey + o.simSwitchFirstKey +
                                  o.simSwitchCurrentKey + o.switchCarrierChannelKey + o.spareKey +
                                  o.nvOldFlag + o.nvOldKey + o.ssvOldKey);
    });
    ASSERT_DEVICE_RAN(outcome);
    EXPECT_EQ(outcome.notes.at("state"), "") << "every string of a new object is empty";
}

}  // namespace
}  // namespace zelva_test
