// SPDX-License-Identifier: Apache-2.0
// ExpandProps against a model of ${name} expansion, with properties the input chooses.
//
// Input: "<name>=<value>" lines up to an empty line set properties (a few names and values,
// '$' and braces included); the rest is the text to expand.

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <android-base/result.h>
#include <android-base/strings.h>

#include "hostplatform/property_store.h"
#include "fuzz_input.h"
#include "utils.h"

namespace {

using fuzz_input::Fail;

using android::base::Error;
using android::base::Result;

// Expansion as its rules say: "$$" is "$"; a trailing "$" is dropped; "${name}" and
// "${name:-default}" (split at the first ":-" with text on both sides) are replaced once, by
// the property or else the default; anything else after "$" is refused.
Result<std::string> Expand(const std::string& src) {
    std::string out;
    size_t i = 0;
    while (i < src.size()) {
        if (src[i] != '$') {
            out += src[i++];
            continue;
        }
        if (i + 1 == src.size()) break;
        if (src[i + 1] == '$') {
            out += '$';
            i += 2;
            continue;
        }
        if (src[i + 1] != '{') {
            return Error() << "using deprecated syntax for specifying property '"
                           << src.substr(i + 1) << "', use ${name} instead";
        }
        const size_t close = src.find('}', i + 2);
        if (close == std::string::npos) {
            return Error() << "unexpected end of string in '" << src << "', looking for }";
        }
        std::string name = src.substr(i + 2, close - i - 2), fallback;
        for (size_t at = 1; at + 2 < name.size(); ++at) {
            if (name.compare(at, 2, ":-") == 0) {
                fallback = name.substr(at + 2);
                name.resize(at);
                break;
            }
        }
        if (name.empty()) return Error() << "invalid zero-length property name in '" << src << "'";
        std::string value = hostplatform::GetProperty(name).value_or("");
        if (value.empty()) value = fallback;
        if (value.empty()) {
            return Error() << "property '" << name << "' doesn't exist while expanding '" << src
                           << "'";
        }
        out += value;
        i = close + 1;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t blank = input.find("\n\n");
    hostplatform::ResetProperties();
    for (const std::string& line : android::base::Split(input.substr(0, blank), "\n")) {
        const size_t eq = line.find('=');
        if (eq != std::string::npos) hostplatform::SetProperty(line.substr(0, eq), line.substr(eq + 1));
    }
    const std::string src = blank == std::string::npos ? input : input.substr(blank + 2);

    auto result = ExpandProps(src);
    auto expected = Expand(src);
    if (result.ok() != expected.ok()) Fail("expanded or refused: " + src);
    if (result.ok() ? *result != *expected : result.error().message() != expected.error().message()) {
        Fail("expansion of " + src);
    }
    return 0;
}
