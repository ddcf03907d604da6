// COTA: override properties (slot 7), the composed display version name, the
// one-shot request files, directory creation and the read-only binds.

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

#include "cota_test_support.h"
#include "hostplatform/property_store.h"
#include "utils.h"

namespace {
std::mutex g_mount_lock;
std::string g_mount_calls;
}  // namespace

// Replaces libc's mount() in the test binary: records the call, then makes it.
extern "C" int mount(const char* source, const char* target, const char* type,
                     unsigned long flags, const void* data) noexcept {
    char line[512];
    snprintf(line, sizeof(line), "%s>%s 0x%lx\n", source ? source : "", target, flags);
    std::lock_guard<std::mutex> guard(g_mount_lock);
    g_mount_calls += line;
    return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
}

namespace zelva_test {

std::string TakeMountCalls() {
    std::lock_guard<std::mutex> guard(g_mount_lock);
    return std::exchange(g_mount_calls, "");
}

namespace {

using android::base::ERROR;
using android::base::INFO;
using Batches = std::vector<PropertyMap>;

const PropertyMap kCarrierV = {{"ro.zelva.image.my_carrier.version_name", "V3-Cota"}};

sandbox::Outcome RunCommand(const sandbox::DeviceTree& tree, const std::string& command) {
    PropertyMap props = Merge({{kDisplay, "V1PM"}, {"ro.build.cota.version_name", "AB_7"},
                               {"persist.sys.customize.media", "/system/media"}},
                              kSpecialSeed);
    return RunDevice(tree, props, [&](sandbox::Context& ctx) {
        Impl()->loadCotaServiceOverrideProperties(command, ctx.sink());
    });
}

TEST(CotaTest, OverridePropertiesNeedAVerifiedImageAndRenameBigball) {
    const std::string bigball = "ro.zelva.image.my_bigball.date.utc=1\n"
                                "ro.zelva.image.my_bigball.version_name=V3-Cota\n";
    const PropertyMap loaded = {{"ro.zelva.image.my_bigball.date.utc", "1"}, {"sim.first", "1"}};
    const std::string own = "ro.zelva.image.my_carrier.version_name=Own\n"
                            "ro.zelva.image.my_carrier.date.utc=7";
    auto props = [](const char* verify, const char* dir) {
        return PropertyMap{{"sys.cotaimg.verify", verify}, {"sys.cota.load.properties", dir}};
    };
    struct Case {
        PropertyMap props;
        std::string build_prop;  // of the COTA directory
        Batches sent;
    } cases[] = {
            {props("10", "/c"), bigball, {}},
            {props("1", "0"), bigball, {}},
            {props("1", "0abc"), bigball, {{{"from.0abc", "1"}}, kSpecialBatch}},
            // The special properties see the carrier version name that the host has just set.
            {props("1", "/c"), bigball,
             {Merge(Merge(loaded, kCarrierV), {{"ro.zelva.image.my_carrier.date.utc", "1"}}),
              kSpecialBatch, {{kDisplay, "Cota"}}}},
            {props("1", "/c"), bigball + own,
             {Merge(loaded, {{"ro.zelva.image.my_carrier.date.utc", "7"},
                             {"ro.zelva.image.my_carrier.version_name", "Own"}}),
              kSpecialBatch, {{kDisplay, "Own"}}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.props) + c.build_prop);
        sandbox::DeviceTree tree;
        tree.File("/0abc/build.prop", "from.0abc=1\n").File("/c/build.prop", c.build_prop);
        tree.File("/c/properties/vf/SimSwitchFirstTime/s.prop", "sim.first=1\n");
        auto load = [](sandbox::Context& ctx) {
            Impl()->simSwitchFirstKey = "vf";
            Impl()->loadCotaOverrideProperties(ctx.sink());
        };
        sandbox::Outcome o = RunDevice(tree, Merge(c.props, kSpecialSeed), load);
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(Sent(o), c.sent);
    }
}

TEST(CotaTest, DisplayVersionComposition) {
    struct Case {
        const char *display, *carrier, *cota, *expected;  // expected nullptr: nothing sent
        const char* info;  // the "cota type" line's middle; nullptr: no such line; "": unchecked
    } cases[] = {
            {"AX1EU_14.0.2.100PM", "", "X1_U_COTA_5", "AX1EU_14.0.2.100CT_U005",
             "CT android version: U cota version: 005"},
            {"V1PM", "", "AB_7", "V1P_T007", "P android version: T cota version: 007"},
            {"V1CT", "", "AB_12", "V1P_T012", ""},
            {"V1XY", "", "X1_U_COTA_5", "V1XY_U005", ""},
            {"V1", "", "A_B_C_1234", "V1_B1234", ""},
            {"V1PM", "", "X_COTA_5", "V1CT_T005", ""},
            {"V1", "ABC-DEF-GH", "", "GH", nullptr},
            {"V1", "-GH", "_5", "-GH", nullptr},
            {"V1", "", "AB", "V1", nullptr},
            {"", "ABC-DEF-GH", "AB_7", nullptr, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.display) + " / " + c.carrier + " / " + c.cota);
        hostplatform::ResetProperties();
        hostplatform::SetProperty(kDisplay, c.display);
        hostplatform::SetProperty("ro.zelva.image.my_carrier.version_name", c.carrier);
        hostplatform::SetProperty("ro.build.cota.version_name", c.cota);
        Batches sent, expected;
        LogCapture log;
        android::init::loadCustomizeDisplayVersionName([&](int kind, PropertyMap props) {
            EXPECT_EQ(kind, 0);
            sent.push_back(props);
        });
        if (c.expected) expected.push_back({{kDisplay, c.expected}});
        EXPECT_EQ(sent, expected);
        const std::vector<LogLine>& lines = log.lines();
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](auto& l) { return l.message.rfind("cota type ", 0) == 0; }),
                  c.info ? 1 : 0);
        EXPECT_TRUE(!c.info || !*c.info ||
                    log.Has(INFO, std::string("cota type ") + c.info + " display version: " +
                                          c.expected));
        EXPECT_EQ(log.Has(INFO, std::string("carrier version ") + c.carrier),
                  *c.carrier && *c.display);
    }
}

