// SPDX-License-Identifier: Apache-2.0
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

// /odm, then every partition at its early mount point under /mnt/vendor, then at its final
// one; later directories' properties win.
std::vector<std::string> CustDirs(const std::string& letter, const std::string& region) {
    std::vector<std::string> dirs = {"/odm"};
    for (const std::string mount : {"/mnt/vendor", ""}) {
        for (const std::string& dir : std::vector<std::string>{
                     "/my_preload", "/my_wisp", "/my_stock", "/my_region/global",
                     "/my_region/global/" + letter, "/my_product", "/my_region",
                     "/my_region/" + letter, "/my_product/cust/" + region, "/my_carrier",
                     "/my_carrier/cust", "/my_bigball", "/my_engineering", "/my_manifest",
                     "/my_company", "/my_product/special"}) {
            dirs.push_back(mount + dir);
        }
    }
    return dirs;
}

// Shows both lists as they stand, as the notes "cust" and "priority" (one entry a line).
void NoteLists(sandbox::Context& ctx) {
    ctx.Note("cust", android::base::Join(CustDirList(), "\n"));
    ctx.Note("priority", android::base::Join(PriorityDirList(), "\n"));
}

TEST(DirectoryListTest, BrandLetterAndSkuRegionNameTheirDirectories) {
    const std::string region = "ro.zelva.pipeline.region=";
    struct Row {
        std::string brand;
        std::optional<std::string> region_file;         // /my_region/build.prop
        std::optional<std::string> vendor_region_file;  // /mnt/vendor/my_region/build.prop
        std::string letter;
        std::string sku_region;
    };
    const std::optional<std::string> none;
    const std::vector<Row> rows = {{"ALDER", region + "EU", none, "A", "EU"},
                                   {"birch", region + "EU", region + "IN", "B", "EU"},
                                   // An empty region in /my_region counts as none.
                                   {"CeDaR", region, region + "IN", "C", "IN"},
                                   {"alder x", none, none, "", ""}};
    for (const Row& row : rows) {
        sandbox::DeviceTree tree;
        tree.File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=" + row.brand);
        if (row.region_file) tree.File("/my_region/build.prop", *row.region_file);
        if (row.vendor_region_file)
            tree.File("/mnt/vendor/my_region/build.prop", *row.vendor_region_file);
        sandbox::Outcome outcome = RunInDevice(tree, [](sandbox::Context& ctx) {
            Obj();
            NoteLists(ctx);
        });
        ASSERT_DEVICE_RAN(outcome);
        EXPECT_THAT(Lines(outcome.notes["cust"]),
                    ElementsAreArray(CustDirs(row.letter, row.sku_region)))
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

}  // namespace
}  // namespace zelva_test
