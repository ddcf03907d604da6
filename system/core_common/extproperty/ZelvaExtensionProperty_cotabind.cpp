// SPDX-License-Identifier: Apache-2.0
// COTA bind mounts requested through one-shot files under /data/cota: the
// module directories to prepare, and one module to bind read-only.

#include <sys/mount.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kModuleBaseProperty[] = "sys.cota.module.base.mount.point";
constexpr char kDefaultModuleBase[] = "/mnt/cota";
constexpr char kCustomizeDataDir[] = "/data/system/customize";

bool IsForwardedProperty(const std::string& name) {
    return android::base::StartsWith(name, "sys.") || android::base::StartsWith(name, "ro.");
}

// Reads a one-shot request file and deletes it, whether or not it loaded.
PropertyMap ConsumeRequest(const char* path, const char* load_failed) {
    PropertyMap request;
    if (!load_properties_from_file_without_se(path, nullptr, &request)) {
        LOG(ERROR) << load_failed << path;
    }
    if (unlink(path) != 0) PLOG(ERROR) << "unlink() failed for " << path;
    return request;
}

std::string ValueOr(const PropertyMap& map, const char* name, const char* fallback) {
    auto it = map.find(name);
    return it != map.end() ? it->second : fallback;
}

}  // namespace

void InitExtensionPropertyImpl::bindCotaBasicMountPoint(PropertySink sink) {
    if (access(kCotaMountInfoFile, F_OK) != 0) {
        LOG(ERROR) << "not valid cota total module info file: " << kCotaMountInfoFile;
        return;
    }
    const PropertyMap modules =
            ConsumeRequest(kCotaMountInfoFile, "cota total module info prop load failed:");
    const std::string base = GetSystemProperty(kModuleBaseProperty, kDefaultModuleBase);

    PropertyMap forward;
    for (const auto& [name, dir] : modules) {
        if (IsForwardedProperty(name)) {
            forward.emplace(name, dir);
            continue;
        }
        LOG(INFO) << "bind cota module: " << name << " mount point: " << dir;
        if (!android::base::StartsWith(dir, base) &&
            !android::base::StartsWith(dir, kCustomizeDataDir)) {
            LOG(ERROR) << "cota module wrong dir " << dir;
            continue;
        }
        if (access(dir.c_str(), F_OK) != 0 && createCotaDirectory(dir) != 0) {
            LOG(ERROR) << "cota creat dir " << dir << " failed";
        }
    }
    bindCotaModuleMountPoint(sink);
    if (!forward.empty()) sink(0, forward);
}

void InitExtensionPropertyImpl::bindCotaModuleMountPoint(PropertySink sink) {
    if (access(kCotaModuleInfoFile, F_OK) != 0) {
        LOG(ERROR) << "not valid cota module info file: " << kCotaModuleInfoFile;
        return;
    }
    const PropertyMap request =
            ConsumeRequest(kCotaModuleInfoFile, "cota module info prop load failed:");

    const std::string source = ValueOr(request, "mount_point", "");
    auto type = request.find("module_type");
    if (type == request.end()) return;  // no type, no bind
    const std::string bind_point = ValueOr(request, "bind_point", "");
    if (source.empty() || bind_point.empty()) return;

    LOG(INFO) << "cota module bind from: " << source << " to: " << bind_point;
    const int result = mount(source.c_str(), bind_point.c_str(), nullptr, kCotaBindFlags, nullptr);
    if (result != 0) {
        LOG(ERROR) << "bindCotaModuleMountPoint bind failed: " << result;
        return;
    }
    if (type->second == "configure") loadCotaConfigureModuleProperties(bind_point, sink);

    PropertyMap forward;
    for (const auto& [name, value] : request) {
        if (IsForwardedProperty(name)) forward.emplace(name, value);
    }
    if (!forward.empty()) sink(0, forward);
}

void InitExtensionPropertyImpl::loadCotaConfigureModuleProperties(std::string dir,
                                                                  PropertySink sink) {
    // No verification here: the bind is the permission.
    PropertyMap props;
    loadExtensionPartitionProperties(dir, &props);
    loadExtensionPartitionSimswitchProperties(dir, &props);
    renameBigballToCarrier(&props);
    if (!props.empty()) sink(0, props);
    loadSpecialProperties(sink);
    loadCustomizeDisplayVersionName(sink);
}

}  // namespace init
}  // namespace android
