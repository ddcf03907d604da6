// SPDX-License-Identifier: Apache-2.0
// The COTA bind thread that "check_mount" starts: it serves the boot requests posted in
// sys.cota.bind.load.properties beside the host's own calls, and ends on
// "boot_mount_bind_complete" or after its limit of empty polls.

#include <chrono>
#include <fstream>
#include <thread>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "hostplatform/property_store.h"
#include "switch_test_support.h"

namespace zelva_test {
namespace {

using namespace std::chrono_literals;
using hostplatform::SetProperty;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string kSlot = "sys.cota.bind.load.properties";
const std::string kStarted = "check cota bind mount start";
const std::string kGaveUp = "not need do cota bind mount cota timeoutValue= ";

// A verified image /c, a module /m and their bind points.
sandbox::DeviceTree BindDevice() {
    return sandbox::DeviceTree()
            .File("/c/build.prop", "ro.c=1\n")
            .Dir("/m")
            .Dir("/my_carrier")
            .Dir("/my_mod")
            .Dir("/data/cota");
}

sandbox::Outcome RunBindThread(const sandbox::Function& fn) {
    return RunDevice(BindDevice(),
                     {{"sys.cotaimg.verify", "1"}, {"sys.cota.load.properties", "/c"}}, fn);
}

// Starts a bind thread that gives up after |limit| empty polls, with |slot| posted.
void CheckMount(sandbox::Context& ctx, int limit, const std::string& slot) {
    SetProperty("ro.build.cota.mnt.wait.timeout", std::to_string(limit));
    SetProperty(kSlot, slot);
    Impl()->loadCotaServiceOverrideProperties("check_mount", ctx.sink());
}

// Posts |request| with new request files; true when the thread set the slot back to "null"
// within 5 s. (Host threads may read a file half written: they only race.)
bool Post(const std::string& request) {
    std::ofstream(kMountInfo) << "sys.cotaimg.verify=1\nsys.cota.load.properties=/c\n";
    std::ofstream(kModuleInfo) << "mount_point=/m\nmodule_type=x\nbind_point=/my_mod\n";
    SetProperty(kSlot, request);
    for (int i = 0; i < 2500; ++i, std::this_thread::sleep_for(2ms)) {
        if (hostplatform::GetProperty(kSlot) == "null") return true;
    }
    return false;
}

// The thread's own lines: its start and its giving up.
std::vector<LogRecord> ThreadLines(const sandbox::Outcome& o) {
    std::vector<LogRecord> lines;
    for (const LogRecord& record : LogRecords(o)) {
        if (record.message.find(" cota bind mount") != std::string::npos) lines.push_back(record);
    }
    return lines;
}

// "check_mount" returns at once: otherwise the thread would serve nothing here.
TEST(CotaThreadTest, ServesEachBootRequestOnceBesideHostCallsAndEndsOnComplete) {
    sandbox::Outcome o = RunBindThread([](sandbox::Context& ctx) {
        CheckMount(ctx, 5, "");
        ctx.Note("first served", Post("module_bind_single_boot") ? "yes" : "no");
        std::vector<std::thread> hosts;
        for (int t = 0; t < 8; ++t) {
            hosts.emplace_back([&ctx, t] {
                static const char* const kCommands[] = {"mount_and_check_load", "update_cota_info",
                                                        "module_bind_single", "bind_basic_point",
                                                        "bad"};
                for (int i = 0; i < 12; ++i) {
                    Impl()->loadCotaOverrideProperties(ctx.sink());
                    Impl()->loadCotaServiceOverrideProperties(kCommands[(t + i) % 5], ctx.sink());
                }
            });
        }
        int served = 0;
        for (int i = 0; i < 6; ++i) served += Post(i % 2 ? "boot_mount" : "bind_basic_point_boot");
        for (std::thread& host : hosts) host.join();
        ctx.Note("served beside hosts", std::to_string(served));
        SetProperty(kSlot, "boot_mount_bind_complete");
        std::this_thread::sleep_for(300ms);
        SetProperty(kSlot, "");  // an ended thread doesn't count these empty polls
        std::this_thread::sleep_for(1500ms);
    });
    ASSERT_DEVICE_RAN(o);  // under ThreadSanitizer a race report ends the child
    EXPECT_EQ(o.notes["first served"], "yes");
    const std::vector<MountCall> mounts = MountCalls(o);  // the first before the hosts started
    ASSERT_FALSE(mounts.empty());
    EXPECT_EQ(mounts.front(), CotaBind("/m", "/my_mod"));
    EXPECT_EQ(o.notes["served beside hosts"], "6");
    EXPECT_THAT(ThreadLines(o), ElementsAre(Info(kStarted)));
    EXPECT_THAT(LogRecords(o), Contains(Error("not valid cota mount bind command:bad")));
}

// "null", as after a handled request, is read again at once and not counted; each empty read
// waits 200 ms and counts.
TEST(CotaThreadTest, GivesUpAfterItsLimitOfEmptyPollsNotCountingNull) {
    sandbox::Outcome o = RunBindThread([](sandbox::Context& ctx) {
        CheckMount(ctx, 3, "null");
        std::this_thread::sleep_for(700ms);  // more than three polls' time
        ctx.SetStep("slot cleared");
        SetProperty(kSlot, "");
        const auto cleared = std::chrono::steady_clock::now();
        ctx.WaitForLog(kGaveUp + "3", 5s);
        const auto waited = std::chrono::steady_clock::now() - cleared;
        ctx.Note("ms waited",
                 std::to_string(
                         std::chrono::duration_cast<std::chrono::milliseconds>(waited).count()));
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(ThreadLines(o), ElementsAre(Info(kStarted), Info(kGaveUp + "3")));
    EXPECT_THAT(LogRecords(o, {.step = "slot cleared"}), Contains(Info(kGaveUp + "3")));
    EXPECT_GE(std::stoi(o.notes["ms waited"]), 590);  // three polls of 200 ms, less a margin
}

TEST(CotaThreadTest, LimitOfZeroEndsTheThreadAfterOneRead) {
    sandbox::Outcome o = RunBindThread([](sandbox::Context& ctx) {
        CheckMount(ctx, 0, "null");
        ctx.WaitForLog(kGaveUp + "0", 5s);
    });
    ASSERT_DEVICE_RAN(o);
    EXPECT_THAT(ThreadLines(o), ElementsAre(Info(kStarted), Info(kGaveUp + "0")));
}

// The example session binds the carrier image and a module at boot through the thread.
TEST(CotaThreadTest, ExampleSessionReplaysWithoutErrors) {
    const std::string example = ExamplesDir() + "/alder-eu", out = testing::TempDir() + "cota";
    const std::string run = std::string(ZELVA_SIMULATOR_PATH) + " boot --root " + example +
                            " --props " + example + ".props --script " + example +
                            "-cota-session.script >" + out + " 2>&1";
    ASSERT_EQ(system(run.c_str()), 0);
    std::string report;
    ASSERT_TRUE(android::base::ReadFileToString(out, &report));
    EXPECT_THAT(report, Not(HasSubstr(" E ")));  // no ERROR line
    EXPECT_THAT(report, HasSubstr(" + ro.zelva.cota.cust.region=EU\n"));
    EXPECT_THAT(report, HasSubstr(" = ro.zelva.cota.module.operator_config=2\n"));
}

}  // namespace
}  // namespace zelva_test
