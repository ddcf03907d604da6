// SPDX-License-Identifier: Apache-2.0
// COTA override properties and the display version name composed from the
// carrier and COTA releases.

#include <unistd.h>

#include <android-base/logging.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr char kDisplayVersionProperty[] = "ro.zelva.customize.display.version_name";
constexpr char kCarrierVersionProperty[] = "ro.zelva.image.my_carrier.version_name";
constexpr char kCarrierDateProperty[] = "ro.zelva.image.my_carrier.date.utc";
constexpr char kBigballVersionProperty[] = "ro.zelva.image.my_bigball.version_name";
constexpr char kBigballDateProperty[] = "ro.zelva.image.my_bigball.date.utc";
constexpr char kCotaVersionProperty[] = "ro.build.cota.version_name";
constexpr size_t kCotaNumberWidth = 3;

// The text after the last '_' that stands at index 1 or later, if any.
bool SplitAtLastUnderscore(const std::string& text, std::string* before, std::string* after) {
    const size_t underscore = text.rfind('_');
    if (underscore == std::string::npos || underscore < 1) return false;
    *before = text.substr(0, underscore);
    *after = text.substr(underscore + 1);
    return true;
}

}  // namespace

void renameBigballToCarrier(PropertyMap* props) {
    // The date entry stays; the version entry is replaced by the carrier's.
    if (auto date = props->find(kBigballDateProperty); date != props->end()) {
        props->emplace(kCarrierDateProperty, date->second);
    }
    if (auto version = props->find(kBigballVersionProperty); version != props->end()) {
        props->emplace(kCarrierVersionProperty, version->second);
        props->erase(version);
    }
}

void InitExtensionPropertyImpl::loadCotaOverrideProperties(PropertySink sink) noexcept {
    const std::string verify = GetSystemProperty("sys.cotaimg.verify", "0");
    const std::string dir = GetSystemProperty("sys.cota.load.properties", "0");
    if (verify != "1" || dir == "0") return;

    PropertyMap props;
    loadExtensionPartitionProperties(dir, &props);
    loadExtensionPartitionSimswitchProperties(dir, &props);
    renameBigballToCarrier(&props);
    // Handed over whole, not copied: nothing here reads it again.
    if (!props.empty()) sink(0, std::move(props));
    loadSpecialProperties(sink);
}

void InitExtensionPropertyImpl::updateCotaInfoProperties(PropertySink sink) {
    if (access(kCotaMountInfoFile, F_OK) != 0) {
        LOG(ERROR) << "not valid cota mount info file: " << kCotaMountInfoFile;
        return;
    }
    PropertyMap props;
    if (!load_properties_from_file_without_se(kCotaMountInfoFile, nullptr, &props)) {
        LOG(ERROR) << "cota info prop load failed:" << kCotaMountInfoFile;
    }
    // One-shot: consumed whether or not it loaded.
    if (unlink(kCotaMountInfoFile) != 0)
        PLOG(ERROR) << "unlink() failed for " << kCotaMountInfoFile;
    if (props.empty()) return;
    sink(0, std::move(props));
    loadCustomizeDisplayVersionName(sink);
}

void loadCustomizeDisplayVersionName(PropertySink sink) noexcept {
    std::string display = GetSystemProperty(kDisplayVersionProperty);
    if (display.empty()) return;

    const std::string carrier = GetSystemProperty(kCarrierVersionProperty);
    if (!carrier.empty()) {
        LOG(INFO) << "carrier version " << carrier;
        const size_t dash = carrier.rfind('-');
        display = dash != std::string::npos && dash >= 1 ? carrier.substr(dash + 1) : carrier;
    }
    if (display.empty()) return;

    // COTA version name: <anything>_<android letter>_<image type>_<number>.
    const std::string cota = GetSystemProperty(kCotaVersionProperty);
    std::string front, number;
    if (SplitAtLastUnderscore(cota, &front, &number)) {
        std::string android = "T";
        std::string image_type = "P";
        if (number.size() < kCotaNumberWidth)
            number.insert(0, kCotaNumberWidth - number.size(), '0');

        std::string lead, type_field;
        if (front.size() >= 2 && SplitAtLastUnderscore(front, &lead, &type_field)) {
            if (type_field == "COTA") image_type = "CT";
            std::string ignored, letter;
            if (lead.size() >= 2 && SplitAtLastUnderscore(lead, &ignored, &letter)) {
                android = letter;
            }
        }

        if (!android.empty() && !image_type.empty() && !number.empty()) {
            // Deliberately unguarded: a one-character display version throws
            // out_of_range here, which ends the process.
            const std::string ending = display.substr(display.size() - 2);
            if (ending == "PM" || ending == "CT") {
                display =
                        display.substr(0, display.size() - 2) + image_type + "_" + android + number;
            } else {
                display += "_" + android + number;
            }
        }
        LOG(INFO) << "cota type " << image_type << " android version: " << android
                  << " cota version: " << number << " display version: " << display;
    }
    if (!display.empty()) sink(0, PropertyMap{{kDisplayVersionProperty, display}});
}

}  // namespace init
}  // namespace android
