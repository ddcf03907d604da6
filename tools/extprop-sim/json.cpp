// SPDX-License-Identifier: Apache-2.0
#include "json.h"

#include <cstdio>

namespace extprop_sim {
namespace {

// Length of the valid UTF-8 sequence at |i|, or 0.
size_t Utf8SequenceLength(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    size_t length;
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
    } else {
        return 0;
    }
    if (i + length > s.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = text[i];
        char escape[8];
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            snprintf(escape, sizeof(escape), "\\u%04x", c);
            out += escape;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (size_t length = Utf8SequenceLength(text, i); length != 0) {
            out.append(text, i, length);
            i += length - 1;
        } else {
            snprintf(escape, sizeof(escape), "\\u%04x", c);
            out += escape;
        }
    }
    return out + "\"";
}

std::string JsonObject(const std::map<std::string, std::string>& map, const std::string& indent) {
    if (map.empty()) return "{}";
    std::string out = "{";
    const char* separator = "\n";
    for (const auto& [name, value] : map) {
        out += separator + indent + "  " + JsonString(name) + ": " + JsonString(value);
        separator = ",\n";
    }
    return out + "\n" + indent + "}";
}

std::string JsonArray(const std::vector<std::string>& items) {
    std::string out = "[";
    const char* separator = "";
    for (const std::string& item : items) {
        out += separator + item;
        separator = ", ";
    }
    return out + "]";
}

}  // namespace extprop_sim
