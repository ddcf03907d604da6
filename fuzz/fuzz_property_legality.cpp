// IsLegalPropertyName and IsLegalPropertyValue. Input: name, a NUL byte, value.

#include <locale.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "utils.h"

namespace {

bool NameFollowsTheRules(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    if (name.find("..") != std::string::npos) return false;
    return std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != 0 && strchr("._-@:", c) != nullptr);
    });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\0');
    const std::string name = input.substr(0, split);
    const std::string value = split == std::string::npos ? "" : input.substr(split + 1);

    if (IsLegalPropertyName(name) != NameFollowsTheRules(name)) abort();

    auto result = IsLegalPropertyValue(name, value);
    const std::string error = result.ok() ? "" : result.error().message();
    const bool too_long = value.size() >= 92 && name.compare(0, 3, "ro.") != 0;
    const bool ascii = std::all_of(value.begin(), value.end(), [](char c) { return c >= 0; });
    if (too_long) {
        if (error != "Property value too long") abort();
    } else if (ascii) {
        if (!error.empty()) abort();
    } else if (!error.empty() && error != "Value is not a UTF8 encoded string") {
        abort();
    }
    return 0;
}
