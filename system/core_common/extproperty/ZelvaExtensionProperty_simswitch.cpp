// SPDX-License-Identifier: Apache-2.0
// SIM-switch override entries, the special-edition properties, the media path
// bind and the boot logo copy.

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kMediaSourceProperty[] = "ro.sys.custommedia.sourcepath";
constexpr char kMediaResultProperty[] = "sys.mount.mediapath.success";
constexpr char kOverrideSwitchTrigger[] = "propertiesOverrideSwitch";
constexpr char kLogoTriggerPrefix[] = "triggerLogoCopy";
constexpr char kLogoBootTrigger[] = "triggerLogoCopyFromCompanyBoot";
constexpr char kLogoCompanyTrigger[] = "triggerLogoCopyFromCompany";
constexpr char kCompanyDateUtcProperty[] = "ro.zelva.image.my_company.date.utc";
constexpr char kLogoDateProperty[] = "persist.record.my_company.date.forlogo";

bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// The size of an open file as seeking to its end gives it, or -1 with errno
// set. Whatever the file's type: a device that seeks to 0 (/dev/null) is empty
// as a logo and too small as a partition. A directory or a FIFO has no size at
// all, even where the file system lets it seek.
off_t MeasureSize(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) return -1;
    if (S_ISDIR(st.st_mode) || S_ISFIFO(st.st_mode)) {
        errno = S_ISDIR(st.st_mode) ? EISDIR : ESPIPE;
        return -1;
    }
    const off_t size = lseek(fd, 0, SEEK_END);
    if (size == -1 || lseek(fd, 0, SEEK_SET) == -1) return -1;
    return size;
}

// Copies the first |size| bytes of |source| to the start of |target|.
bool CopyBytes(int source, int target, off_t size) {
    std::string content(static_cast<size_t>(size), '\0');
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = TEMP_FAILURE_RETRY(read(source, &content[done], content.size() - done));
        if (n <= 0) return false;  // a source that shrank is a failed read
        done += n;
    }
    return WriteStringToFd(content, target);
}

// A copy that could not be carried out; the detail was logged just before.
bool CopyFailed() {
    LOG(ERROR) << "Unable to write logo copy info file";
    return false;
}

