// SPDX-License-Identifier: Apache-2.0
// libbase's property functions for the extension library on the host.
//
// Debian's host libbase keeps its own unlocked map behind GetProperty and
// SetProperty, separate from property_get/property_set. This file is linked
// into the library itself and kept local by its version script, so the
// library's calls bind here at link time, whatever order a host process loads
// libbase in, and reach the one locked store that the cutils API uses too.

#include <android-base/parsebool.h>
#include <android-base/parseint.h>
#include <android-base/properties.h>

#include "hostplatform/property_store.h"

namespace android {
namespace base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
    auto value = hostplatform::GetProperty(key);
    return value ? *value : default_value;
}

bool GetBoolProperty(const std::string& key, bool default_value) {
    switch (ParseBool(GetProperty(key, ""))) {
        case ParseBoolResult::kTrue:
            return true;
        case ParseBoolResult::kFalse:
            return false;
        case ParseBoolResult::kError:
            break;
    }
    return default_value;
}

template <typename T>
T GetIntProperty(const std::string& key, T default_value, T min, T max) {
    T result;
    std::string value = GetProperty(key, "");
    if (!value.empty() && ParseInt(value, &result, min, max)) return result;
    return default_value;
}

template <typename T>
T GetUintProperty(const std::string& key, T default_value, T max) {
    T result;
    std::string value = GetProperty(key, "");
    if (!value.empty() && ParseUint(value, &result, max)) return result;
    return default_value;
}

template int8_t GetIntProperty(const std::string&, int8_t, int8_t, int8_t);
template int16_t GetIntProperty(const std::string&, int16_t, int16_t, int16_t);
template int32_t GetIntProperty(const std::string&, int32_t, int32_t, int32_t);
template int64_t GetIntProperty(const std::string&, int64_t, int64_t, int64_t);
template uint8_t GetUintProperty(const std::string&, uint8_t, uint8_t);
template uint16_t GetUintProperty(const std::string&, uint16_t, uint16_t);
template uint32_t GetUintProperty(const std::string&, uint32_t, uint32_t);
template uint64_t GetUintProperty(const std::string&, uint64_t, uint64_t);

bool SetProperty(const std::string& key, const std::string& value) {
    return hostplatform::SetProperty(key, value);
}

}  // namespace base
}  // namespace android
