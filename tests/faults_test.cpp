// SPDX-License-Identifier: Apache-2.0
// Faults and hostile input: the library neither crashes nor hangs, says what
// went wrong, keeps the later batches of the call and damages nothing on disk.

#include <pthread.h>

#include <android-base/file.h>

#include "ZelvaExtensionProperty.h"
#include "test_support.h"
#include "utils.h"

namespace zelva_test {
namespace {

using android::init::InitExtensionPropertyImpl;
using sandbox::MountSetup;

constexpr char kFirstFile[] = "/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file";
constexpr char kNvFlagFile[] = "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config";
const PropertyMap kSpecialSeed = {{"ro.vendor.zelva.version_suffix", "T"},
                                  {"ro.build.display.id", "A_1"},
                                  {"dev.mnt.blk.userdata", "sda"}};
const PropertyMap kSpecialBatch = {{"ro.vendor.zelva.exp.version", "AT_1"}};

// A device whose boot converts an old NV flag into a first switch key.
sandbox::DeviceTree OldSchemeDevice() {
    return sandbox::DeviceTree()
            .File("/my_region/build.prop", "ro.zelva.pipeline.region=EU\nro.region.ok=1\n")
            .File(kNvFlagFile, "01000100")
            .File("/my_carrier/etc/nvmap.prop", "01000100=vodafone\n")
            .Dir("/mnt/vendor/zelvareserve/system/ssv");
}

sandbox::Outcome Boot(const sandbox::DeviceTree& tree, const sandbox::Function& fn,
                     PropertyMap props = kSpecialSeed, std::vector<MountSetup> mounts = {}) {
    sandbox::Options options;
    options.properties = std::move(props);
    options.mounts = std::move(mounts);
    options.timeout = std::chrono::seconds(30);
    return RunInDevice(tree, fn, options);
}

void Slot6(sandbox::Context& ctx) {
    InitExtensionPropertyImpl::getInstance()->loadPersistOverrideProperties(ctx.sink());
}

TEST(FaultsTest, UnwritableReserveLeavesNoStateAndLosesNoBatch) {
    for (const auto& [mount, why] : std::vector<std::pair<MountSetup, std::string>>{
                 {{MountSetup::Kind::kReadOnly, "/mnt/vendor/zelvareserve"},
                  "open() failed: Read-only file system"},
                 {{MountSetup::Kind::kTmpfs, "/mnt/vendor/zelvareserve", 64 << 10, true},
                  "Unable to write file contents: No space left on device"}}) {
        sandbox::Outcome o = Boot(OldSchemeDevice(), Slot6, kSpecialSeed, {mount});
        ASSERT_DEVICE_RAN(o);
        EXPECT_TRUE(o.HasLog(android::base::ERROR, "Unable to write sim_action_first_file " + why));
        // Neither an empty first file nor a marker: the next boot tries again.
        EXPECT_FALSE(o.Exists(kFirstFile) || o.Exists("/mnt/vendor/zelvareserve/system/ssv/"
                                                      "sim_switch_convert_file"));
        EXPECT_EQ(o.FileContent(kNvFlagFile), "01000100");
        EXPECT_EQ(BatchesOfKind(o, 0).back(), kSpecialBatch);
    }
}

TEST(FaultsTest, MissingDataAndACotaDirectoryThatIsAFile) {
    sandbox::Outcome o = Boot(sandbox::DeviceTree().File("/data/cota", "a file"),
                             [](sandbox::Context& ctx) {
                                 Slot6(ctx);
                                 InitExtensionPropertyImpl::getInstance()
                                         ->loadCotaServiceOverrideProperties("mount_and_check_load",
                                                                             ctx.sink());
                             });
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(BatchesOfKind(o, 0).back(), kSpecialBatch);
    EXPECT_EQ(o.Messages(android::base::ERROR).back(),
              "not valid cota mount info file: /data/cota/cota_mount_info.prop");
}

// Every kind of file the library reads, replaced by something that isn't one.
TEST(FaultsTest, SpecialFilesInPlaceOfFiles) {
    // Each is read when it exists and reported with its path when that fails.
    const std::vector<std::string> reported = {
            "/my_carrier/build.prop", kFirstFile, "/my_carrier/etc/flags.prop",
            "/my_product/cust/EU/etc/devicename.cfg", "/data/cota/cota_mount_info.prop",
            "/data/logo/logo.img"};
    constexpr char kSizeFile[] = "/sys/block/sda/size";  // read silently, before the name file
    for (const std::string kind : {"dir", "fifo", "socket", "dangling", "loop"}) {
        for (const bool size_too : {false, true}) {
            SCOPED_TRACE(kind + (size_too ? " with the size file" : ""));
            sandbox::DeviceTree tree = OldSchemeDevice();
            tree.File("/dev/block/by-name/splash_odm", std::string(64, '\0'))
                    .File(kSizeFile, "500118192");
            std::vector<std::string> paths = reported;
            if (size_too) paths.push_back(kSizeFile);
            for (const std::string& path : paths) {
                if (kind == "dir") tree.Dir(path);
                if (kind == "fifo") tree.Fifo(path);
                if (kind == "socket") tree.Socket(path);
                if (kind == "dangling" || kind == "loop") {
                    tree.Symlink(path, kind == "loop" ? path : "/nowhere");
                }
            }
            sandbox::Outcome o = Boot(tree, [](sandbox::Context& ctx) {
                auto* impl = InitExtensionPropertyImpl::getInstance();
                PropertyMap map;
                impl->loadExtensionPartitionProperties(&map);
                ctx.sink()(0, map);
                Slot6(ctx);
                impl->loadCotaServiceOverrideProperties("mount_and_check_load", ctx.sink());
                impl->loadSimSwitchOverrideProperties("triggerLogoCopy/data/logo/logo.img",
                                                      ctx.sink());
            });
            ASSERT_DEVICE_RAN(o);  // no crash, no hang
            EXPECT_EQ(o.batches.front().props.at("ro.region.ok"), "1");
            EXPECT_EQ(BatchesOfKind(o, 0).back(), kSpecialBatch);
            if (kind != "dir" && kind != "socket") continue;  // the others count as missing or empty
            for (const std::string& path : reported) {
                if (size_too && path.find("devicename") != std::string::npos) continue;
                EXPECT_TRUE(o.HasLogContaining(path)) << path;
            }
            EXPECT_TRUE(o.HasLogContaining("Unable to write logo copy info file"));
        }
    }
}

// Property files that no build would ship, parsed in this process.
TEST(FaultsTest, HostilePropertyFiles) {
    TemporaryDir dir;
    auto write = [&](const std::string& name, const std::string& content) {
        const std::string path = std::string(dir.path) + "/" + name;
        EXPECT_TRUE(android::base::WriteStringToFile(content, path));
        return path;
    };
    auto load = [](const std::string& path) {
        PropertyMap map;
        EXPECT_TRUE(load_properties_from_file_without_se(path.c_str(), nullptr, &map));
        return map;
    };
    const std::string mib(1 << 20, 'v');
    EXPECT_EQ(load(write("nul", std::string("a=1\0junk\nb=2\n", 13))),
              (PropertyMap{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(load(write("cr", "a=1\rb=2\r")), (PropertyMap{{"a", "1\rb=2"}}));
    EXPECT_EQ(load(write("long", "l=" + mib + "\n")), (PropertyMap{{"l", mib}}));
    EXPECT_EQ(load(write("bytes", "n=\xff\xfe\x80\n")), (PropertyMap{{"n", "\xff\xfe\x80"}}));
    const std::string import_small = "import " + write("small", "s=1\n") + "\n";
    std::string imports;
    for (int i = 0; i < 100000; ++i) imports += import_small;
    EXPECT_EQ(load(write("imports", imports)), (PropertyMap{{"s", "1"}}));
    for (int i = 999; i >= 0; --i) {
        const std::string next = std::string(dir.path) + "/chain" + std::to_string(i + 1);
        write("chain" + std::to_string(i), "d" + std::to_string(i) + "=1\nimport " + next);
    }
    EXPECT_EQ(load(std::string(dir.path) + "/chain0").size(), 1000u);

    // A file that imports itself recurses until the stack runs out, as documented.
    static std::string self = write("self", std::string("import ") + dir.path + "/self\n");
    EXPECT_DEATH(
            {
                pthread_attr_t attr;
                pthread_attr_init(&attr);
                pthread_attr_setstacksize(&attr, 256 << 10);
                pthread_t thread;
                pthread_create(&thread, &attr, [](void*) -> void* {
                    PropertyMap map;
                    load_properties_from_file_without_se(self.c_str(), nullptr, &map);
                    return nullptr;
                }, nullptr);
                pthread_join(thread, nullptr);
            },
            "");
}

// Sector counts and ROM classes at and beyond their limits. (The COTA wait limit goes
// through GetIntProperty, whose fallbacks the property store tests cover.)
TEST(FaultsTest, IntegersAtTheirLimits) {
    struct Case { std::string size, rom; bool published; };
    for (const Case& c : std::vector<Case>{
                 {"", "256", false}, {"-", "256", false}, {"+", "256", false},
                 {"99999999999999999999", "256", false}, {"-500118192", "256", false},
                 {"500118192abc", "256", true}, {" 500118192", "0256", true},
                 {"500118192", "+256", false}, {"500118192", "99999999999999999999", false}}) {
        SCOPED_TRACE(c.size + " / " + c.rom);
        sandbox::Outcome o = Boot(
                sandbox::DeviceTree()
                        .File("/sys/block/sda/size", c.size)
                        .File("/my_product/cust//etc/devicename.cfg", "ROM=" + c.rom + "\nmarket=M\n"),
                [](sandbox::Context& ctx) { android::init::updateMarketName(ctx.sink()); });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.batches.size(), c.published ? 1u : 0u);
    }
}

}  // namespace
}  // namespace zelva_test