TEST(CotaTest, OneCharacterDisplayVersionEndsTheProcess) {
    sandbox::Outcome o = RunDevice({}, {{kDisplay, "V"}, {"ro.build.cota.version_name", "AB_7"}},
                                   [](sandbox::Context& ctx) {
                                       android::init::loadCustomizeDisplayVersionName(ctx.sink());
                                   });
    if (!o.unavailable.empty()) GTEST_SKIP() << o.unavailable;
    EXPECT_TRUE(o.ran);
    EXPECT_NE(o.signal, 0) << o.Describe();
    EXPECT_TRUE(o.batches.empty());
}

TEST(CotaTest, BasicRequestPreparesModuleDirsThenBindsAndForwards) {
    const std::string info = kMountInfo;
    sandbox::DeviceTree tree;
    tree.File("/mnt/cota/src/content", "module").File("/mnt/cota/file", "x");
    tree.File(kModuleInfo, "mount_point=/mnt/cota/src\nmodule_type=x\nbind_point=/mnt/cota/x/y\n"
                           "sys.m=1\n");
    sandbox::Outcome o = RunCommand(tree.Dir("/data/system/customize"), "bind_basic_point");
    ASSERT_DEVICE_RAN(o);  // without the total module info the module request waits
    EXPECT_TRUE(o.HasLog(ERROR, "not valid cota total module info file: " + info));
    EXPECT_TRUE(o.Exists(kModuleInfo));
    EXPECT_EQ(o.notes["mounts"], "");

    tree.File(kMountInfo, "sys.foo=1\nro.bar=2\npersist.baz=3\nmy_mod=/mnt/cota/x/y\n"
                          "extra=/mnt/cotaextra\ndatamod=/data/system/customize/m\n"
                          "wrong=/tmp/elsewhere\nbroken=/mnt/cota/file/sub\n");
    o = RunCommand(tree, "bind_basic_point");
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.notes["mounts"], "/mnt/cota/src>/mnt/cota/x/y 0x1485\n");
    EXPECT_EQ(o.FileContent("/mnt/cota/x/y/content"), "module");
    EXPECT_EQ(Sent(o), (Batches{{{"sys.m", "1"}}, {{"ro.bar", "2"}, {"sys.foo", "1"}}}));
    EXPECT_TRUE(o.HasLog(INFO, "bind cota module: persist.baz mount point: 3"));
    EXPECT_TRUE(o.HasLog(ERROR, "cota module wrong dir 3"));
    EXPECT_TRUE(o.HasLog(ERROR, "cota module wrong dir /tmp/elsewhere"));
    EXPECT_TRUE(o.HasLog(ERROR, "cota creat dir /mnt/cota/file/sub failed"));
    EXPECT_TRUE(o.Exists("/mnt/cotaextra") && o.Exists("/data/system/customize/m"));
    EXPECT_FALSE(o.Exists("/tmp/elsewhere") || o.Exists(kMountInfo) || o.Exists(kModuleInfo));
}