// Copies |source| over the start of the logo partition; false when the copy
// was refused or failed (already logged).
bool CopyLogo(const std::string& source) {
    // Non-blocking: a FIFO named as source or target must not stall boot.
    android::base::unique_fd in(
            TEMP_FAILURE_RETRY(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    if (in == -1) {
        PLOG(ERROR) << "Unable to open logo resource " << source;
        return CopyFailed();
    }
    android::base::unique_fd out(
            TEMP_FAILURE_RETRY(open(kLogoTarget, O_WRONLY | O_CLOEXEC | O_NONBLOCK)));
    if (out == -1) {
        PLOG(ERROR) << "Unable to open the target Partition " << kLogoTarget;
        return CopyFailed();
    }
    const off_t source_size = MeasureSize(in.get());
    if (source_size == -1) {
        PLOG(ERROR) << "Unable to measure logo resource " << source;
        return CopyFailed();
    }
    // Without the partition's size nothing can be copied safely.
    const off_t target_size = MeasureSize(out.get());
    if (target_size == -1) {
        PLOG(ERROR) << "Unable to measure the target Partition " << kLogoTarget;
        return CopyFailed();
    }
    if (target_size < source_size) {
        LOG(INFO) << "Logo resource is too large";
        return false;
    }
    if (!CopyBytes(in.get(), out.get(), source_size)) return CopyFailed();
    return true;
}

}  // namespace

void InitExtensionPropertyImpl::bindCustomizeMediaPath(const char* target) noexcept {
    const std::string source = GetSystemProperty(kMediaSourceProperty);
    if (source.empty() || !android::base::StartsWith(source, "/my_")) return;
    const int result = mount(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr);
    LOG(INFO) << "Mount ringtones result :" << result;
    property_set(kMediaResultProperty, std::to_string(result).c_str());
}

void InitExtensionPropertyImpl::loadNightjarOverrideProperties(PropertySink sink) noexcept {
    PropertyMap props;
    if (!load_properties_from_file_without_se(kNightjarBuildProp, nullptr, &props)) {
        LOG(INFO) << "can not read prop from :" << kNightjarBuildProp;
    }
    // Handed over whole, not copied: nothing here reads it again.
    sink(0, std::move(props));
    loadSpecialProperties(sink);
}

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(PropertySink sink) noexcept {
    if (std::string first = GetSystemProperty("sys.sim.switch.first"); !first.empty()) {
        AssignKey(&simSwitchFirstKey, std::move(first));
    }
    if (std::string current = GetSystemProperty("sys.sim.switch.current"); !current.empty()) {
        AssignKey(&simSwitchCurrentKey, std::move(current));
    }
    const std::string opta = GetSystemProperty("persist.sys.zelva.operator.opta");
    const std::string optb = GetSystemProperty("persist.sys.zelva.operator.optb");
    if (!opta.empty() && !optb.empty()) AssignKey(&ssvOldKey, OperatorSsvKey(opta, optb));
    if (std::string region = GetSystemProperty("sys.region.switch.first"); !region.empty()) {
        AssignKey(&regionSwitchKey, std::move(region));
    }

    if (IsKeyEmpty(simSwitchFirstKey) && IsKeyEmpty(simSwitchCurrentKey) && IsKeyEmpty(ssvOldKey) &&
        IsKeyEmpty(regionSwitchKey)) {
        loadSpecialProperties(sink);
        return;
    }

    PropertyMap props;
    for (const std::string& dir : CustDirList()) {
        loadExtensionPartitionSimswitchProperties(dir, &props);
    }
    // A verified COTA image counts as one more partition.
    const std::string cota_dir = GetSystemProperty("sys.cota.load.properties", "0");
    if (GetSystemProperty("sys.cotaimg.verify", "0") == "1" && cota_dir != "0") {
        loadExtensionPartitionSimswitchProperties(cota_dir, &props);
    }
    if (!props.empty()) sink(0, std::move(props));
    loadSpecialProperties(sink);
}

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(std::string trigger,
                                                                PropertySink sink) noexcept {
    if (trigger == kOverrideSwitchTrigger) {
        loadOverridePropertiesByPriority(sink);
    } else if (android::base::StartsWith(trigger, kLogoTriggerPrefix)) {
        copyLogoIfNeeded(std::move(trigger));
    }
}

void InitExtensionPropertyImpl::copyLogoIfNeeded(std::string trigger) {
    const bool boot_trigger = trigger == kLogoBootTrigger;
    const bool company_trigger = boot_trigger || trigger == kLogoCompanyTrigger;

    if (!Exists(kLogoTarget)) {
        LOG(INFO) << "Can not access the target Partition";
        return;
    }
    const std::string copied_date = GetSystemProperty(kLogoDateProperty);
    const std::string current_date = GetSystemProperty(kCompanyDateUtcProperty);

    std::string source;
    if (company_trigger) {
        if (current_date.empty()) {
            LOG(INFO) << "Missing component information";
            return;
        }
        // The boot trigger copies once per company image; the plain one always.
        if (boot_trigger && !copied_date.empty() && copied_date == current_date) {
            LOG(INFO) << "Logo copied, no need to process again";
            return;
        }
        if (Exists(kLogoImage)) {
            source = kLogoImage;
        } else if (Exists(kLogoBinary)) {
            source = kLogoBinary;
        }
    } else if (size_t slash = trigger.find('/'); slash != std::string::npos) {
        // A path trigger names its source after the prefix: "triggerLogoCopy/a/b".
        std::string candidate = trigger.substr(slash);
        if (Exists(candidate)) source = std::move(candidate);
    }
    if (source.empty()) {
        LOG(INFO) << "No logo resource found";
        return;
    }

    if (CopyLogo(source) && company_trigger) {
        property_set(kLogoDateProperty, current_date.c_str());
    }
}

}  // namespace init
}  // namespace android
