// SPDX-License-Identifier: Apache-2.0
// Switch key resolution at boot: reads the first, current and region switch
// keys from the reserve and data stores, migrates the older schemes into the
// name=value form, and fills the object's key members and the caller's map.

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kSimSwitchFirstProperty[] = "sys.sim.switch.first";
constexpr char kSimSwitchCurrentProperty[] = "sys.sim.switch.current";
constexpr char kRegionSwitchProperty[] = "sys.region.switch.first";
constexpr char kSimSwitchConvertProperty[] = "sys.sim.switch.convert";
constexpr char kNoneClearProperty[] = "ro.none.clear.switch.first";
constexpr char kFlashbackCompanyProperty[] = "ro.sys.customize.flashback.company";
constexpr uid_t kSystemUid = 1000;
constexpr gid_t kSystemGid = 1000;

bool Exists(const char* path) {
    return access(path, F_OK) == 0;
}

bool LoadOrLog(const char* path, PropertyMap* props, const char* failure) {
    if (load_properties_from_file_without_se(path, nullptr, props)) return true;
    LOG(ERROR) << failure << path;
    return false;
}

void LoadIfExists(const char* path, PropertyMap* props, const char* failure) {
    if (Exists(path)) LoadOrLog(path, props, failure);
}

void ChownToSystem(const char* path) {
    if (lchown(path, kSystemUid, kSystemGid) == -1) {
        LOG(ERROR) << "Unable to chown file " << path;
    }
}

// One reserve key file and the words its messages use.
struct KeyFile {
    const char* path;
    const char* property;
    const char* parse_failed;
    const char* legacy_read_failed;
    const char* legacy_converted;
    const char* rewrite_failed;
};

// Loads a reserve key file that exists into |props| and the key member |key|.
// A legacy file holds the bare key: it is rewritten once into the name=value form,
// with the content as it was read (a trailing line break stays part of the key).
void ReadReserveKeyFile(const KeyFile& file, PropertyMap* props, std::string* key) {
    if (!LoadOrLog(file.path, props, file.parse_failed)) return;
    if (auto it = props->find(file.property); it != props->end()) {
        AssignKey(key, it->second);
        return;
    }
    std::string content;
    if (!ReadFileToStringNoFollow(file.path, &content)) {
        LOG(ERROR) << file.legacy_read_failed << file.path;
    }
    if (content.empty()) return;
    LOG(ERROR) << file.legacy_converted;
    props->emplace(file.property, content);
    auto written = WriteFile(file.path, std::string(file.property) + "=" + content + "\n");
    if (!written.ok()) LOG(ERROR) << file.rewrite_failed << written.error();
    AssignKey(key, content);
    if (Exists(file.path)) ChownToSystem(file.path);
}

// The first switch key derived from the old NV and SSV identities, written to
// the reserve partition together with the marker that makes this one-time.
void ConvertFirstKeyFromOldScheme(InitExtensionPropertyImpl* impl, const PropertyMap& props) {
    std::string ssv_old_key = CopyKey(impl->ssvOldKey);
    if (ssv_old_key.empty()) {
        read_old_ssv_key(&ssv_old_key);
        if (!ssv_old_key.empty()) AssignKey(&impl->ssvOldKey, ssv_old_key);
    }
    std::string first_key;
    load_convert_first_key(&first_key, CopyKey(impl->nvOldFlag), ssv_old_key);
    if (first_key.empty()) return;

    if (!Exists(kReserveSsvDir)) {
        LOG(INFO) << "there is no ssv dir";
        if (createDirectory(kReserveSsvDir) == 0) LOG(INFO) << "create ssv dir: " << kReserveSsvDir;
    }
    auto written = WriteFile(kReserveSimSwitchFirstFile,
                             std::string(kSimSwitchFirstProperty) + "=" + first_key + "\n");
    if (!written.ok()) {
        // No marker, and WriteFile leaves no empty first file that would count
        // as present: the conversion is tried again on the next boot.
        LOG(ERROR) << "Unable to write sim_action_first_file " << written.error();
    } else if (auto marked = WriteFile(kReserveSimSwitchConvertFile,
                                       std::string(kSimSwitchConvertProperty) + "= true\n");
               !marked.ok()) {
        LOG(ERROR) << "Unable to write sim_switch_convert_file " << marked.error();
    }

    auto none_clear = props.find(kNoneClearProperty);
    if (!Exists(kReserveFirstSwitchNoneClearFile) && none_clear != props.end() &&
        none_clear->second == "true") {
        if (auto marked = WriteFile(kReserveFirstSwitchNoneClearFile, "1"); !marked.ok()) {
            LOG(ERROR) << "Unable to write first_switch_none_clear " << marked.error();
        }
    }
    for (const char* path : {kReserveSimSwitchFirstFile, kReserveFirstSwitchNoneClearFile,
                             kReserveSimSwitchConvertFile}) {
        if (Exists(path)) ChownToSystem(path);
    }
}

void LoadSsvReserveStore(PropertyMap* props) {
    if (Exists(kReserveSimActionFile)) {
        LOG(INFO) << "read ssv file";
        LoadOrLog(kReserveSimActionFile, props, "read ssv failed :");
        return;
    }
    const std::string status = GetSystemProperty("persist.sys.payjoy.status_change", "0");
    const std::string operator_name = GetSystemProperty("sys.zelva.switch.operator");
    LOG(INFO) << "payjoy_status :" << status;
    LOG(INFO) << "payjoy_status_operator :" << operator_name;
    if (status != "1" || !operator_name.empty()) return;
    auto written = WriteFile(kReserveSimActionFile, "sys.zelva.switch.operator=payjoy\n");
    if (!written.ok()) LOG(ERROR) << "Unable to write ssv_file " << written.error();
    if (Exists(kReserveSimActionFile)) {
        LOG(INFO) << "re-read ssv file";
        LoadOrLog(kReserveSimActionFile, props, "re-read ssv failed :");
    }
}

