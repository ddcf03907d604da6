// SPDX-License-Identifier: Apache-2.0
// The persist override pipeline: init's main late-boot call, once /data and
// the reserve partition are mounted.

#include <algorithm>
#include <cctype>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kCompanyDateProperty[] = "ro.zelva.image.my_company.date";
constexpr char kCompanyDateBackupProperty[] = "persist.sys.zelva.company.ota.version.backup";
constexpr char kOperatorAProperty[] = "persist.sys.zelva.operator.opta";
constexpr char kOperatorBProperty[] = "persist.sys.zelva.operator.optb";

std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Adds each listed system property that is set to |props|, under its own name.
void AddSetProperties(std::initializer_list<const char*> names, PropertyMap* props) {
    for (const char* name : names) {
        std::string value = GetSystemProperty(name);
        if (!value.empty()) props->emplace(name, std::move(value));
    }
}

void LoadOrLog(const char* path, PropertyMap* props, const char* failure) {
    if (!load_properties_from_file_without_se(path, nullptr, props)) {
        LOG(ERROR) << failure << path;
    }
}

}  // namespace

std::string OperatorSsvKey(const std::string& opta, const std::string& optb) {
    return ToLower(opta) + "-" + ToLower(optb);
}

int InitExtensionPropertyImpl::loadPersistOverrideProperties(PropertySink sink) noexcept {
    checkAndRestoreChannelInfo(sink);

    // First call of the boot: resolve the switch keys.
    bool load_overrides = false;
    if (IsKeyEmpty(nvOldFlag) && IsKeyEmpty(simSwitchFirstKey) && IsKeyEmpty(simSwitchCurrentKey) &&
        IsKeyEmpty(nvOldKey) && IsKeyEmpty(regionSwitchKey)) {
        PropertyMap keys;
        AddSetProperties({"sys.region.switch.first", "ro.none.clear.switch.first",
                          "sys.sim.switch.first", "sys.sim.switch.convert"},
                         &keys);
        loadExtensionSimswitchKeyInfo(&keys);
        // Each batch is handed over whole, not copied: nothing here reads it again.
        if (!keys.empty()) sink(0, std::move(keys));
        load_overrides = true;
    }

    // The old SSV key can also come from the operator pair.
    const std::string opta = GetSystemProperty(kOperatorAProperty);
    const std::string optb = GetSystemProperty(kOperatorBProperty);
    if (IsKeyEmpty(ssvOldKey) && !opta.empty() && !optb.empty()) {
        AssignKey(&ssvOldKey, OperatorSsvKey(opta, optb));
        if (IsKeyEmpty(simSwitchFirstKey)) {
            PropertyMap keys;
            AddSetProperties({"ro.none.clear.switch.first", "sys.sim.switch.first",
                              "sys.sim.switch.convert"},
                             &keys);
            loadExtensionSimswitchKeyInfo(&keys);
            if (!keys.empty()) sink(0, std::move(keys));
        }
        load_overrides = true;
    }

    if (load_overrides) loadOverridePropertiesByPriority(sink);

    // The company partition's changed properties, once per new company image.
    const std::string date = GetSystemProperty(kCompanyDateProperty);
    if (date != GetSystemProperty(kCompanyDateBackupProperty)) {
        PropertyMap company;
        loadExtensionPartitionProperties(kCompanyDir, &company);
        loadExtensionPartitionSimswitchProperties(kCompanyDir, &company);
        for (auto it = company.begin(); it != company.end();) {
            it = android::base::StartsWith(it->first, "ro.") ? company.erase(it) : std::next(it);
        }
        if (!company.empty()) {
            sink(1, std::move(company));
            company.clear();
        }
        company.emplace(kCompanyDateBackupProperty, date);
        sink(2, std::move(company));
    }

    loadSpecialProperties(sink);
    forceInternetConnection(sink);
    updateMarketName(sink);
    return 0;
}

void InitExtensionPropertyImpl::loadOverridePropertiesByPriority(PropertySink sink) {
    PropertyMap props;
    LoadOrLog(kCloudOverrideFile, &props, "load rsa cloud prop failed:");
    LoadOrLog(kDataEmptyAppChannelFile, &props, "load empty appchannel prop file failed:");
    LoadOrLog(kDataCommonFile, &props, "load data common prop failed:");

    // Each key set, in priority order; a key changes only for a set property.
    auto load_key_set = [&](const char* property, std::string* member, const char* set) {
        std::string key = GetSystemProperty(property);
        if (!key.empty()) {
            AssignKey(member, key);
        } else {
            key = CopyKey(*member);
        }
        if (key.empty()) return;
        for (const std::string& dir : CustDirList()) {
            loadPropertiesFromDir(dir + "/" + "properties" + "/" + key + "/" + set, &props);
        }
    };
    load_key_set("sys.region.switch.first", &regionSwitchKey, "regionSwitch");
    load_key_set("persist.sys.channel.info", &switchCarrierChannelKey, "switchCarrierChannel");
    for (const std::string& dir : PriorityDirList()) {
        const std::string path = dir + "/build.prop";
        LoadOrLog(path.c_str(), &props, "load cota prop file failed:");
    }
    load_key_set("sys.sim.switch.current", &simSwitchCurrentKey, "SimSwitchCurrentTime");
    load_key_set("sys.sim.switch.first", &simSwitchFirstKey, "SimSwitchFirstTime");

    if (!props.empty()) sink(0, std::move(props));
}

}  // namespace init
}  // namespace android
