// SPDX-License-Identifier: Apache-2.0
// System property reads as the library does them: through property_get into a
// buffer of the platform's value limit, so values are at most 91 bytes.
#pragma once

#include <string>

#include <cutils/properties.h>

namespace android {
namespace init {

inline std::string GetSystemProperty(const char* name, const char* default_value = "") {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(name, value, default_value);
    return value;
}

}  // namespace init
}  // namespace android
