// SPDX-License-Identifier: Apache-2.0
// The COTA bind thread that "check_mount" starts: it serves the boot requests
// posted in sys.cota.bind.load.properties beside the host's own calls.

#include <chrono>
#include <fstream>
#include <thread>

#include <android-base/file.h>

#include "cota_test_support.h"
#include "hostplatform/property_store.h"

namespace zelva_test {
namespace {

using namespace std::chrono_literals;
using hostplatform::SetProperty;

const std::string kSlot = "sys.cota.bind.load.properties";
const std::string kGaveUp = "not need do cota bind mount cota timeoutValue= ";
const char* const kCommands[] = {"mount_and_check_load", "update_cota_info", "module_bind_single",
                                 "bind_basic_point", "bad"};

// Posts |request| with new request files; '+' when the thread set the slot back to "null"
// within 5 s, '-' if not. (Host threads may read a file half written: they only race.)
char Post(const char* request) {
    std::ofstream(kMountInfo) << "sys.cotaimg.verify=1\nsys.cota.load.properties=/c\n";
    std::ofstream(kModuleInfo) << "mount_point=/m\nmodule_type=x\nbind_point=/my_mod\n";
    SetProperty(kSlot, request);
    for (int i = 0; i < 2500; ++i, std::this_thread::sleep_for(2ms)) {
        if (hostplatform::GetProperty(kSlot) == "null") return '+';
    }
    return '-';
}

// Three threads in turn, each in its own step. A (limit 5) serves each request once, also
// beside 8 host threads calling slots 7 and 12, and ends on "boot_mount_bind_complete": an
// empty slot afterwards doesn't make it time out. B (limit 3) reads "null" again without
// counting it, then gives up after 3 empty polls of 200 ms. C (limit 0) ends after one read.
// "check_mount" must return at once: A would serve nothing otherwise.
void ThreadStory(sandbox::Context& ctx) {
    auto check_mount = [&](const char* step, int limit, const char* slot) {
        ctx.SetStep(step);
        SetProperty("ro.build.cota.mnt.wait.timeout", std::to_string(limit));
        SetProperty(kSlot, slot);
        Impl()->loadCotaServiceOverrideProperties("check_mount", ctx.sink());
    };
    check_mount("A", 5, "");
    std::string served = Post("module_bind_single_boot") == '+' ? TakeMountCalls() : "-";
    std::vector<std::thread> hosts;
    for (int t = 0; t < 8; ++t) {
        hosts.emplace_back([&ctx, t] {
            for (int i = 0; i < 12; ++i) {
                Impl()->loadCotaOverrideProperties(ctx.sink());
                Impl()->loadCotaServiceOverrideProperties(kCommands[(t + i) % 5], ctx.sink());
            }
        });
    }
    for (int i = 0; i < 6; ++i) served += Post(i % 2 ? "boot_mount" : "bind_basic_point_boot");
    for (std::thread& host : hosts) host.join();
    SetProperty(kSlot, "boot_mount_bind_complete");
    std::this_thread::sleep_for(300ms);
    ctx.SetStep("A, slot cleared");
    SetProperty(kSlot, "");
    std::this_thread::sleep_for(1500ms);
    check_mount("B", 3, "null");
    std::this_thread::sleep_for(700ms);  // more than three polls' time
    ctx.SetStep("B, slot cleared");
    SetProperty(kSlot, "");
    const auto cleared = std::chrono::steady_clock::now();
    ctx.WaitForLog(kGaveUp + "3", 5s);
    served += std::chrono::steady_clock::now() - cleared < 590ms ? ", B too soon" : "";
    check_mount("C", 0, "null");
    ctx.WaitForLog(kGaveUp + "0", 5s);
    ctx.Note("served", served);
}

TEST(CotaThreadTest, BindThreadServesEndsOnCompleteOrItsLimitAndReplaysTheExampleSession) {
    sandbox::Outcome o = RunDevice("/c/build.prop=ro.c=1 /m/ /my_carrier/ /my_mod/ /data/cota/",
                                   "sys.cotaimg.verify=1 sys.cota.load.properties=/c", ThreadStory);
    ASSERT_DEVICE_RAN(o);  // under ThreadSanitizer a race report ends the child
    EXPECT_EQ(o.notes["served"], "/m>/my_mod 0x1485\n++++++");  // then 6 beside the hosts
    Lines story;  // the threads' own lines, in order, each with the step it came in
    for (const sandbox::LogRecord& r : o.logs) {
        if (r.message.find(" cota bind mount") != std::string::npos) {
            story.push_back(r.step + ": " + r.message);
        }
    }
    EXPECT_EQ(story, (Lines{"A: check cota bind mount start", "B: check cota bind mount start",
                            "B, slot cleared: " + kGaveUp + "3",
                            "C: check cota bind mount start", "C: " + kGaveUp + "0"}));
    EXPECT_TRUE(o.HasLog(android::base::ERROR, "not valid cota mount bind command:bad"));

    // The example session: the carrier image and a module bound at boot through the thread.
    std::string report, ex = ExamplesDir() + "/alder-eu", out = testing::TempDir() + "cota";
    const std::string run = std::string(ZELVA_SIMULATOR_PATH) + " boot --root " + ex + " --props " +
                            ex + ".props --script " + ex + "-cota-session.script >" + out + " 2>&1";
    ASSERT_EQ(system(run.c_str()), 0);
    ASSERT_TRUE(android::base::ReadFileToString(out, &report));
    EXPECT_EQ(report.find(" E "), std::string::npos) << report;  // no ERROR line
    EXPECT_NE(report.find(" + ro.zelva.cota.cust.region=EU\n"), std::string::npos) << report;
    EXPECT_NE(report.find(" = ro.zelva.cota.module.operator_config=2\n"), std::string::npos);
}

}  // namespace
}  // namespace zelva_test
