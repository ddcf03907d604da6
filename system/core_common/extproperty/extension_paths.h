// SPDX-License-Identifier: Apache-2.0
// Files and directories that several parts of the library share.
#pragma once

namespace android {
namespace init {

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

// COTA request file (also the COTA info file).
constexpr char kCotaMountInfoFile[] = "/data/cota/cota_mount_info.prop";

constexpr char kCompanyDir[] = "/my_company";
constexpr char kCarrierDir[] = "/my_carrier";

}  // namespace init
}  // namespace android