TEST(CotaTest, CreateCotaDirectoryMakesMissingParents) {
    sandbox::Outcome o = RunDevice(sandbox::DeviceTree().Dir("/mnt/cota"), {}, [](auto& ctx) {
        umask(022);
        for (const char* path : {"/mnt/cota/x/y", "/a", "/mnt/cota"}) {
            ctx.Note(path, std::to_string(createCotaDirectory(path)));
        }
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.notes, (PropertyMap{{"/mnt/cota/x/y", "0"}, {"/a", "-1"}, {"/mnt/cota", "-1"},
                                    {"mounts", ""}}));
    std::vector<std::string> lines;
    for (const sandbox::LogRecord& r : o.logs) {
        if (r.message.rfind("create path: ", 0) == 0) lines.push_back(r.message);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"create path: /mnt/cota/x/y sub dir: /mnt/cota/x",
                                               "create path: /mnt/cota/x sub dir: /mnt/cota",
                                               "create path: /mnt/cota/x/y sub dir: /mnt/cota/x",
                                               "create path: /a sub dir: ",
                                               "create path: /mnt/cota sub dir: /mnt"}));
    EXPECT_TRUE(o.HasLog(ERROR, "create sub dir failed: ") && !o.Exists("/a"));
    EXPECT_TRUE(o.HasLog(ERROR, "make dir failed: /mnt/cota"));
    for (const char* dir : {"/mnt/cota/x", "/mnt/cota/x/y"}) {
        EXPECT_EQ(o.tree[dir].mode, 0755u) << dir;
        EXPECT_TRUE(geteuid() != 0 || o.tree[dir].uid + o.tree[dir].gid == 0u) << dir;
    }
}

