// SPDX-License-Identifier: Apache-2.0
#include "records.h"

#include <string.h>

#include <cstdint>

namespace sandbox {
namespace {

PropertyMap UnflattenMap(const std::vector<std::string>& fields, size_t from) {
    PropertyMap map;
    for (size_t i = from; i + 1 < fields.size(); i += 2) map[fields[i]] = fields[i + 1];
    return map;
}

void AppendU32(std::string* out, uint32_t value) {
    out->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

}  // namespace

std::string EncodeRecord(char tag, const std::vector<std::string>& fields) {
    std::string out(1, tag);
    AppendU32(&out, fields.size());
    for (const std::string& field : fields) {
        AppendU32(&out, field.size());
        out.append(field);
    }
    return out;
}

std::vector<Record> DecodeRecords(const std::string& data) {
    std::vector<Record> records;
    size_t pos = 0;
    auto read_u32 = [&](uint32_t* value) {
        if (data.size() - pos < sizeof(*value)) return false;
        memcpy(value, data.data() + pos, sizeof(*value));
        pos += sizeof(*value);
        return true;
    };
    while (pos < data.size()) {
        Record record{data[pos++], {}};
        uint32_t count;
        if (!read_u32(&count)) break;
        bool whole = true;
        for (uint32_t i = 0; i < count && whole; ++i) {
            uint32_t size;
            whole = read_u32(&size) && data.size() - pos >= size;
            if (whole) {
                record.fields.emplace_back(data, pos, size);
                pos += size;
            }
        }
        if (!whole) break;
        records.push_back(std::move(record));
    }
    return records;
}

std::vector<std::string> FlattenMap(std::vector<std::string> head, const PropertyMap& map) {
    for (const auto& [name, value] : map) {
        head.push_back(name);
        head.push_back(value);
    }
    return head;
}

void ApplyRecord(const Record& record, Outcome* outcome) {
    const std::vector<std::string>& f = record.fields;
    switch (record.tag) {
        case kUnavailable:
            if (!f.empty()) outcome->unavailable = f[0];
            break;
        case kSetupError:
            if (!f.empty()) outcome->error = f[0];
            break;
        case kStarted:
            outcome->ran = true;
            break;
        case kBatch:
            if (f.size() >= 2)
                outcome->batches.push_back({f[0], std::stoi(f[1]), UnflattenMap(f, 2)});
            break;
        case kLog:
            if (f.size() == 5) {
                outcome->logs.push_back({f[0],
                                         static_cast<android::base::LogSeverity>(std::stoi(f[1])),
                                         f[2], static_cast<unsigned>(std::stoul(f[3])), f[4]});
            }
            break;
        case kNote:
            if (f.size() == 2) outcome->notes[f[0]] = f[1];
            break;
        case kProperties:
            outcome->properties = UnflattenMap(f, 0);
            break;
        case kTreeEntry:
            if (f.size() == 6) {
                outcome->tree[f[0]] = {f[1][0], static_cast<mode_t>(std::stoul(f[2])),
                                       static_cast<uid_t>(std::stoul(f[3])),
                                       static_cast<gid_t>(std::stoul(f[4])), f[5]};
            }
            break;
        case kKilledBy:
            if (f.size() == 1) outcome->signal = std::stoi(f[0]);
            break;
        case kLeaks:
            outcome->leaks = true;
            break;
    }
}

}  // namespace sandbox
