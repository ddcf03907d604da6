// The COTA bind thread that "check_mount" starts: it serves the boot requests
// posted in sys.cota.bind.load.properties beside the host's own calls.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include <android-base/file.h>

#include "cota_test_support.h"
#include "hostplatform/property_store.h"

namespace zelva_test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char kSlot[] = "sys.cota.bind.load.properties";
constexpr char kLimit[] = "ro.build.cota.mnt.wait.timeout";
constexpr char kStart[] = "check cota bind mount start";
constexpr char kGaveUp[] = "not need do cota bind mount cota timeoutValue= ";
constexpr char kCarrier[] = "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/cota/c\n";
constexpr char kModule[] = "mount_point=/mnt/cota/m\nmodule_type=x\nbind_point=/my_mod\n";

Clock::time_point g_check_mount;  // in the child: when "check_mount" was called

// Starts the bind thread with the wait limit |limit|, then runs |fn|.
sandbox::Outcome RunWithThread(int limit, const std::function<void(sandbox::Context&)>& fn,
                               PropertyMap props = {}, const char* request = nullptr) {
    sandbox::DeviceTree tree;
    tree.File("/mnt/cota/c/build.prop", "ro.cota.a=1\n").File("/mnt/cota/m/build.prop", "ro.m=1\n");
    tree.Dir("/my_carrier").Dir("/my_mod").Dir("/data/cota");
    if (request) tree.File(kMountInfo, request);
    props[kLimit] = std::to_string(limit);
    return RunDevice(tree, props, [&](sandbox::Context& ctx) {
        g_check_mount = Clock::now();
        Impl()->loadCotaServiceOverrideProperties("check_mount", ctx.sink());
        ctx.Note("return ms", std::to_string((Clock::now() - g_check_mount) / 1ms));
        ctx.Note("started", ctx.WaitForLog(kStart, 5s) ? "yes" : "no");
        fn(ctx);
        std::this_thread::sleep_for(300ms);  // the thread's last records reach the parent
    });
}

// Writes a request whole: readers on other threads may look at any moment.
void Write(const std::string& path, const std::string& content) {
    android::base::WriteStringToFile(content, path + ".new");
    rename((path + ".new").c_str(), path.c_str());
}

bool Post(const std::string& request) {
    hostplatform::SetProperty(kSlot, request);
    for (auto deadline = Clock::now() + 5s; Clock::now() < deadline;) {
        if (hostplatform::GetProperty(kSlot) == "null") return true;
        std::this_thread::sleep_for(2ms);
    }
    return false;
}

TEST(CotaThreadTest, WaitLimitCountsOnlyEmptyPolls) {
    struct Case {
        int limit;
        const char* preset;  // the slot when the thread starts
        long min_ms;         // when it gives up; -1: it must not ("complete" is set after 300 ms)
    } cases[] = {{3, "", 590}, {0, "", 190}, {-1, "", 190}, {0, "boot_mount", 0},
                 {1, "null", -1}, {1, "boot_mount_later", -1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.limit) + c.preset);
        auto wait = [&](sandbox::Context& ctx) {
            if (c.min_ms < 0) {
                std::this_thread::sleep_for(300ms);  // longer than one poll
                hostplatform::SetProperty(kSlot, "boot_mount_bind_complete");
            }
            ctx.WaitForLog(kGaveUp, c.min_ms < 0 ? 300ms : 10s);
            ctx.Note("ms", std::to_string((Clock::now() - g_check_mount) / 1ms));
        };
        sandbox::Outcome o = RunWithThread(c.limit, wait, {{kSlot, c.preset}}, kCarrier);
        ASSERT_DEVICE_RAN(o);
        EXPECT_EQ(o.notes["started"], "yes");
        EXPECT_EQ(o.HasLog(android::base::INFO, kGaveUp + std::to_string(c.limit)), c.min_ms >= 0);
        EXPECT_GE(std::stol(o.notes["ms"]), c.min_ms);
        EXPECT_LT(std::stol(o.notes["ms"]), c.min_ms + 3000);
        // A request found on the one read is still handled.
        const bool served = std::string(c.preset) == "boot_mount";
        EXPECT_EQ(o.Exists(kMountInfo), !served);
        EXPECT_TRUE(!served || o.properties[kSlot] == "null");
    }
}

