// SPDX-License-Identifier: Apache-2.0
// The whole persist override pipeline (slot 6) on a device tree built from the
// input: files under the library's fixed paths and the system properties it
// reads. The fuzzer enters the device-root sandbox once, in its own process,
// so coverage stays visible; each input gets a fresh tree, store and object.
//
// Input: lines "f<N> <content>" (file N of kFiles, "\n" for a line feed) and
// "p<N> <value>" (property N of kProperties); anything else is ignored.

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "hostplatform/property_store.h"
#include "sandbox.h"

namespace {

using android::init::PropertyMap;

constexpr const char* kFiles[] = {
        "/my_region/build.prop",
        "/my_carrier/build.prop",
        "/my_company/build.prop",
        "/my_carrier/etc/nvmap.prop",
        "/my_carrier/etc/flags.prop",
        "/my_company/etc/custom_map.prop",
        "/my_carrier/etc/build.k.prop",
        "/my_carrier/properties/k/SimSwitchFirstTime/a.prop",
        "/my_carrier/properties/k/SimSwitchCurrentTime/a.prop",
        "/my_carrier/properties/k/switchCarrierChannel/a.prop",
        "/my_region/properties/k/regionSwitch/a.prop",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file",
        "/mnt/vendor/zelvareserve/system/ssv/region_switch_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_convert_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_action_file",
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_common_prop_file",
        "/mnt/vendor/zelvareserve/system/flag/flashback.cfg",
        "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config",
        "/data/system/customize/cloud-config/data_cloud_prop_file.prop",
        "/data/system/customize/empty_appchannel_prop_file.prop",
        "/data/system/customize/data_common_prop_file.prop",
        "/data/system/customize/sim_switch/sim_switch_first_file",
        "/data/system/customize/sim_switch/region_switch_file",
        "/my_product/cust/CN/etc/devicename.cfg",
        "/sys/block/sda/size",
};
constexpr const char* kProperties[] = {
        "sys.region.switch.first",
        "sys.sim.switch.first",
        "sys.sim.switch.current",
        "persist.sys.channel.info",
        "persist.sys.911.shutdown",
        "persist.sys.remove.region.apk",
        "persist.sys.recopy.preload.opinstalled",
        "persist.sys.zelva.operator.opta",
        "persist.sys.zelva.operator.optb",
        "ro.zelva.image.my_company.date",
        "persist.sys.zelva.company.ota.version.backup",
        "persist.sys.payjoy.status_change",
        "ro.boot.qvcarrier",
        "ro.zelva.internet.whether.force.connect",
        "dev.mnt.blk.userdata",
        "ro.vendor.zelva.version_suffix",
        "ro.build.display.id",
        "ro.sys.region.switch.first",
        "ro.zelva.image.my_company.type",
        "ro.zelva.image.my_carrier.version_name",
};
// Top-level directories an input may create; wiped before the next one.
constexpr const char* kTopLevel[] = {"/my_region", "/my_carrier", "/my_company", "/my_product",
                                     "/mnt",       "/data",       "/sys"};

void ResetTree() {
    std::error_code ec;
    for (const char* dir : kTopLevel) std::filesystem::remove_all(dir, ec);
    std::filesystem::create_directories("/mnt/vendor/zelvareserve/system/ssv", ec);
    std::filesystem::create_directories("/data/system/customize/sim_switch", ec);
}

void WriteFileAt(const std::string& path, const std::string& content) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    android::base::WriteStringToFile(content, path);
}

// What every pipeline run must hand over, whatever the tree holds.
void CheckBatch(int kind, const PropertyMap& batch) {
    if (batch.empty() || kind < 0 || kind > 2) abort();
    if (kind == 1) {
        for (const auto& entry : batch) {
            if (android::base::StartsWith(entry.first, "ro.")) abort();
        }
    }
    if (kind == 2 && batch.count("persist.sys.zelva.company.ota.version.backup") == 0 &&
        batch.count("persist.sys.recopy.preload.opinstalled") == 0) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    android::base::SetLogger([](auto&&...) {});
    std::string error;
    static std::unique_ptr<sandbox::ScratchRoot> root = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree()
                    .File("/system_ext/etc/build.prop", "ro.zelva.image.system_ext.brand=alder\n")
                    .File("/my_region/build.prop", "ro.zelva.pipeline.region=CN\n"),
            &error);
    // Each top-level directory is a tmpfs: inputs are written and wiped in memory.
    sandbox::Options options;
    for (const char* dir : kTopLevel) {
        options.mounts.push_back({sandbox::MountSetup::Kind::kTmpfs, dir, 64 << 20});
    }
    if (!root || !sandbox::EnterInProcess(*root, options, &error)) {
        fprintf(stderr, "cannot enter the device root: %s\n", error.c_str());
        exit(1);
    }
    // The directory lists are built once per process, from this brand and region.
    android::init::InitCustDirList();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ResetTree();
    hostplatform::ResetProperties();
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const std::string& line : android::base::Split(text, "\n")) {
        const size_t space = line.find(' ');
        if (line.size() < 2 || space == std::string::npos) continue;
        const size_t index = strtoul(line.c_str() + 1, nullptr, 10);
        const std::string value = line.substr(space + 1);
        if (line[0] == 'f' && index < std::size(kFiles)) {
            WriteFileAt(kFiles[index], android::base::StringReplace(value, "\\n", "\n", true));
        } else if (line[0] == 'p' && index < std::size(kProperties)) {
            hostplatform::SetProperty(kProperties[index], value);
        }
    }

    android::init::InitExtensionPropertyImpl impl;
    const int result = impl.loadPersistOverrideProperties(
            [](int kind, PropertyMap batch) { CheckBatch(kind, batch); });
    if (result != 0) abort();
    return 0;
}