// Each request file is read once and deleted, whatever happens next.
TEST(CotaTest, ServiceCommandsActOnTheirRequests) {
    const std::string load = "sys.cotaimg.verify=1\nsys.cota.load.properties=/c\nsys.cota.x=1\n"
                             "persisit.cota.z=3\npersist.cota.w=4\nother=5\n";
    const PropertyMap forward = {{"persisit.cota.z", "3"}, {"sys.cota.load.properties", "/c"},
                                 {"sys.cota.x", "1"}, {"sys.cotaimg.verify", "1"}};
    const PropertyMap raw = {{"ro.a", "1"}, {"ro.cust", "1"},
                             {"ro.sys.custommedia.sourcepath", "/my_product/media"},
                             {"ro.zelva.image.my_bigball.version_name", "V3-Cota"}};
    PropertyMap renamed = Merge(raw, kCarrierV);
    renamed.erase("ro.zelva.image.my_bigball.version_name");
    const std::string media = "/my_product/media>/system/media 0x5000\n";
    const std::string module = "mount_point=/m\nbind_point=/my_mod\nsys.r=1\nro.r=2\npersist.r=3\n";
    const PropertyMap mod_forward = {{"ro.r", "2"}, {"sys.r", "1"}};
    const PropertyMap cota_display = {{kDisplay, "Cota_T007"}};
    const std::string same = "sys.cotaimg.verify=1\nsys.cota.load.properties=/my_carrier";
    const std::string info = kMountInfo;
    struct Case {
        std::string command;
        std::optional<std::string> request;  // of the command's request file
        std::string mounts;
        Batches sent;
        std::string error;
        const char* bound_file;  // visible through the bind afterwards
    } cases[] = {
            {"update_cota_info", "ro.zelva.image.my_carrier.version_name=V3-Cota\nsys.cota.x=1", "",
             {Merge(kCarrierV, {{"sys.cota.x", "1"}}), cota_display}, "", nullptr},
            {"update_cota_info", "# nothing\n", "", {}, "", nullptr},
            {"update_cota_info", "->", "", {}, "cota info prop load failed:" + info, nullptr},
            {"update_cota_info", std::nullopt, "", {},
             "not valid cota mount info file: " + info, nullptr},
            // Directory properties, special, display version, then the request's own entries.
            {"module_bind_single", "module_type=configure\n" + module, "/m>/my_mod 0x1485\n",
             {Merge({{"ro.m", "1"}}, kCarrierV), kSpecialBatch, cota_display, mod_forward}, "",
             "/my_mod/build.prop"},
            {"module_bind_single", "module_type=Configure\n" + module, "/m>/my_mod 0x1485\n",
             {mod_forward}, "", "/my_mod/build.prop"},
            {"module_bind_single", module, "", {}, "", nullptr},
            {"module_bind_single", "module_type=configure\nmount_point=/m\nbind_point=/no\nsys.r=1",
             "/m>/no 0x1485\n", {}, "bindCotaModuleMountPoint bind failed: -1", nullptr},
            {"module_bind_single", "->", "", {},
             "cota module info prop load failed:" + std::string(kModuleInfo), nullptr},
            {"mount_and_check_load", load, "/c>/my_carrier 0x1485\n" + media,
             {renamed, forward, kSpecialBatch, cota_display}, "", "/my_carrier/cust/build.prop"},
            // Other bind points: no renaming, no special, no display version.
            {"mount_must_load", load + "bind_point=/my_other", "/c>/my_other 0x1485\n" + media,
             {raw, forward}, "", "/my_other/cust/build.prop"},
            // A failed bind loads from the source.
            {"mount_must_load", load + "bind_point=/no", "/c>/no 0x1485\n" + media, {raw, forward},
             "cota bindAndLoadCotaOverrideProperties bind failed: -1", nullptr},
            {"mount_and_check_load", same, "",
             {{{"ro.orig", "1"}},
              {{"sys.cota.load.properties", "/my_carrier"}, {"sys.cotaimg.verify", "1"}},
              kSpecialBatch, {{kDisplay, "V1P_T007"}}},
             "", nullptr},
            {"MOUNT_MUST_LOAD", load, "", {}, "not valid cota mount bind command:MOUNT_MUST_LOAD",
             nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command + ": " + c.request.value_or("(none)"));
        const char* file = c.command == "module_bind_single" ? kModuleInfo : kMountInfo;
        sandbox::DeviceTree tree;
        tree.File("/c/build.prop", "ro.a=1\nro.zelva.image.my_bigball.version_name=V3-Cota\n"
                                   "ro.sys.custommedia.sourcepath=/my_product/media\n")
                .File("/c/cust/build.prop", "ro.cust=1\n")
                .File("/m/build.prop", "ro.m=1\nro.zelva.image.my_bigball.version_name=V3-Cota\n")
                .File("/my_carrier/build.prop", "ro.orig=1\n")
                .File("/my_product/media/ring.ogg", "ogg");
        tree.Dir("/my_mod").Dir("/my_other").Dir("/system/media");
        AddRequest(&tree, file, c.request);
        sandbox::Outcome o = RunCommand(tree, c.command);
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.notes["mounts"], c.mounts);
        EXPECT_EQ(Sent(o), c.sent);
        EXPECT_TRUE(c.error.empty() || o.HasLog(ERROR, c.error));
        EXPECT_EQ(o.Exists(file), c.command == "MOUNT_MUST_LOAD");
        EXPECT_TRUE(!c.bound_file || o.FileContent(c.bound_file).has_value());
    }
}

}  // namespace
}  // namespace zelva_test
