// SPDX-License-Identifier: Apache-2.0
// COTA: the composed display version name, the service commands (slot 12) with their one-shot
// request files, read-only binds and module directories. Slot 7 is in simswitch_test.cpp.

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "cota_test_support.h"
#include "utils.h"

static std::mutex g_mount_lock;
static std::string g_mount_calls;

// Replaces libc's mount() in the test binary: records the call, then makes it.
extern "C" int mount(const char* source, const char* target, const char* type, unsigned long flags,
                     const void* data) noexcept {
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

sandbox::Outcome RunDevice(const std::string& tree, const std::string& props,
                           const sandbox::Function& fn) {
    sandbox::DeviceTree device;
    for (auto [path, content] : P(tree)) {
        for (char& c : content) c = c == ';' ? '\n' : c;
        path.back() == '/' ? device.Dir(path) : device.File(path, content);
    }
    sandbox::Options options;
    options.properties = P(props);
    return RunInDevice(device, [&](sandbox::Context& ctx) {
        TakeMountCalls();
        fn(ctx);
        ctx.Note("mounts", TakeMountCalls());
    }, options);
}

namespace {

using android::init::loadCustomizeDisplayVersionName;

const std::string kDisplay = "ro.zelva.customize.display.version_name=";

// Rows: display, carrier and COTA version names; the display version sent ("": none,
// "abort": the process aborts); whether a "cota type " line is logged.
TEST(CotaTest, DisplayVersionComposition) {
    for (const Lines& c : std::vector<Lines>{{"X1PM", "", "X1_U_COTA_5", "X1CT_U005", "logged"},
                                             {"V1CT", "", "AB_12", "V1P_T012", "logged"},
                                             {"V1", "ABC-DEF-GH", "", "GH", ""},
                                             {"V1", "-GH", "_5", "-GH", ""},
                                             {"", "ABC-DEF-GH", "AB_7", "", ""},
                                             {"V", "", "AB_7", "abort", ""}}) {
        auto o = RunDevice("", kDisplay + c[0] + " ro.zelva.image.my_carrier.version_name=" + c[1] +
                                       " ro.build.cota.version_name=" + c[2],
                           [](auto& ctx) { loadCustomizeDisplayVersionName(ctx.sink()); });
        if (!o.unavailable.empty()) GTEST_SKIP() << o.unavailable;
        const bool plain = c[3].empty() || c[3] == "abort";
        EXPECT_EQ(o.signal ? "abort" : Sent(o), plain ? c[3] : "{" + kDisplay + c[3] + "}");
        EXPECT_EQ(o.HasLogContaining("cota type "), !c[4].empty());
    }
}

// Rows: the command, the request files it finds, the batches (image names without
// "ro.zelva.image.my_"), the mounts, the ERROR and "create path: " lines. Request files are
// gone afterwards: read once, deleted whatever happens.
TEST(CotaTest, ServiceCommandsBindAndLoad) {
    const std::string z = "ro.zelva.image.my_", info = std::string(kMountInfo) + "=";
    const std::string tree = "/my_carrier/ /my_mod/ /mnt/cota/ /c/build.prop=ro.a=1;" +
                             z + "bigball.version_name=V3 /m/build.prop=" + z +
                             "bigball.date.utc=1;" + z + "bigball.version_name=V-Co " +
                             "/c/cust/build.prop=ro.cust=1;" + z + "carrier.version_name=Own ";
    const std::string props = kSeed + " " + kDisplay + "V1PM ro.build.cota.version_name=AB_7 ";
    const std::string mod = std::string(kModuleInfo) + "=", bound = "/m>/my_mod 0x1485\n";
    const std::string module = mod + "mount_point=/m;bind_point=/my_mod;sys.r=1;ro.r=2;persist.r=3";
    const std::string load = info + "sys.cotaimg.verify=1;sys.cota.load.properties=/c;" +
                             "persisit.z=3;persist.w=4;other=5";
    const std::string fwd = " {persisit.z=3 sys.cota.load.properties=/c sys.cotaimg.verify=1}";
    const std::string raw = "{ro.a=1 ro.cust=1 bigball.version_name=V3 carrier.version_name=Own}";
    const std::string m = "{bigball.date.utc=1 carrier.date.utc=1 carrier.version_name=V-Co} ";
    const std::string x = "create path: /mnt/cota/x/y sub dir: /mnt/cota/x";
    struct Case {
        std::string call, input, sent, mounts = {};
        Lines logs = {};
    } cases[] = {
            {"update_cota_info", info + "sys.x=1", "{sys.x=1} {" + kDisplay + "V1P_T007}"},
            // Directory properties, special, display version, then the request's own entries.
            {"module_bind_single", module + ";module_type=configure",
             m + kSpecial + " {" + kDisplay + "Co_T007} {ro.r=2 sys.r=1}", bound},
            {"module_bind_single", module + ";module_type=Configure", "{ro.r=2 sys.r=1}", bound},
            {"module_bind_single", module, ""},
            {"module_bind_single", module + ";module_type=configure;bind_point=/no", "",
             "/m>/no 0x1485\n", {"bindCotaModuleMountPoint bind failed: -1"}},
            // The bigball version removed, the carrier version of cust/ kept.
            {"mount_and_check_load", load, "{ro.a=1 ro.cust=1 carrier.version_name=Own}" + fwd +
             " " + kSpecial + " {" + kDisplay + "Own_T007}", "/c>/my_carrier 0x1485\n"},
            // Other bind points: no renaming, no special, no display version.
            {"mount_must_load", load + ";bind_point=/my_mod", raw + fwd, "/c>/my_mod 0x1485\n"},
            // A failed bind loads from the source.
            {"mount_must_load", load + ";bind_point=/no", raw + fwd, "/c>/no 0x1485\n",
             {"cota bindAndLoadCotaOverrideProperties bind failed: -1"}},
            {"mount_must_load", load + ";bind_point=/c", raw + fwd},
            {"MOUNT_MUST_LOAD", "", "", "", {"not valid cota mount bind command:MOUNT_MUST_LOAD"}},
            // Module dirs made below the base (a plain prefix), parents first; the module bound,
            // then the sys./ro. entries forwarded. Then "/a", whose parent "" can't be made.
            {"bind_basic_point",
             mod + "mount_point=/m;module_type=x;bind_point=/mnt/cota/x/y;sys.m=1 " + info +
                     "sys.foo=1;ro.bar=2;persist.baz=3;my=/mnt/cota/x/y;extra=/mnt/cotaextra",
             "{sys.m=1} {ro.bar=2 sys.foo=1}", "/m>/mnt/cota/x/y 0x1485\n",
             {"cota module wrong dir 3", "create sub dir failed: ",
              "create path: /mnt/cotaextra sub dir: /mnt", x,
              "create path: /mnt/cota/x sub dir: /mnt/cota", x, "create path: /a sub dir: "}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call + ": " + c.input);
        const bool basic = c.call == "bind_basic_point";
        auto o = RunDevice(tree + c.input, props, [&](sandbox::Context& ctx) {
            umask(0);
            Impl()->loadCotaServiceOverrideProperties(c.call, ctx.sink());
            if (basic) ctx.Note("/a", std::to_string(createCotaDirectory("/a")));
        });
        ASSERT_DEVICE_RAN(o);
        std::string sent = Sent(o), made = o.notes["/a"];
        for (size_t at; (at = sent.find(z)) != std::string::npos;) sent.erase(at, z.size());
        EXPECT_EQ(sent, c.sent);
        EXPECT_EQ(o.notes["mounts"], c.mounts);
        Lines logs = o.Messages(android::base::ERROR);  // then the "create path: " lines
        for (const std::string& line : o.Messages(android::base::INFO)) {
            if (line.find("create path: ") == 0) logs.push_back(line);
        }
        EXPECT_EQ(logs, c.logs);
        EXPECT_FALSE(o.Exists(kMountInfo) || o.Exists(kModuleInfo));
        for (const char* dir : {"/mnt/cota/x", "/mnt/cota/x/y", "/mnt/cotaextra", "/a"}) {
            const sandbox::TreeEntry& e = o.tree[dir];  // "d": made 0755 root:root
            made += e.type == 'd' && e.mode == 0755 && e.uid + e.gid == 0 ? " d" : " -";
        }
        EXPECT_EQ(made, basic ? "-1 d d d -" : " - - - -");
    }
}

}  // namespace
}  // namespace zelva_test
