// SPDX-License-Identifier: Apache-2.0
// The COTA service's entry: commands acted on at once under the object's
// mutex, and the detached boot thread that serves bind requests posted in
// sys.cota.bind.load.properties.

#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <system_error>
#include <thread>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kRequestSlotProperty[] = "sys.cota.bind.load.properties";
constexpr char kWaitLimitProperty[] = "ro.build.cota.mnt.wait.timeout";
constexpr int kDefaultWaitLimit = 150;
constexpr std::chrono::milliseconds kPollInterval(200);
constexpr char kHandledRequest[] = "null";
constexpr char kDefaultBindPoint[] = "/my_carrier";

bool IsForwardedProperty(const std::string& name) {
    return android::base::StartsWith(name, "sys.") || android::base::StartsWith(name, "ro.") ||
           android::base::StartsWith(name, "persisit.");
}

std::string ValueOr(const PropertyMap& map, const char* name, const char* fallback) {
    auto it = map.find(name);
    return it != map.end() ? it->second : fallback;
}

// Serves boot requests until "boot_mount_bind_complete" or |limit| empty
// polls. Only empty reads are paced and counted: while the slot holds "null"
// or an unknown value it is read again at once.
void doBindCotaMountThread(InitExtensionPropertyImpl* impl, PropertySink sink) noexcept {
    const int limit = android::base::GetIntProperty(kWaitLimitProperty, kDefaultWaitLimit);
    LOG(INFO) << "check cota bind mount start";
    int polls = 0;
    do {
        const std::string request = GetSystemProperty(kRequestSlotProperty);
        if (request == "boot_mount") {
            impl->bindAndLoadCotaOverrideProperties(sink);
            property_set(kRequestSlotProperty, kHandledRequest);
        } else if (request == "module_bind_single_boot") {
            impl->bindCotaModuleMountPoint(sink);
            property_set(kRequestSlotProperty, kHandledRequest);
        } else if (request == "bind_basic_point_boot") {
            impl->bindCotaBasicMountPoint(sink);
            property_set(kRequestSlotProperty, kHandledRequest);
        } else if (request == "boot_mount_bind_complete") {
            break;
        } else if (request.empty()) {
            std::this_thread::sleep_for(kPollInterval);
            ++polls;
        }
    } while (polls < limit);
    if (polls >= limit) {
        LOG(INFO) << "not need do cota bind mount "
                  << "cota timeoutValue= " << limit;
    }
}

}  // namespace

void InitExtensionPropertyImpl::loadCotaServiceOverrideProperties(std::string command,
                                                                  PropertySink sink) noexcept {
    std::lock_guard<std::mutex> guard(mutex);
    if (command == "check_mount") {
        try {
            std::thread(doBindCotaMountThread, this, sink).detach();
        } catch (const std::system_error&) {
            LOG(FATAL) << "thread constructor failed";
        }
    } else if (command == "mount_and_check_load" || command == "mount_must_load") {
        bindAndLoadCotaOverrideProperties(sink);
    } else if (command == "bind_basic_point") {
        bindCotaBasicMountPoint(sink);
    } else if (command == "update_cota_info") {
        updateCotaInfoProperties(sink);
    } else if (command == "module_bind_single") {
        bindCotaModuleMountPoint(sink);
    } else {
        LOG(ERROR) << "not valid cota mount bind command:" << command;
    }
}

void InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties(PropertySink sink) {
    if (access(kCotaMountInfoFile, F_OK) != 0) {
        LOG(ERROR) << "not valid cota mount info file: " << kCotaMountInfoFile;
        return;
    }
    PropertyMap request;
    if (!load_properties_from_file_without_se(kCotaMountInfoFile, nullptr, &request)) {
        LOG(ERROR) << "cota info prop load failed:" << kCotaMountInfoFile;
    }
    if (unlink(kCotaMountInfoFile) != 0)
        PLOG(ERROR) << "unlink() failed for " << kCotaMountInfoFile;

    const std::string verify = ValueOr(request, "sys.cotaimg.verify", "");
    const std::string source = ValueOr(request, "sys.cota.load.properties", "");
    std::string target = ValueOr(request, "bind_point", kDefaultBindPoint);

    PropertyMap forward;
    for (const auto& [name, value] : request) {
        if (IsForwardedProperty(name)) forward.emplace(name, value);
    }
    if (verify != "1" || !android::base::StartsWith(source, "/")) {
        if (!forward.empty()) sink(0, forward);
        return;
    }

    if (source != target) {
        const int result = mount(source.c_str(), target.c_str(), nullptr, kCotaBindFlags, nullptr);
        if (result != 0) {
            LOG(ERROR) << "cota bindAndLoadCotaOverrideProperties bind failed: " << result;
            target = source;  // load from the unbound image instead
        }
        // Never replaces the request's own entry, so the host sees the source.
        forward.emplace("sys.cota.load.properties", target);
    }

    PropertyMap props;
    loadExtensionPartitionProperties(target, &props);
    loadExtensionPartitionSimswitchProperties(target, &props);
    loadExtensionPartitionProperties(target + "/cust", &props);
    loadExtensionPartitionSimswitchProperties(target + "/cust", &props);
    const bool carrier_image = target == kCarrierDir;
    if (carrier_image) renameBigballToCarrier(&props);

    if (!props.empty()) {
        sink(0, props);
        if (props.count("ro.sys.custommedia.sourcepath") != 0) {
            const std::string media = GetSystemProperty("persist.sys.customize.media");
            const std::string mounted = GetSystemProperty("sys.mount.mediapath.success");
            if (!media.empty() && (mounted.empty() || mounted == "0")) {
                bindCustomizeMediaPath(media.c_str());
            }
        }
    }
    if (!forward.empty()) sink(0, forward);
    if (carrier_image) {
        loadSpecialProperties(sink);
        loadCustomizeDisplayVersionName(sink);
    }
}

}  // namespace init
}  // namespace android