TEST(CotaThreadTest, ServesBootRequestsUntilComplete) {
    sandbox::Outcome o = RunWithThread(1000, [](sandbox::Context& ctx) {
        const bool free = Impl()->mutex.try_lock();  // the thread takes no lock of the object
        if (free) Impl()->mutex.unlock();
        ctx.Note("mutex", free ? "free" : "held");
        Write(kMountInfo, kCarrier);
        std::string served = Post("boot_mount") ? "boot_mount" : "-";
        Write(kModuleInfo, kModule);
        served += Post("module_bind_single_boot") ? " module" : " -";
        Write(kMountInfo, "mod=/mnt/cota/new\n");
        Write(kModuleInfo, "mount_point=/mnt/cota/m\nmodule_type=x\nbind_point=/mnt/cota/new\n");
        served += Post("bind_basic_point_boot") ? " basic" : " -";
        ctx.Note("served", served);
        hostplatform::SetProperty(kSlot, "boot_mount_bind_complete");
        std::this_thread::sleep_for(1s);  // read within one poll
        // An ended thread serves nothing more.
        Write(kMountInfo, kCarrier);
        hostplatform::SetProperty(kSlot, "boot_mount");
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_LT(std::stol(o.notes["return ms"]), 1000);  // the limit allows 200 s of waiting
    EXPECT_EQ(o.notes["started"], "yes");
    EXPECT_EQ(o.notes["mutex"], "free");
    EXPECT_EQ(o.notes["served"], "boot_mount module basic");
    EXPECT_EQ(o.notes["mounts"], "/mnt/cota/c>/my_carrier 0x1485\n/mnt/cota/m>/my_mod 0x1485\n"
                                 "/mnt/cota/m>/mnt/cota/new 0x1485\n");
    EXPECT_EQ(o.FileContent("/my_carrier/build.prop"), "ro.cota.a=1\n");
    EXPECT_EQ(o.FileContent("/mnt/cota/new/build.prop"), "ro.m=1\n");
    EXPECT_EQ(o.properties["ro.cota.a"], "1");
    EXPECT_EQ(o.properties[kSlot], "boot_mount");
    EXPECT_TRUE(o.Exists(kMountInfo) && !o.Exists(kModuleInfo));
    EXPECT_FALSE(o.HasLogContaining(kGaveUp));
}

TEST(CotaThreadTest, HostCallsRunBesideTheBindThread) {
    constexpr int kHosts = 8, kRounds = 12, kRequests = 6;
    const char* commands[] = {"mount_and_check_load", "update_cota_info", "module_bind_single",
                              "bind_basic_point", "not_a_command"};
    sandbox::Outcome o = RunWithThread(
            1000,
            [&](sandbox::Context& ctx) {
                std::atomic<int> calls{0};
                std::vector<std::thread> hosts;
                for (int t = 0; t < kHosts; ++t) {
                    hosts.emplace_back([&, t] {
                        for (int i = 0; i < kRounds; ++i, calls += 2) {
                            Impl()->loadCotaOverrideProperties(ctx.sink());
                            Impl()->loadCotaServiceOverrideProperties(commands[(t + i) % 5],
                                                                      ctx.sink());
                        }
                    });
                }
                int served = 0;
                for (int i = 0; i < kRequests; ++i) {
                    Write(kMountInfo, kCarrier);
                    Write(kModuleInfo, kModule);
                    served += Post(i % 2 ? "boot_mount" : "bind_basic_point_boot");
                }
                for (std::thread& t : hosts) t.join();
                hostplatform::SetProperty(kSlot, "boot_mount_bind_complete");
                ctx.Note("calls", std::to_string(calls));
                ctx.Note("served", std::to_string(served));
            },
            {{"sys.cotaimg.verify", "1"}, {"sys.cota.load.properties", "/mnt/cota/c"}});
    ASSERT_DEVICE_RAN(o);  // under ThreadSanitizer a race report ends the child
    EXPECT_EQ(o.notes["calls"], std::to_string(kHosts * kRounds * 2));
    EXPECT_EQ(o.notes["served"], std::to_string(kRequests));
    EXPECT_TRUE(o.HasLog(android::base::ERROR, "not valid cota mount bind command:not_a_command"));
}

TEST(CotaThreadTest, ExampleSessionReplaysCleanly) {
    std::string why;
    if (!sandbox::Available(&why)) GTEST_SKIP() << why;
    const std::string ex = ExamplesDir(), out = testing::TempDir() + "cota-session.out";
    const std::string command = std::string(ZELVA_SIMULATOR_PATH) + " boot --root " + ex +
                                "/alder-eu --props " + ex + "/alder-eu.props --script " + ex +
                                "/alder-eu-cota-session.script >" + out + " 2>&1";
    ASSERT_EQ(system(command.c_str()), 0);
    std::string report;
    ASSERT_TRUE(android::base::ReadFileToString(out, &report));
    EXPECT_EQ(report.find(" E "), std::string::npos) << report;  // no ERROR line
    for (const char* bound : {" + ro.zelva.cota.cust.region=EU\n", " + sys.cota.module.count=1\n",
                              " = ro.zelva.cota.module.operator_config=2\n"}) {
        EXPECT_NE(report.find(bound), std::string::npos) << bound;
    }
}

}  // namespace
}  // namespace zelva_test
