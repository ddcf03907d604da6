// SPDX-License-Identifier: Apache-2.0
// ExpandProps over arbitrary text, against a fixed set of properties.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include <android-base/properties.h>
#include <android-base/strings.h>

#include "utils.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (const std::string prop : {"ro.a=1", "ro.dir=/tmp/x", "x=v", "dollar=$x${x}$",
                                   "ro.long=0123456789012345678901234567890123456789"}) {
        android::base::SetProperty(prop.substr(0, prop.find('=')), prop.substr(prop.find('=') + 1));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string src(reinterpret_cast<const char*>(data), size);
    auto result = ExpandProps(src);
    // Text without '$' comes back unchanged.
    if (src.find('$') == std::string::npos && (!result.ok() || *result != src)) abort();
    if (result.ok()) return 0;
    // Every failure is one of the five documented ones.
    for (const char* prefix : {"unexpected end of string in '", "using deprecated syntax",
                               "invalid zero-length property name in '", "property '"}) {
        if (android::base::StartsWith(result.error().message(), prefix)) return 0;
    }
    abort();
}
