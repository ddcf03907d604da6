// SPDX-License-Identifier: Apache-2.0
// The COTA bind thread reads the object's switch keys while host calls assign
// them (slots 6, 9 and 10). Built with ThreadSanitizer, any unsynchronised
// access to a key ends the sandbox child with a report, and the test fails.

#include <atomic>
#include <chrono>
#include <thread>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "ZelvaExtensionProperty.h"
#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

constexpr char kRequestSlot[] = "sys.cota.bind.load.properties";
constexpr char kRequestId[] = "sys.request.id";
constexpr int kRequests = 4;

// What the bind thread loads from the COTA image bound at /my_cota: its
// build.prop and the sets that the keys (set below) select.
const PropertyMap kCotaLoad = {
        {"cota.build", "1"}, {"cota.first", "1"}, {"cota.region", "1"}, {"cota.ssv", "1"}};

sandbox::DeviceTree CotaDevice() {
    sandbox::DeviceTree tree;
    tree.File("/c/build.prop", "cota.build=1\n")
            .File("/c/etc/build.opa-opb.prop", "cota.ssv=1\n")
            .File("/c/properties/first/SimSwitchFirstTime/a.prop", "cota.first=1\n")
            .File("/c/properties/region/regionSwitch/a.prop", "cota.region=1\n")
            .File("/my_carrier/properties/first/SimSwitchFirstTime/a.prop", "carrier.first=1\n")
            .Dir("/my_cota")
            .Dir("/data/cota");
    return tree;
}

// Posts request |id| for the bind thread; true when it was served (the slot
// set back to "null") within the time limit.
bool PostBootMount(int id) {
    const std::string request =
            "sys.cotaimg.verify=1\nsys.cota.load.properties=/c\n"
            "bind_point=/my_cota\n" +
            std::string(kRequestId) + "=" + std::to_string(id) + "\n";
    if (!android::base::WriteStringToFile(request, "/data/cota/cota_mount_info.prop")) return false;
    hostplatform::SetProperty(kRequestSlot, "boot_mount");
    for (auto waited = 0ms; waited < 30s; waited += 5ms) {
        if (hostplatform::GetProperty(kRequestSlot) == "null") return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

// Host threads call slots 6, 9 and 10 in a loop while the bind thread serves
// the requests; the host's own batches are not of interest here.
void ServeBesideHostCalls(sandbox::Context& ctx) {
    auto* impl = android::init::InitExtensionPropertyImpl::getInstance();
    const android::init::PropertySink discard = [](int, PropertyMap) {};
    impl->loadSimSwitchOverrideProperties(discard);  // the keys hold their values from here
    impl->loadCotaServiceOverrideProperties("check_mount", ctx.sink());

    std::atomic<bool> stop = false;
    std::vector<std::thread> hosts;
    hosts.emplace_back([&] {
        while (!stop) impl->loadPersistOverrideProperties(discard);
    });
    hosts.emplace_back([&] {
        while (!stop) impl->loadSimSwitchOverrideProperties(discard);
    });
    hosts.emplace_back([&] {
        while (!stop) impl->loadSimSwitchOverrideProperties("propertiesOverrideSwitch", discard);
    });
    int served = 0;
    for (int id = 0; id < kRequests; ++id) served += PostBootMount(id);
    stop = true;
    for (std::thread& host : hosts) host.join();
    hostplatform::SetProperty(kRequestSlot, "boot_mount_bind_complete");
    ctx.Note("served", std::to_string(served));
}

TEST(KeyMembersThreadTest, BindThreadServesRequestsWhileHostAssignsKeys) {
    sandbox::Options options;
    options.properties = {{"sys.sim.switch.first", "first"},
                          {"sys.sim.switch.current", "current"},
                          {"sys.region.switch.first", "region"},
                          {"persist.sys.zelva.operator.opta", "OPA"},
                          {"persist.sys.zelva.operator.optb", "OPB"},
                          {"ro.build.cota.mnt.wait.timeout", "100000"}};
    options.apply_batches = false;
    options.capture_tree = false;
    options.timeout = 240s;
    sandbox::Outcome o = RunInDevice(CotaDevice(), ServeBesideHostCalls, options);
    ASSERT_DEVICE_RAN(o);  // a ThreadSanitizer report ends the child
    EXPECT_EQ(o.notes["served"], std::to_string(kRequests));

    // Each request once, in order; each load made with whole keys.
    std::vector<std::string> request_ids;
    std::vector<PropertyMap> loads;
    for (const sandbox::Batch& batch : o.batches) {
        if (auto id = batch.props.find(kRequestId); id != batch.props.end()) {
            request_ids.push_back(id->second);
        } else {
            loads.push_back(batch.props);
        }
    }
    EXPECT_THAT(request_ids, ElementsAre("0", "1", "2", "3"));
    EXPECT_THAT(loads, SizeIs(kRequests));
    EXPECT_THAT(loads, Each(kCotaLoad));
}

}  // namespace
}  // namespace zelva_test
