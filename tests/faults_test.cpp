// SPDX-License-Identifier: Apache-2.0
// Faults and hostile input: the library neither crashes nor hangs, says what went wrong and
// keeps the later batches of the call.

#include <pthread.h>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "switch_test_support.h"
#include "utils.h"

namespace zelva_test {
namespace {

using testing::Contains;
using testing::SizeIs;

sandbox::Outcome Boot(const sandbox::DeviceTree& tree, const sandbox::Function& fn) {
    return RunInDevice(tree, fn,
                       {.properties = With(kSpecialSeed, {{"dev.mnt.blk.userdata", "sda"}}),
                        .timeout = std::chrono::seconds(30)});
}

// Slot 6, then the COTA service's "mount_and_check_load".
void PersistThenCotaLoad(sandbox::Context& ctx) {
    auto* impl = Impl();
    impl->loadPersistOverrideProperties(ctx.sink());
    impl->loadCotaServiceOverrideProperties("mount_and_check_load", ctx.sink());
}

TEST(FaultsTest, CotaDirectoryThatIsAFileIsReportedAndNothingElseIsLost) {
    sandbox::Outcome o =
            Boot(sandbox::DeviceTree().File("/data/cota", "a file"), PersistThenCotaLoad);
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(SentBatches(o).back(), kSpecialBatch);
    EXPECT_EQ(LogRecords(o).back(),
              Error("not valid cota mount info file: /data/cota/cota_mount_info.prop"));
}

// What stands where the library expects a regular file.
struct StandIn {
    std::string kind;
    void (*place)(sandbox::DeviceTree* tree, const std::string& path);
    bool read_fails;  // a read that fails is reported; the others read as missing or empty
};

const StandIn kStandIns[] = {
        {"directory", [](sandbox::DeviceTree* t, const std::string& p) { t->Dir(p); }, true},
        {"fifo", [](sandbox::DeviceTree* t, const std::string& p) { t->Fifo(p); }, false},
        {"socket", [](sandbox::DeviceTree* t, const std::string& p) { t->Socket(p); }, true},
        {"dangling link",
         [](sandbox::DeviceTree* t, const std::string& p) { t->Symlink(p, "/nowhere"); }, false},
        {"link loop", [](sandbox::DeviceTree* t, const std::string& p) { t->Symlink(p, p); },
         false},
};

// Every kind of file the library reads, each read when it exists and reported with its path
// when that fails.
const std::vector<std::string> kReadFiles = {
        "/my_carrier/build.prop", "/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file",
        "/my_carrier/etc/flags.prop", "/my_product/cust/EU/etc/devicename.cfg",
        "/data/cota/cota_mount_info.prop"};
constexpr char kLogoSource[] = "/data/logo/logo.img";
// Read silently, and before the device name file, which is only read after it.
constexpr char kSectorCount[] = "/sys/block/sda/size";

// A device whose boot converts an old NV flag into a first switch key, so that it reads
// every file above.
sandbox::DeviceTree OldSchemeDevice() {
    return sandbox::DeviceTree()
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\nro.region.ok=1\n")
            .File("/mnt/vendor/zelvareserve/radio/exp_operator_switch.config", "01000100")
            .File("/my_carrier/etc/nvmap.prop", "01000100=vodafone\n")
            .Dir("/mnt/vendor/zelvareserve/system/ssv")
            .File("/dev/block/by-name/splash_odm", std::string(64, '\0'))
            .File(kSectorCount, "500118192");
}

TEST(FaultsTest, SpecialFilesInPlaceOfFilesAreReportedOrReadAsMissing) {
    for (const StandIn& stand_in : kStandIns) {
        for (const bool sector_count_too : {false, true}) {
            SCOPED_TRACE(stand_in.kind + (sector_count_too ? ", the sector count too" : ""));
            sandbox::DeviceTree tree = OldSchemeDevice();
            for (const std::string& path : kReadFiles) stand_in.place(&tree, path);
            stand_in.place(&tree, kLogoSource);
            if (sector_count_too) stand_in.place(&tree, kSectorCount);
            sandbox::Outcome o = Boot(tree, [](sandbox::Context& ctx) {
                auto* impl = Impl();
                PropertyMap partition;
                impl->loadExtensionPartitionProperties(&partition);
                ctx.sink()(0, partition);
                PersistThenCotaLoad(ctx);
                impl->loadSimSwitchOverrideProperties(std::string("triggerLogoCopy") + kLogoSource,
                                                      ctx.sink());
            });
            ASSERT_DEVICE_RAN(o);  // no crash, no hang
            EXPECT_EQ(SentBatches(o).front().props.at("ro.region.ok"), "1");
            EXPECT_EQ(SentBatches(o).back(), kSpecialBatch);
            if (!stand_in.read_fails) continue;
            for (const std::string& path : kReadFiles) {
                if (sector_count_too && path.find("devicename") != std::string::npos) continue;
                EXPECT_TRUE(o.HasLogContaining(path)) << path;
            }
            if (stand_in.kind == "directory") {
                EXPECT_TRUE(o.HasLogContaining(kLogoSource));
                EXPECT_THAT(LogRecords(o), Contains(Error("Unable to write logo copy info file")));
            }
        }
    }
}

// Writes |content| to |name| in |dir|; returns its path.
std::string WriteIn(const TemporaryDir& dir, const std::string& name, const std::string& content) {
    const std::string path = std::string(dir.path) + "/" + name;
    EXPECT_TRUE(android::base::WriteStringToFile(content, path));
    return path;
}

PropertyMap Load(const std::string& path) {
    PropertyMap map;
    EXPECT_TRUE(load_properties_from_file_without_se(path.c_str(), nullptr, &map)) << path;
    return map;
}

// (Bytes above 0x7f are text: the parser's own tests show it.)
TEST(HostilePropertyFileTest, NulsLoneCarriageReturnsAndAMebibyteValueAreReadAsTheyStand) {
    TemporaryDir dir;
    EXPECT_EQ(Load(WriteIn(dir, "nul", std::string("a=1\0junk\nb=2\n", 13))),
              (PropertyMap{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(Load(WriteIn(dir, "cr", "a=1\rb=2\r")), (PropertyMap{{"a", "1\rb=2"}}));
    const std::string mib(1 << 20, 'v');
    EXPECT_EQ(Load(WriteIn(dir, "long", "l=" + mib + "\n")), (PropertyMap{{"l", mib}}));
}

TEST(HostilePropertyFileTest, HundredThousandImportsAndAThousandDeepChainLoad) {
    TemporaryDir dir;
    const std::string import_small = "import " + WriteIn(dir, "small", "s=1\n") + "\n";
    std::string imports;
    for (int i = 0; i < 100000; ++i) imports += import_small;
    EXPECT_EQ(Load(WriteIn(dir, "imports", imports)), (PropertyMap{{"s", "1"}}));

    for (int i = 999; i >= 0; --i) {
        const std::string next = std::string(dir.path) + "/chain" + std::to_string(i + 1);
        WriteIn(dir, "chain" + std::to_string(i), "d" + std::to_string(i) + "=1\nimport " + next);
    }
    EXPECT_THAT(Load(std::string(dir.path) + "/chain0"), SizeIs(1000));
}

// A file that imports itself recurses until the stack runs out, as documented.
TEST(HostilePropertyFileTest, SelfImportRunsOutOfStack) {
    TemporaryDir dir;
    static std::string self;
    self = WriteIn(dir, "self", std::string("import ") + dir.path + "/self\n");
    EXPECT_DEATH(
            {
                pthread_attr_t attr;
                pthread_attr_init(&attr);
                pthread_attr_setstacksize(&attr, 256 << 10);
                pthread_t thread;
                pthread_create(
                        &thread, &attr,
                        [](void*) -> void* {
                            PropertyMap map;
                            load_properties_from_file_without_se(self.c_str(), nullptr, &map);
                            return nullptr;
                        },
                        nullptr);
                pthread_join(thread, nullptr);
            },
            "");
}

// Sector counts and ROM classes at and beyond their limits. (The COTA wait limit goes
// through GetIntProperty, whose fallbacks the property store tests cover.)
TEST(FaultsTest, MarketNameNeedsASectorCountAndRomClassInRange) {
    const struct {
        std::string sector_count, rom_class;
        bool published;
    } cases[] = {
            {.sector_count = "", .rom_class = "256", .published = false},
            {.sector_count = "99999999999999999999", .rom_class = "256", .published = false},
            {.sector_count = "-500118192", .rom_class = "256", .published = false},
            {.sector_count = "500118192abc", .rom_class = "256", .published = true},
            {.sector_count = " 500118192", .rom_class = "0256", .published = true},
            {.sector_count = "500118192", .rom_class = "+256", .published = false},
            {.sector_count = "500118192", .rom_class = "99999999999999999999", .published = false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("sector count '" + c.sector_count + "', ROM class '" + c.rom_class + "'");
        sandbox::Outcome o =
                Boot(sandbox::DeviceTree()
                             .File(kSectorCount, c.sector_count)
                             .File("/my_product/cust//etc/devicename.cfg",
                                   "ROM=" + c.rom_class + "\nmarket=M\n"),
                     [](sandbox::Context& ctx) { android::init::updateMarketName(ctx.sink()); });
        ASSERT_DEVICE_RAN(o);
        EXPECT_THAT(SentBatches(o), SizeIs(c.published ? 1 : 0));
    }
}

}  // namespace
}  // namespace zelva_test
