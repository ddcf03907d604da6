// SPDX-License-Identifier: Apache-2.0
// The market name: published only when the device's storage size matches the
// size that the region's device name file was written for.

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "ZelvaExtensionProperty.h"
#include "system_properties.h"
#include "utils.h"

namespace android {
namespace init {
namespace {

constexpr int64_t kSectorsPerGiB = 2097152;  // 512-byte sectors

// The leading decimal number of |text| (after optional whitespace and sign),
// or nullopt when there is none or it doesn't fit in 64 bits.
std::optional<int64_t> ParseLeadingInt64(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long value = strtoll(begin, &end, 10);
    if (end == begin || errno == ERANGE) return std::nullopt;
    return value;
}

// The ROM size class of the device name file; 0 unless it is all digits.
int64_t ParseRomSize(const std::string& rom) {
    if (rom.empty() ||
        !std::all_of(rom.begin(), rom.end(), [](unsigned char c) { return std::isdigit(c); })) {
        return 0;
    }
    return ParseLeadingInt64(rom).value_or(0);
}

bool StorageMatchesRom(int64_t rom, int64_t gib) {
    const int64_t diff = rom - gib;
    switch (rom) {
        case 128:
        case 256:
            return std::abs(diff) < 50;
        case 512:
            return std::abs(diff) < 100;
        case 1024:
            return diff >= 0 && diff <= 99;  // a size above 1024 GiB never matches
        default:
            return false;
    }
}

}  // namespace

void updateMarketName(PropertySink sink) {
    const std::string config = "/my_product/cust/" + GetSkuRegion() + "/etc/devicename.cfg";
    // A confidential build never publishes a market name.
    if (GetSystemProperty("ro.version.softwareconfidential", "false") == "true") return;
    if (access(config.c_str(), F_OK) != 0) {
        LOG(ERROR) << "there is no config file: " << config;
        return;
    }

    const std::string size_path =
            "/sys/block/" + GetSystemProperty("dev.mnt.blk.userdata") + "/size";
    std::string size_text;
    if (!ReadFileToStringNoFollow(size_path, &size_text)) return;
    const std::optional<int64_t> sectors = ParseLeadingInt64(size_text);
    if (!sectors) return;

    const int64_t rom = ParseRomSize(load_property_from_file(config.c_str(), "ROM"));
    if (!StorageMatchesRom(rom, *sectors / kSectorsPerGiB)) return;

    PropertyMap props;
    props["ro.vendor.zelva.market.name"] = load_property_from_file(config.c_str(), "market");
    props["ro.product.littletail_type"] = load_property_from_file(config.c_str(), "type");
    props["ro.product.littletail_model"] = load_property_from_file(config.c_str(), "model");
    sink(0, props);
}

}  // namespace init
}  // namespace android
