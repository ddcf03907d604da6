// SPDX-License-Identifier: Apache-2.0
// COTA: the composed display version name and the service commands (slot 12) with their
// one-shot request files, read-only binds and module directories. Slot 7 is in
// simswitch_test.cpp, the bind thread in cota_thread_test.cpp.

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>
#include <sstream>

#include <gmock/gmock.h>

#include "switch_test_support.h"
#include "utils.h"

static std::mutex g_mount_lock;
static std::vector<zelva_test::MountCall> g_mount_calls;

// Replaces libc's mount() in the test binary: records the call, then makes it.
extern "C" int mount(const char* source, const char* target, const char* type, unsigned long flags,
                     const void* data) noexcept {
    {
        std::lock_guard<std::mutex> guard(g_mount_lock);
        g_mount_calls.push_back({source ? source : "", target, flags});
    }
    return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
}

namespace zelva_test {

std::vector<MountCall> TakeMountCalls() {
    std::lock_guard<std::mutex> guard(g_mount_lock);
    return std::exchange(g_mount_calls, {});
}

// The calls travel to the parent as one note (when there are any), a line each for source,
// target and flags.
sandbox::Outcome RunDevice(const sandbox::DeviceTree& tree, PropertyMap props,
                           const sandbox::Function& fn) {
    return RunInDevice(tree,
                       [&](sandbox::Context& ctx) {
                           Impl();
                           ctx.SetStep(kCall);
                           TakeMountCalls();
                           fn(ctx);
                           std::string calls;
                           for (const MountCall& call : TakeMountCalls()) {
                               calls += call.source + "\n" + call.target + "\n" +
                                        std::to_string(call.flags) + "\n";
                           }
                           if (!calls.empty()) ctx.Note("mounts", calls);
                       },
                       {.properties = std::move(props)});
}

std::vector<MountCall> MountCalls(const sandbox::Outcome& outcome) {
    std::vector<MountCall> calls;
    const auto it = outcome.notes.find("mounts");
    std::istringstream in(it == outcome.notes.end() ? "" : it->second);
    for (MountCall call; std::getline(in, call.source) && std::getline(in, call.target);) {
        std::string flags;
        std::getline(in, flags);
        call.flags = std::stoul(flags);
        calls.push_back(call);
    }
    return calls;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kDisplay = "ro.zelva.customize.display.version_name";
const std::string kCarrierVersion = "ro.zelva.image.my_carrier.version_name";
const std::string kCotaVersion = "ro.build.cota.version_name";

SentBatch DisplayVersion(const std::string& version) {
    return Ordinary({{kDisplay, version}});
}

TEST(CotaTest, DisplayVersionIsComposedFromTheCarrierAndCotaVersions) {
    const struct {
        std::string display, carrier_version, cota_version;
        std::vector<SentBatch> sent;
        std::vector<LogRecord> logs;
    } cases[] = {
            {.display = "X1PM",
             .cota_version = "X1_U_COTA_5",
             .sent = {DisplayVersion("X1CT_U005")},
             .logs = {Info("cota type CT android version: U cota version: 005 display version: "
                           "X1CT_U005")}},
            {.display = "V1CT",
             .cota_version = "AB_12",
             .sent = {DisplayVersion("V1P_T012")},
             .logs = {Info("cota type P android version: T cota version: 012 display version: "
                           "V1P_T012")}},
            {.display = "V1",
             .carrier_version = "ABC-DEF-GH",
             .sent = {DisplayVersion("GH")},
             .logs = {Info("carrier version ABC-DEF-GH")}},
            {.display = "V1",
             .carrier_version = "-GH",
             .cota_version = "_5",
             .sent = {DisplayVersion("-GH")},
             .logs = {Info("carrier version -GH")}},
            {.carrier_version = "ABC-DEF-GH", .cota_version = "AB_7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.display + " / " + c.carrier_version + " / " + c.cota_version);
        sandbox::Outcome o =
                RunDevice(sandbox::DeviceTree(),
                          {{kDisplay, c.display},
                           {kCarrierVersion, c.carrier_version},
                           {kCotaVersion, c.cota_version}},
                          [](sandbox::Context& ctx) {
                              android::init::loadCustomizeDisplayVersionName(ctx.sink());
                          });
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(SentBatches(o), c.sent);
        EXPECT_EQ(LogRecords(o), c.logs);
    }
}

// Deliberately unguarded: the last two characters of a one-character display version.
TEST(CotaTest, OneCharacterDisplayVersionAbortsTheProcess) {
    sandbox::Outcome o = RunDevice(sandbox::DeviceTree(), {{kDisplay, "V"}, {kCotaVersion, "AB_7"}},
                                   [](sandbox::Context& ctx) {
                                       android::init::loadCustomizeDisplayVersionName(ctx.sink());
                                   });
    SKIP_WITHOUT_SANDBOX(o.unavailable);
    EXPECT_EQ(o.signal, SIGABRT) << o.Describe();
    EXPECT_THAT(SentBatches(o), IsEmpty());
}

// A COTA image /c (with a cust/ part) and a module /m, each naming its version as a bigball
// image, and the bind points /my_carrier and /my_mod.
sandbox::DeviceTree CotaDevice() {
    return sandbox::DeviceTree()
            .Dir("/my_carrier")
            .Dir("/my_mod")
            .Dir("/mnt/cota")
            .File("/c/build.prop", "ro.a=1\nro.zelva.image.my_bigball.version_name=V3\n")
            .File("/c/cust/build.prop", "ro.cust=1\n" + kCarrierVersion + "=Own\n")
            .File("/m/build.prop",
                  "ro.zelva.image.my_bigball.date.utc=1\n"
                  "ro.zelva.image.my_bigball.version_name=V-Co\n");
}

// Runs service command |command| on |tree|, with the display version V1PM and the COTA
// version AB_7 set.
sandbox::Outcome Command(const std::string& command, const sandbox::DeviceTree& tree) {
    return RunDevice(tree, With(kSpecialSeed, {{kDisplay, "V1PM"}, {kCotaVersion, "AB_7"}}),
                     [&](sandbox::Context& ctx) {
                         umask(0);
                         Impl()->loadCotaServiceOverrideProperties(command, ctx.sink());
                     });
}

// The request files are read once: none is left after any command.
TEST(CotaServiceTest, CommandsBindAndSendWhatTheirRequestsAsk) {
    const std::string module = "mount_point=/m\nbind_point=/my_mod\nsys.r=1\nro.r=2\npersist.r=3\n";
    const SentBatch module_entries = Ordinary({{"ro.r", "2"}, {"sys.r", "1"}});
    // A verified image /c; of its entries only "sys.", "ro." and (so spelt) "persisit." go on.
    const std::string image =
            "sys.cotaimg.verify=1\nsys.cota.load.properties=/c\npersisit.z=3\npersist.w=4\nx=5\n";
    const SentBatch forwarded = Ordinary(
            {{"persisit.z", "3"}, {"sys.cota.load.properties", "/c"}, {"sys.cotaimg.verify", "1"}});
    // The image's properties as they stand, under any bind point but /my_carrier.
    const SentBatch image_as_it_is = Ordinary({{"ro.a", "1"},
                                               {"ro.cust", "1"},
                                               {"ro.zelva.image.my_bigball.version_name", "V3"},
                                               {kCarrierVersion, "Own"}});
    const struct {
        std::string behaviour, command;
        std::map<std::string, std::string> requests;  // request file -> content
        std::vector<MountCall> mounts;
        std::vector<SentBatch> sent;
        std::vector<LogRecord> errors;
    } cases[] = {
            {.behaviour = "the info file is forwarded, then the display version composed",
             .command = "update_cota_info",
             .requests = {{kMountInfo, "sys.x=1\n"}},
             .sent = {Ordinary({{"sys.x", "1"}}), DisplayVersion("V1P_T007")}},
            {.behaviour = "a configure module: its properties, special, display, its entries",
             .command = "module_bind_single",
             .requests = {{kModuleInfo, module + "module_type=configure\n"}},
             .mounts = {CotaBind("/m", "/my_mod")},
             .sent = {Ordinary({{"ro.zelva.image.my_bigball.date.utc", "1"},
                                {"ro.zelva.image.my_carrier.date.utc", "1"},
                                {kCarrierVersion, "V-Co"}}),
                      kSpecialBatch, DisplayVersion("Co_T007"), module_entries}},
            {.behaviour = "a module of another type: its entries only",
             .command = "module_bind_single",
             .requests = {{kModuleInfo, module + "module_type=Configure\n"}},
             .mounts = {CotaBind("/m", "/my_mod")},
             .sent = {module_entries}},
            {.behaviour = "a module without a type is not bound",
             .command = "module_bind_single",
             .requests = {{kModuleInfo, module}}},
            {.behaviour = "a failed module bind sends nothing",
             .command = "module_bind_single",
             .requests = {{kModuleInfo, module + "module_type=configure\nbind_point=/no\n"}},
             .mounts = {CotaBind("/m", "/no")},
             .errors = {Error("bindCotaModuleMountPoint bind failed: -1")}},
            {.behaviour = "the carrier image: renamed, forwarded, special, display version",
             .command = "mount_and_check_load",
             .requests = {{kMountInfo, image}},
             .mounts = {CotaBind("/c", "/my_carrier")},
             .sent = {Ordinary({{"ro.a", "1"}, {"ro.cust", "1"}, {kCarrierVersion, "Own"}}),
                      forwarded, kSpecialBatch, DisplayVersion("Own_T007")}},
            {.behaviour = "an image bound elsewhere is sent as it is",
             .command = "mount_must_load",
             .requests = {{kMountInfo, image + "bind_point=/my_mod\n"}},
             .mounts = {CotaBind("/c", "/my_mod")},
             .sent = {image_as_it_is, forwarded}},
            {.behaviour = "an image whose bind fails is loaded from its source",
             .command = "mount_must_load",
             .requests = {{kMountInfo, image + "bind_point=/no\n"}},
             .mounts = {CotaBind("/c", "/no")},
             .sent = {image_as_it_is, forwarded},
             .errors = {Error("cota bindAndLoadCotaOverrideProperties bind failed: -1")}},
            {.behaviour = "an image that is its own bind point is loaded unmounted",
             .command = "mount_must_load",
             .requests = {{kMountInfo, image + "bind_point=/c\n"}},
             .sent = {image_as_it_is, forwarded}},
            {.behaviour = "commands are matched whole and case-sensitive",
             .command = "MOUNT_MUST_LOAD",
             .errors = {Error("not valid cota mount bind command:MOUNT_MUST_LOAD")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.behaviour);
        sandbox::DeviceTree tree = CotaDevice();
        for (const auto& [path, content] : c.requests) tree.File(path, content);
        sandbox::Outcome o = Command(c.command, tree);
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(MountCalls(o), c.mounts);
        EXPECT_EQ(SentBatches(o), c.sent);
        EXPECT_EQ(LogRecords(o, {.min_severity = android::base::ERROR}), c.errors);
        EXPECT_FALSE(o.Exists(kMountInfo) || o.Exists(kModuleInfo));
    }
}

// Module directories are made below the base (a plain prefix: /mnt/cotaextra counts), parents
// first, each as root's 0755; then the module is bound and its entries and the request's own
// "sys."/"ro." entries are sent.
TEST(CotaServiceTest, BasicPointMakesModuleDirectoriesThenBindsTheModule) {
    sandbox::Outcome o = Command(
            "bind_basic_point",
            CotaDevice()
                    .File(kModuleInfo,
                          "mount_point=/m\nmodule_type=x\nbind_point=/mnt/cota/x/y\nsys.m=1\n")
                    .File(kMountInfo,
                          "sys.foo=1\nro.bar=2\npersist.baz=3\n"
                          "my=/mnt/cota/x/y\nextra=/mnt/cotaextra\n"));
    ASSERT_DEVICE_RAN(o);
    for (const char* dir : {"/mnt/cota/x", "/mnt/cota/x/y", "/mnt/cotaextra"}) {
        const sandbox::TreeEntry& made = o.tree[dir];  // a directory of root's, mode 0755
        EXPECT_EQ(std::tuple(made.type, made.mode & 07777, made.uid, made.gid),
                  std::tuple('d', 0755u, 0u, 0u))
                << dir;
    }
    EXPECT_THAT(MountCalls(o), ElementsAre(CotaBind("/m", "/mnt/cota/x/y")));
    EXPECT_THAT(SentBatches(o), ElementsAre(Ordinary({{"sys.m", "1"}}),
                                            Ordinary({{"ro.bar", "2"}, {"sys.foo", "1"}})));
    // Entries in name order; "persist." is no property prefix here, so 3 is a module directory.
    const std::string deepest = "create path: /mnt/cota/x/y sub dir: /mnt/cota/x";
    EXPECT_THAT(LogRecords(o, {.step = kCall, .parser = true}),
                ElementsAre(Info("bind cota module: extra mount point: /mnt/cotaextra"),
                            Info("create path: /mnt/cotaextra sub dir: /mnt"),
                            Info("bind cota module: my mount point: /mnt/cota/x/y"), Info(deepest),
                            Info("create path: /mnt/cota/x sub dir: /mnt/cota"), Info(deepest),
                            Info("bind cota module: persist.baz mount point: 3"),
                            Error("cota module wrong dir 3"),
                            Info("cota module bind from: /m to: /mnt/cota/x/y")));
    EXPECT_FALSE(o.Exists(kMountInfo) || o.Exists(kModuleInfo));
}

// The parent of /a is "", which can't be made: there is deliberately no case for the root.
TEST(CotaServiceTest, DirectChildOfTheRootCannotBeMade) {
    sandbox::Outcome o = RunDevice(sandbox::DeviceTree(), {}, [](sandbox::Context& ctx) {
        ctx.Note("result", std::to_string(createCotaDirectory("/a")));
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_EQ(o.notes["result"], "-1");
    EXPECT_FALSE(o.Exists("/a"));
    EXPECT_THAT(LogRecords(o, {.step = kCall, .parser = true}),
                ElementsAre(Info("create path: /a sub dir: "), Error("create sub dir failed: ")));
}

}  // namespace
}  // namespace zelva_test
