// SPDX-License-Identifier: Apache-2.0
// Properties of the customization partitions: each partition's build.prop,
// and the property sets that the switch keys select inside a partition.

#include <dirent.h>
#include <unistd.h>

#include <memory>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kCarrierTypeProperty[] = "ro.zelva.image.my_carrier.type";
constexpr char kCustVersionProperty[] = "ro.zelva.cust.ver";

// <dir>/properties/<key>/<set>
std::string PropertySetDir(const std::string& dir, const std::string& key, const char* set) {
    return dir + "/" + "properties" + "/" + key + "/" + set;
}

}  // namespace

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(PropertyMap* props) noexcept {
    for (const std::string& dir : CustDirList()) {
        // Through the operation table: a derived object's slot 5 decides.
        loadExtensionPartitionProperties(dir, props);
    }
    modifyComponentPriorityIfNeed(props);
}

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(std::string dir,
                                                                 PropertyMap* props) noexcept {
    const std::string path = dir + "/build.prop";
    if (!load_properties_from_file_without_se(path.c_str(), nullptr, props)) {
        LOG(ERROR) << "partition property load failed:" << path;
    }
}

void InitExtensionPropertyImpl::modifyComponentPriorityIfNeed(PropertyMap* props) {
    auto type = props->find(kCarrierTypeProperty);
    if (type == props->end() || type->second == "empty") return;
    // A real carrier image marks the customization version, unless a
    // partition set it (even to an empty value).
    props->emplace(kCustVersionProperty, "1");
}

void InitExtensionPropertyImpl::loadPropertiesFromDir(const std::string& dir, PropertyMap* props) {
    std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
    if (!d) return;
    while (const dirent* entry = readdir(d.get())) {
        if (entry->d_type == DT_DIR) continue;
        const std::string path = dir + "/" + entry->d_name;
        if (!android::base::EndsWith(path, ".prop")) continue;
        if (!load_properties_from_file_without_se(path.c_str(), nullptr, props)) {
            LOG(ERROR) << "property load failed:" << path;
        }
    }
}

void InitExtensionPropertyImpl::loadExtensionPartitionSimswitchProperties(std::string dir,
                                                                          PropertyMap* props) {
    // Copies: the COTA bind thread runs this beside host calls that assign the keys.
    const std::string nv_old_key = CopyKey(nvOldKey);
    const std::string ssv_old_key = CopyKey(ssvOldKey);
    const std::string current_key = CopyKey(simSwitchCurrentKey);
    const std::string first_key = CopyKey(simSwitchFirstKey);
    const std::string channel_key = CopyKey(switchCarrierChannelKey);
    const std::string region_key = CopyKey(regionSwitchKey);

    // Fixed order: a later set's values win over an earlier one's.
    if (!nv_old_key.empty()) {
        const std::string path = dir + "/etc/build." + nv_old_key + ".prop";
        if (access(path.c_str(), F_OK) == 0 &&
            !load_properties_from_file_without_se(path.c_str(), nullptr, props)) {
            LOG(ERROR) << "nv old property load failed:" << path;
        }
    }
    if (!ssv_old_key.empty()) {
        const std::string path = dir + "/etc/build." + ssv_old_key + ".prop";
        if (access(path.c_str(), F_OK) == 0 &&
            !load_properties_from_file_without_se(path.c_str(), nullptr, props)) {
            LOG(ERROR) << "ssv old property load failed:" << path;
        }
    }
    if (!current_key.empty()) {
        loadPropertiesFromDir(PropertySetDir(dir, current_key, "SimSwitchCurrentTime"), props);
    }
    if (!first_key.empty()) {
        loadPropertiesFromDir(PropertySetDir(dir, first_key, "SimSwitchFirstTime"), props);
    }
    if (!channel_key.empty()) {
        loadPropertiesFromDir(PropertySetDir(dir, channel_key, "switchCarrierChannel"), props);
    }
    if (!region_key.empty()) {
        loadPropertiesFromDir(PropertySetDir(dir, region_key, "regionSwitch"), props);
    }
}

}  // namespace init
}  // namespace android