// Without a region file anywhere, the region removal property names the key.
void RegionKeyFromRemovalProperty(PropertyMap* props) {
    if (Exists(kDataRegionSwitchFile) || Exists(kReserveRegionSwitchFile)) return;
    const std::string region = GetSystemProperty("persist.sys.remove.region.apk");
    if (region.empty() || region == "false") return;
    props->emplace(kRegionSwitchProperty, region);
    auto written = WriteFile(kDataRegionSwitchFile,
                             std::string(kRegionSwitchProperty) + "=" + region + "\n");
    if (!written.ok()) {
        LOG(ERROR) << "Unable to write region_switch_file_data_path " << written.error();
    }
    if (Exists(kDataRegionSwitchFile) &&
        lchown(kDataRegionSwitchFile, kSystemUid, kSystemGid) == -1) {
        LOG(ERROR) << "Unable to chown file " << kDataRegionSwitchFile << ", errno: " << errno;
    }
}

void CopyIfPresent(const PropertyMap& props, const char* name, std::string* key) {
    if (auto it = props.find(name); it != props.end()) AssignKey(key, it->second);
}

}  // namespace

void InitExtensionPropertyImpl::loadExtensionSimswitchKeyInfo(PropertyMap* props) {
    if (IsKeyEmpty(nvOldFlag) && IsKeyEmpty(nvOldKey)) {
        std::string flag, key;  // filled outside the key lock: they come from files
        load_old_nv_key(&flag, &key);
        if (!flag.empty()) AssignKey(&nvOldFlag, std::move(flag));
        if (!key.empty()) AssignKey(&nvOldKey, std::move(key));
    }

    LoadIfExists(kReserveSimSwitchConvertFile, props, "sim switch convert property load failed:");
    auto convert = props->find(kSimSwitchConvertProperty);
    const bool converted = convert != props->end() && convert->second == "true";

    LoadIfExists(kDataSimActionFile, props, "read ssv in data failed :");
    LoadSsvReserveStore(props);

    if (!Exists(kReserveSimSwitchFirstFile) && !Exists(kDataSimSwitchFirstFile) && !converted) {
        ConvertFirstKeyFromOldScheme(this, *props);
    }

    if (Exists(kReserveSimSwitchFirstFile)) {
        LOG(INFO) << "sim_switch_first_file is exist!!!";
        ReadReserveKeyFile(
                {kReserveSimSwitchFirstFile, kSimSwitchFirstProperty,
                 "sim switch key property failed:", "read sim switch first file failed :",
                 "Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY",
                 "Unable to write sim_switch_first_file"},
                props, &simSwitchFirstKey);
    }
    if (Exists(kReserveSimSwitchCurrentFile)) {
        LOG(INFO) << "sim_switch_current_file is exist!!!";
        ReadReserveKeyFile(
                {kReserveSimSwitchCurrentFile, kSimSwitchCurrentProperty,
                 "sim switch key property failed:", "read sim switch current file failed :",
                 "Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY",
                 "Unable to write sim_switch_current_file"},
                props, &simSwitchCurrentKey);
    }

    doRegionSwitchForDomestic();

    // The region file is tested by opening it, not by access().
    if (android::base::unique_fd region_fd(TEMP_FAILURE_RETRY(
                open(kReserveRegionSwitchFile, O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
        region_fd != -1) {
        LOG(INFO) << "region_switch_file exists!!!";
        ReadReserveKeyFile(
                {kReserveRegionSwitchFile, kRegionSwitchProperty,
                 "region switch key property failed:", "read sim switch first file failed :",
                 "Convert tmp_region_key to REGION_SWITCH_PROPERTY",
                 "Unable to write region_switch_file"},
                props, &regionSwitchKey);
    }

    LoadIfExists(kDataSimSwitchCurrentFile, props, "sim switch key property failed:");
    LoadIfExists(kReserveSimSwitchCommonFile, props, "reboot count key property failed:");
    LoadIfExists(kDataSimSwitchFirstFile, props, "sim switch key property failed:");
    LoadIfExists(kDataRegionSwitchFile, props, "region switch key property failed:");

    RegionKeyFromRemovalProperty(props);

    if (Exists(kDataCommonFile) &&
        LoadOrLog(kDataCommonFile, props, "sim switch key property failed:")) {
        CopyIfPresent(*props, "persist.sys.channel.info", &switchCarrierChannelKey);
    }

    LoadIfExists(kReserveForceConnectFile, props, "force connect internet property failed:");

    if (Exists(kFlashbackFile)) {
        LoadOrLog(kFlashbackFile, props, "flash back property failed:");
    } else if (GetSystemProperty(kFlashbackCompanyProperty).empty()) {
        props->emplace(kFlashbackCompanyProperty, "invalid");
    }

    CopyIfPresent(*props, kSimSwitchFirstProperty, &simSwitchFirstKey);
    CopyIfPresent(*props, kSimSwitchCurrentProperty, &simSwitchCurrentKey);
    CopyIfPresent(*props, kRegionSwitchProperty, &regionSwitchKey);
}

}  // namespace init
}  // namespace android
