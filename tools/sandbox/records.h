// SPDX-License-Identifier: Apache-2.0
// The records a sandbox child sends its parent over a pipe, and how the parent
// folds them into an Outcome.
//
// A record is a tag byte, a field count and the fields, each a 32-bit length
// and its bytes. Records are written whole under one lock, so batches from
// the COTA thread and the host's thread never interleave.
//
// A batch or the property store can hold every line of a large build.prop, so
// neither side ever holds one of those as a whole encoded record: the child
// writes it a buffer at a time, and the parent decodes as the bytes arrive,
// moving each name and value into the map it ends up in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox.h"

namespace sandbox {

enum RecordTag : char {
    kUnavailable = 'U',  // the namespaces or the root were refused
    kSetupError = 'X',
    kStarted = 'S',
    kBatch = 'B',       // step, kind, then name and value of each entry
    kLog = 'L',
    kNote = 'N',        // key and value of each note
    kProperties = 'P',  // name and value of each property
    kTreeEntry = 'T',
    kKilledBy = 'K',  // the function's process ended by a signal (its number)
    kLeaks = 'M',     // LeakSanitizer found leaks in the function's process
};

struct Record {
    char tag;
    std::vector<std::string> fields;
};

std::string EncodeRecord(char tag, const std::vector<std::string>& fields);

// Writes one record to a descriptor a field at a time, through a buffer of
// bounded size. The caller keeps other writers out until End.
class RecordWriter {
  public:
    RecordWriter(int fd, char tag, uint32_t fields);
    void Field(std::string_view field);
    void End();

  private:
    void Append(const void* data, size_t size);
    void Flush();
    const int fd_;
    std::string buffer_;
};

// Folds records into an Outcome as their bytes arrive. A record that never
// ends (the child died while writing it) leaves no trace.
class RecordDecoder {
  public:
    explicit RecordDecoder(Outcome* outcome) : outcome_(outcome) {}
    void Feed(const char* data, size_t size);

  private:
    bool TakeField();
    void Finish();
    // Fields of the current record that come before its map entries (all of
    // them for records without a map).
    size_t HeadFields() const;

    Outcome* const outcome_;
    std::string pending_;  // bytes not yet decoded
    size_t pos_ = 0;       // decoded bytes at the front of |pending_|
    bool in_record_ = false;
    char tag_ = 0;
    uint32_t count_ = 0;
    uint32_t taken_ = 0;
    std::vector<std::string> head_;
    PropertyMap map_;
    std::string name_;  // an entry's name, waiting for its value
};

void ApplyRecord(const Record& record, Outcome* outcome);

}  // namespace sandbox
