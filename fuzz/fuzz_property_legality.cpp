// SPDX-License-Identifier: Apache-2.0
// IsLegalPropertyName and IsLegalPropertyValue. Input: name, a NUL byte, value.

#include <locale.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "utils.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\0');
    const std::string name = input.substr(0, split);
    const std::string value = split == std::string::npos ? "" : input.substr(split + 1);

    // Not empty, no "." at either end nor "..", and only letters, digits and "._-@:".
    const char* allowed = "._-@:abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const bool legal = !name.empty() && name.front() != '.' && name.back() != '.' &&
                       name.find("..") == std::string::npos &&
                       name.find_first_not_of(allowed) == std::string::npos;
    if (IsLegalPropertyName(name) != legal) abort();

    auto result = IsLegalPropertyValue(name, value);
    const std::string error = result.ok() ? "" : result.error().message();
    const bool ascii = std::all_of(value.begin(), value.end(), [](char c) { return c >= 0; });
    if (value.size() >= 92 && name.compare(0, 3, "ro.") != 0) {
        if (error != "Property value too long") abort();
    } else if (error != "" && (ascii || error != "Value is not a UTF8 encoded string")) {
        abort();  // ASCII is fine; other text may be refused as not UTF-8, nothing else
    }
    return 0;
}
