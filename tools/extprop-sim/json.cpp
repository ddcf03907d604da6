// SPDX-License-Identifier: Apache-2.0
#include "json.h"

#include <algorithm>

namespace extprop_sim {
namespace {

// Length of the valid UTF-8 sequence at |i| (no overlong forms, no
// surrogates, nothing above U+10FFFF), or 0.
size_t SequenceLength(const std::string& s, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) return 1;
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the bounds of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;   // overlong below U+0800
        if (lead == 0xED) high = 0x9F;  // U+D800..U+DFFF, surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;   // overlong below U+10000
        if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
        return 0;  // a continuation byte, C0/C1 (overlong) or F5..FF
    }
    if (i + length > s.size() || byte(i + 1) < low || byte(i + 1) > high) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

std::string Hex(const std::string& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const unsigned char c : bytes) {
        hex += kDigits[c >> 4];
        hex += kDigits[c & 0xF];
    }
    return hex;
}

}  // namespace

bool IsValidUtf8(const std::string& bytes) {
    for (size_t i = 0; i < bytes.size();) {
        const size_t length = SequenceLength(bytes, i);
        if (length == 0) return false;
        i += length;
    }
    return true;
}

std::string ReplaceInvalidUtf8(const std::string& bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        const size_t length = SequenceLength(bytes, i);
        if (length == 0) {
            text += "\xEF\xBF\xBD";
            ++i;
        } else {
            text.append(bytes, i, length);
            i += length;
        }
    }
    return text;
}

void PutBytes(Json* record, const std::string& key, const std::optional<std::string>& bytes) {
    if (!bytes) {
        (*record)[key] = nullptr;
        (*record)[key + "_hex"] = nullptr;
        (*record)[key + "_valid_utf8"] = nullptr;
        return;
    }
    const bool valid = IsValidUtf8(*bytes);
    (*record)[key] = valid ? *bytes : ReplaceInvalidUtf8(*bytes);
    (*record)[key + "_hex"] = valid ? Json(nullptr) : Json(Hex(*bytes));
    (*record)[key + "_valid_utf8"] = valid;
}

Json BytesRecord(const std::string& bytes) {
    Json record = Json::object();
    PutBytes(&record, "value", bytes);
    return record;
}

Json BytesList(const std::vector<std::string>& list) {
    Json array = Json::array();
    for (const std::string& bytes : list) array.push_back(BytesRecord(bytes));
    return array;
}

Json PropertyList(const std::map<std::string, std::string>& props) {
    Json array = Json::array();
    for (const auto& [name, value] : props) {
        Json record = Json::object();
        PutBytes(&record, "name", name);
        PutBytes(&record, "value", value);
        array.push_back(std::move(record));
    }
    return array;
}

Json JsonDocument(const std::string& command) {
    return Json{{"schema", kJsonSchemaTag}, {"command", command}};
}

std::string JsonText(const Json& document) {
    // Every string went through PutBytes or is the program's own: strict
    // UTF-8 checking can't fail, and would say so if it did.
    return document.dump(2) + "\n";
}

const char* SeverityName(android::base::LogSeverity severity) {
    static constexpr const char* kNames[] = {"verbose", "debug", "info", "warning",
                                             "error",   "fatal", "fatal"};
    return severity >= 0 && severity < 7 ? kNames[severity] : "fatal";
}

Json LogRecordJson(const sandbox::LogRecord& record, std::optional<int> step) {
    Json json = Json::object();
    json["step"] = step ? Json(*step) : Json(nullptr);
    json["severity"] = SeverityName(record.severity);
    // A tag is a program's name; one that isn't plain text is left out.
    const bool plain_tag =
            !record.tag.empty() && std::all_of(record.tag.begin(), record.tag.end(), [](char c) {
                return c >= 0x20 && c < 0x7f;
            });
    json["tag"] = plain_tag ? Json(record.tag) : Json(nullptr);
    PutBytes(&json, "file", record.file);
    json["line"] = record.line;
    PutBytes(&json, "message", record.message);
    return json;
}

}  // namespace extprop_sim
