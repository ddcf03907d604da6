// SPDX-License-Identifier: Apache-2.0
// IsLegalPropertyName and IsLegalPropertyValue against a model of their rules. Input: name, a
// NUL byte, value.
//
// The value check is the C library's multibyte reading under a UTF-8 locale. The model is
// UTF-8 as glibc's C.UTF-8 reads it: shortest forms only, no surrogates, and, beyond RFC 3629,
// the five- and six-byte forms and code points above U+10FFFF that glibc still accepts (Bionic
// does not: on a device those values are refused).

#include <locale.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "fuzz_input.h"
#include "utils.h"

namespace {

using fuzz_input::Fail;

// Length of the sequence a lead byte opens (0: no lead byte), and the least code point that
// needs that length.
size_t SequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC0) return 0;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    if (lead < 0xF8) return 4;
    if (lead < 0xFC) return 5;
    return lead < 0xFE ? 6 : 0;
}

bool IsUtf8(const std::string& value) {
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    for (size_t i = 0; i < value.size();) {
        const unsigned char lead = value[i];
        const size_t length = SequenceLength(lead);
        if (length == 0 || i + length > value.size()) return false;
        uint32_t code = length == 1 ? lead : lead & (0x7F >> length);
        for (size_t k = 1; k < length; ++k) {
            const unsigned char next = value[i + k];
            if ((next & 0xC0) != 0x80) return false;
            code = code << 6 | (next & 0x3F);
        }
        if (code < kLeast[length] || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += length;
    }
    return true;
}

bool IsLegalName(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    if (name.find("..") != std::string::npos) return false;
    for (unsigned char c : name) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool digit = c >= '0' && c <= '9';
        if (!letter && !digit && std::string("._-@:").find(c) == std::string::npos) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (setlocale(LC_ALL, "C.UTF-8") == nullptr) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\0');
    const std::string name = input.substr(0, split);
    const std::string value = split == std::string::npos ? "" : input.substr(split + 1);

    if (IsLegalPropertyName(name) != IsLegalName(name)) Fail("name legality");

    auto result = IsLegalPropertyValue(name, value);
    const std::string error = result.ok() ? "" : result.error().message();
    if (value.size() >= 92 && name.compare(0, 3, "ro.") != 0) {
        if (error != "Property value too long") Fail("long value accepted");
    } else if (error != (IsUtf8(value) ? "" : "Value is not a UTF8 encoded string")) {
        Fail("value legality");
    }
    return 0;
}
