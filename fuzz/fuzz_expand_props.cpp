// ExpandProps over arbitrary text, against a fixed set of properties.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "utils.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    android::base::SetLogger([](auto&&...) {});
    const std::pair<const char*, const char*> properties[] = {
            {"ro.a", "1"},         {"ro.dir", "/tmp/x"},  {"x", "v"},
            {"dollar", "$x${x}$"}, {"ro.long", "0123456789012345678901234567890123456789"},
    };
    for (const auto& [name, value] : properties) android::base::SetProperty(name, value);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string src(reinterpret_cast<const char*>(data), size);
    auto result = ExpandProps(src);
    // Text without '$' comes back unchanged.
    if (src.find('$') == std::string::npos && (!result.ok() || *result != src)) abort();
    if (result.ok()) return 0;
    // Every failure is one of the five documented ones.
    const std::string& message = result.error().message();
    for (const char* prefix : {"unexpected end of string in '", "using deprecated syntax",
                               "invalid zero-length property name in '", "property '"}) {
        if (android::base::StartsWith(message, prefix)) return 0;
    }
    abort();
}
