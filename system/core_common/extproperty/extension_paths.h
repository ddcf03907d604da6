// SPDX-License-Identifier: Apache-2.0
// The library's fixed paths: files and directories that several parts of the
// library share. Tools and fuzz targets that lay out or check a device take
// them from here, so that they never drift from what the library reads.
#pragma once

namespace android {
namespace init {

// Where the brand and the SKU region that name the customization directories are read.
constexpr char kSystemExtBuildProp[] = "/system_ext/etc/build.prop";
constexpr char kBrandProperty[] = "ro.zelva.image.system_ext.brand";
constexpr char kRegionBuildProp[] = "/my_region/build.prop";
constexpr char kVendorRegionBuildProp[] = "/mnt/vendor/my_region/build.prop";
constexpr char kSkuRegionProperty[] = "ro.zelva.pipeline.region";

// Reserve partition: survives a data wipe.
constexpr char kReserveSsvDir[] = "/mnt/vendor/zelvareserve/system/ssv/";
constexpr char kReserveSimSwitchFirstFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_first_file";
constexpr char kReserveSimSwitchCurrentFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_current_file";
constexpr char kReserveRegionSwitchFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/region_switch_file";
constexpr char kReserveSimSwitchConvertFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_convert_file";
constexpr char kReserveFirstSwitchNoneClearFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/first_switch_none_clear";
constexpr char kReserveSimActionFile[] = "/mnt/vendor/zelvareserve/system/ssv/sim_action_file";
constexpr char kReserveSimSwitchCommonFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/sim_switch_common_prop_file";
constexpr char kReserveForceConnectFile[] =
        "/mnt/vendor/zelvareserve/system/ssv/force_connect_internet_prop_file";
constexpr char kFlashbackFile[] = "/mnt/vendor/zelvareserve/system/flag/flashback.cfg";

// Where the old scheme kept the NV operator flag, in the order they are tried.
constexpr const char* kOldNvFlagSources[] = {
        "/mnt/vendor/zelvareserve/radio/exp_operator_switch.config",
        "/dev/block/platform/bootdevice/by-name/reserve_exp1",
        "/dev/block/bootdevice/by-name/reserve_exp1",
};

// Data partition copies and overrides: lost on a data wipe.
constexpr char kDataSimSwitchFirstFile[] =
        "/data/system/customize/sim_switch/sim_switch_first_file";
constexpr char kDataSimSwitchCurrentFile[] =
        "/data/system/customize/sim_switch/sim_switch_current_file";
constexpr char kDataRegionSwitchFile[] = "/data/system/customize/sim_switch/region_switch_file";
constexpr char kDataSimActionFile[] = "/data/system/customize/sim_switch/sim_action_file";
constexpr char kDataEmptyAppChannelFile[] =
        "/data/system/customize/empty_appchannel_prop_file.prop";
constexpr char kDataCommonFile[] = "/data/system/customize/data_common_prop_file.prop";
constexpr char kCloudOverrideFile[] =
        "/data/system/customize/cloud-config/data_cloud_prop_file.prop";

// COTA request files (the first is also the COTA info file).
constexpr char kCotaMountInfoFile[] = "/data/cota/cota_mount_info.prop";
constexpr char kCotaModuleInfoFile[] = "/data/cota/cota_module_info.prop";

// Boot logo: the raw splash partition, and the company image's logo, first choice first.
constexpr char kLogoTarget[] = "/dev/block/by-name/splash_odm";
constexpr char kLogoImage[] = "/my_company/media/logo/logo.img";
constexpr char kLogoBinary[] = "/my_company/media/logo/logo.bin";

// The special-edition file of the company image, handed to init.
constexpr char kNightjarBuildProp[] = "/my_company/etc/build.prop";

constexpr char kCompanyDir[] = "/my_company";
constexpr char kCarrierDir[] = "/my_carrier";

}  // namespace init
}  // namespace android
