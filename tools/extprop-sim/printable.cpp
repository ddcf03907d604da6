// SPDX-License-Identifier: Apache-2.0
#include "printable.h"

#include <algorithm>
#include <cstdio>

namespace extprop_sim {

void AppendPrintable(const std::string& text, std::string* out) {
    const bool plain = std::none_of(text.begin(), text.end(), [](char c) {
        const unsigned char byte = c;
        return byte < 0x20 || byte == 0x7F || byte == 0xC2;
    });
    if (plain) {
        *out += text;
        return;
    }
    auto hex = [out](unsigned char c) {
        char escape[5];
        snprintf(escape, sizeof(escape), "\\x%02x", c);
        *out += escape;
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = text[i];
        if (c == '\n') {
            *out += "\\n";
        } else if (c == '\r') {
            *out += "\\r";
        } else if (c == '\t') {
            *out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            hex(c);
        } else if (c == 0xC2 && i + 1 < text.size() &&
                   static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
            // U+0080..U+009F: C1 controls (CSI among them) in UTF-8.
            hex(c);
            hex(static_cast<unsigned char>(text[++i]));
        } else {
            *out += static_cast<char>(c);
        }
    }
}

std::string Printable(const std::string& text) {
    std::string out;
    AppendPrintable(text, &out);
    return out;
}

}  // namespace extprop_sim
