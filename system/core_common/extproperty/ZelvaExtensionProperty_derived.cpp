// SPDX-License-Identifier: Apache-2.0
// Derived version properties, the channel reset after an emergency shutdown,
// the forced internet connection and the data-partition override files.

#include <fcntl.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kEmergencyShutdownProperty[] = "persist.sys.911.shutdown";
constexpr char kRecopyPreloadProperty[] = "persist.sys.recopy.preload.opinstalled";
constexpr char kForceConnectProperty[] = "ro.zelva.internet.force.connect";
constexpr char kWhetherForceConnectProperty[] = "ro.zelva.internet.whether.force.connect";
constexpr char kDisplayVersionProperty[] = "ro.zelva.customize.display.version_name";

void SendOne(const PropertySink& sink, const std::string& name, const std::string& value) {
    sink(0, PropertyMap{{name, value}});
}

void DeleteIfExists(const char* path) {
    if (access(path, F_OK) == 0 && unlink(path) != 0) {
        LOG(ERROR) << "unlink() failed for " << path;
    }
}

void DeleteIfReadable(const char* path) {
    // Non-blocking: only whether it opens matters, and a FIFO must not stall boot.
    android::base::unique_fd fd(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    if (fd == -1) return;
    fd.reset();
    if (unlink(path) != 0) LOG(ERROR) << "unlink() failed for " << path;
}

}  // namespace

void loadSpecialProperties(PropertySink sink) {
    // Experience version: the suffix spliced in front of the display id's first '_'.
    const std::string suffix = GetSystemProperty("ro.vendor.zelva.version_suffix");
    if (!suffix.empty()) {
        std::string display_id = GetSystemProperty("ro.build.display.id");
        const size_t underscore = display_id.find('_');
        if (underscore != std::string::npos && underscore >= 1) {
            display_id.insert(underscore, suffix);
            SendOne(sink, "ro.vendor.zelva.exp.version", display_id);
        }
    }

    // Customization display version, unless a partition already set one.
    if (!GetSystemProperty(kDisplayVersionProperty).empty()) return;
    std::string version = GetSystemProperty("ro.zelva.image.my_carrier.version_name");
    if (version.empty()) version = GetSystemProperty("ro.zelva.image.my_region.version_name");
    if (version.empty()) return;
    const size_t dash = version.find('-');
    const std::string name =
            dash != std::string::npos && dash >= 1 ? version.substr(dash + 1) : version;
    LOG(INFO) << "customize dispaly version " << name;
    if (!name.empty()) SendOne(sink, kDisplayVersionProperty, name);
}

void checkAndRestoreChannelInfo(PropertySink sink) {
    if (GetSystemProperty(kEmergencyShutdownProperty, "0") != "1" ||
        !GetSystemProperty(kRecopyPreloadProperty).empty()) {
        return;
    }
    const std::string remove_region = GetSystemProperty("persist.sys.remove.region.apk");
    const std::string remove_carrier = GetSystemProperty("persist.sys.remove.carrier.apk");
    const std::string channel = GetSystemProperty("persist.sys.channel.info");
    const std::string channel_country = GetSystemProperty("persist.sys.channel.country.info");
    const std::string remove_region_all = GetSystemProperty("persist.sys.remove.region-all.apk");

    PropertyMap reset;
    // Empty values: the host clears these.
    if (!channel.empty()) reset.emplace("persist.sys.channel.info", "");
    if (!channel_country.empty()) reset.emplace("persist.sys.channel.country.info", "");
    if (remove_region.empty() && remove_carrier.empty() && remove_region_all.empty()) {
        reset.emplace(kRecopyPreloadProperty, "none");
    } else {
        reset.emplace("persist.sys.remove.region.apk", "false");
        reset.emplace(kRecopyPreloadProperty, "true");
        reset.emplace("persist.sys.reboot.time.count", "0");
        reset.emplace("persist.sys.remove.carrier.apk", "false");
        reset.emplace("persist.sys.remove.region-all.apk", "false");
    }
    sink(2, reset);

    DeleteIfExists(kDataEmptyAppChannelFile);
    DeleteIfExists(kReserveSimSwitchCommonFile);
    DeleteIfExists(kDataCommonFile);
    DeleteIfReadable(kDataRegionSwitchFile);
    DeleteIfReadable(kReserveRegionSwitchFile);
}

void forceInternetConnection(PropertySink sink) {
    const std::string shutdown = GetSystemProperty(kEmergencyShutdownProperty, "0");
    const std::string force_connect = GetSystemProperty(kForceConnectProperty);
    const std::string whether_force = GetSystemProperty(kWhetherForceConnectProperty);
    if (shutdown != "1" || whether_force != "1" || !force_connect.empty()) return;

    PropertyMap props{{kForceConnectProperty, "1"}};
    auto written = WriteFile(kReserveForceConnectFile, std::string(kForceConnectProperty) + "=1\n");
    if (!written.ok()) {
        LOG(ERROR) << "Unable to write force_connect_internet_prop_file_path " << written.error();
    }
    sink(0, props);
}

void loadDataSpecialProperties(PropertySink sink) {
    // One map for both files: the second batch repeats the first file's entries.
    PropertyMap props;
    if (access(kDataEmptyAppChannelFile, F_OK) == 0) {
        if (!load_properties_from_file_without_se(kDataEmptyAppChannelFile, nullptr, &props)) {
            LOG(ERROR) << "reboot empty appchanel property failed:" << kDataEmptyAppChannelFile;
        }
        sink(0, props);
    }
    if (access(kDataCommonFile, F_OK) == 0) {
        if (!load_properties_from_file_without_se(kDataCommonFile, nullptr, &props)) {
            LOG(ERROR) << "reboot data common property failed:" << kDataCommonFile;
        }
        sink(0, props);
    }
}

}  // namespace init
}  // namespace android
