// SPDX-License-Identifier: Apache-2.0
// The domestic region switch: on "CN" devices the region key follows from the
// province property or the company type, and is saved once on the reserve
// partition.

#include <errno.h>
#include <unistd.h>

#include <android-base/logging.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kDomesticRegion[] = "CN";
constexpr char kRegionSwitchProperty[] = "sys.region.switch.first";
constexpr char kCustomMapFile[] = "custom_map.prop";

void UnlinkOrLog(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        LOG(ERROR) << "unlink() failed for " << path << ", errno: " << errno;
    }
}

}  // namespace

void doRegionSwitchForDomestic() {
    if (GetSkuRegion() != kDomesticRegion) return;
    if (access(kReserveRegionSwitchFile, F_OK) == 0) {
        LOG(INFO) << "region switch reserve file already exists, skip conversion";
        return;
    }
    if (access(kDataRegionSwitchFile, F_OK) == 0 && isConvertFromCustomMap(kDataRegionSwitchFile)) {
        LOG(INFO) << "region switch data file is from custom_map, skip conversion";
        return;
    }
    LOG(INFO) << "doRegionSwitchForDomestic";

    const std::string province = GetSystemProperty("ro.sys.region.switch.first");
    const std::string company_type = GetSystemProperty("ro.zelva.image.my_company.type");
    if (!province.empty()) {
        // The province value is stored as it stands, without mapping.
        if (!saveRegionSwitchKeyOnReserve(province)) {
            LOG(ERROR) << "failed to save province switch value";
        }
        return;
    }
    if (!company_type.empty()) {
        std::string target;
        find_nv_ssv_target_key(company_type, kCustomMapFile, &target);
        if (target.empty()) {
            LOG(INFO) << "target company type is empty, skip conversion";
        } else if (!saveRegionSwitchKeyOnReserve(target)) {
            LOG(ERROR) << "failed to save target company type: " << target;
        }
        return;
    }
    LOG(INFO) << "no province switch value or company type, skip conversion";
}

bool isConvertFromCustomMap(std::string path) {
    if (path.empty()) {
        LOG(ERROR) << "empty file path";
        return false;
    }
    if (access(path.c_str(), F_OK) != 0) {
        LOG(INFO) << "file does not exist: " << path;
        return false;
    }
    PropertyMap map;
    if (!load_properties_from_file_without_se(path.c_str(), nullptr, &map)) {
        LOG(ERROR) << "region switch file load failed:" << path;
        return false;
    }
    auto key = map.find(kRegionSwitchProperty);
    if (key == map.end() || key->second.empty()) {
        LOG(INFO) << "no region switch property found in file: " << path;
        UnlinkOrLog(path);
        return false;
    }
    std::string source;
    find_nv_source_key(&source, kCustomMapFile, key->second);
    if (!source.empty()) return true;  // produced from the custom map: keep it
    UnlinkOrLog(path);
    return false;
}

bool saveRegionSwitchKeyOnReserve(const std::string& value) {
    if (value.empty()) {
        LOG(ERROR) << "empty value";
        return false;
    }
    auto written = WriteFile(kReserveRegionSwitchFile,
                             std::string(kRegionSwitchProperty) + "=" + value + "\n");
    if (!written.ok()) {
        LOG(ERROR) << "Unable to write region_switch_file on reserve " << written.error();
        return false;
    }
    if (lchown(kReserveRegionSwitchFile, 1000, 1000) == -1) {
        LOG(ERROR) << "Unable to chown file " << kReserveRegionSwitchFile << ", errno: " << errno;
    }
    return true;
}

}  // namespace init
}  // namespace android
