// SPDX-License-Identifier: Apache-2.0
#include "records.h"

#include <string.h>

#include <android-base/file.h>

namespace sandbox {
namespace {

// Large enough that a batch costs few writes, small against any batch worth
// streaming.
constexpr size_t kWriteBuffer = 64 * 1024;

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

RecordWriter::RecordWriter(int fd, char tag, uint32_t fields) : fd_(fd) {
    buffer_.reserve(kWriteBuffer);
    buffer_.push_back(tag);
    AppendU32(&buffer_, fields);
}

void RecordWriter::Field(std::string_view field) {
    const uint32_t size = field.size();
    Append(&size, sizeof(size));
    Append(field.data(), field.size());
}

void RecordWriter::End() {
    Flush();
}

void RecordWriter::Append(const void* data, size_t size) {
    if (buffer_.size() + size > kWriteBuffer) Flush();
    if (size >= kWriteBuffer) {
        android::base::WriteFully(fd_, data, size);
    } else {
        buffer_.append(static_cast<const char*>(data), size);
    }
}

void RecordWriter::Flush() {
    android::base::WriteFully(fd_, buffer_.data(), buffer_.size());
    buffer_.clear();
}

size_t RecordDecoder::HeadFields() const {
    switch (tag_) {
        case kBatch:
            return 2;
        case kNote:
        case kProperties:
            return 0;
        default:
            return count_;
    }
}

void RecordDecoder::Feed(const char* data, size_t size) {
    pending_.append(data, size);
    while (true) {
        if (!in_record_) {
            if (pending_.size() - pos_ < 1 + sizeof(count_)) break;
            tag_ = pending_[pos_];
            memcpy(&count_, pending_.data() + pos_ + 1, sizeof(count_));
            pos_ += 1 + sizeof(count_);
            in_record_ = true;
            taken_ = 0;
        }
        if (taken_ == count_) {
            Finish();
            continue;
        }
        if (!TakeField()) break;
    }
    pending_.erase(0, pos_);
    pos_ = 0;
}

bool RecordDecoder::TakeField() {
    uint32_t size;
    if (pending_.size() - pos_ < sizeof(size)) return false;
    memcpy(&size, pending_.data() + pos_, sizeof(size));
    if (pending_.size() - pos_ - sizeof(size) < size) return false;
    std::string field(pending_, pos_ + sizeof(size), size);
    pos_ += sizeof(size) + size;
    if (taken_ < HeadFields()) {
        head_.push_back(std::move(field));
    } else if ((taken_ - HeadFields()) % 2 == 0) {
        name_ = std::move(field);
    } else {
        // The child sends entries in name order: each goes at the end.
        map_.emplace_hint(map_.end(), std::move(name_), std::move(field));
    }
    ++taken_;
    return true;
}

void RecordDecoder::Finish() {
    switch (tag_) {
        case kBatch:
            if (head_.size() == 2) {
                outcome_->batches.push_back({std::move(head_[0]), std::stoi(head_[1]),
                                             std::move(map_)});
            }
            break;
        case kProperties:
            outcome_->properties = std::move(map_);
            break;
        case kNote:
            // Later notes replace earlier ones of the same key.
            while (!map_.empty()) {
                auto note = map_.extract(map_.begin());
                outcome_->notes.insert_or_assign(std::move(note.key()), std::move(note.mapped()));
            }
            break;
        default:
            ApplyRecord({tag_, std::move(head_)}, outcome_);
            break;
    }
    head_.clear();
    map_.clear();
    in_record_ = false;
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
        case kLog:
            if (f.size() == 6) {
                outcome->logs.push_back({f[0],
                                         static_cast<android::base::LogSeverity>(std::stoi(f[1])),
                                         f[2], static_cast<unsigned>(std::stoul(f[3])), f[4],
                                         f[5]});
            }
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
