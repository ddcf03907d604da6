// SPDX-License-Identifier: Apache-2.0
// The records a sandbox child sends its parent over a pipe, and how the parent
// folds them into an Outcome.
//
// A record is a tag byte, a field count and the fields, each a 32-bit length
// and its bytes. Records are written whole under one lock, so batches from
// the COTA thread and the host's thread never interleave.
#pragma once

#include <string>
#include <vector>

#include "sandbox.h"

namespace sandbox {

enum RecordTag : char {
    kUnavailable = 'U',  // the namespaces or the root were refused
    kSetupError = 'X',
    kStarted = 'S',
    kBatch = 'B',
    kLog = 'L',
    kNote = 'N',
    kProperties = 'P',
    kTreeEntry = 'T',
    kKilledBy = 'K',  // the function's process ended by a signal (its number)
    kLeaks = 'M',     // LeakSanitizer found leaks in the function's process
};

struct Record {
    char tag;
    std::vector<std::string> fields;
};

std::string EncodeRecord(char tag, const std::vector<std::string>& fields);

// Decodes as many whole records as |data| holds.
std::vector<Record> DecodeRecords(const std::string& data);

// |head| followed by each name and value of |map|.
std::vector<std::string> FlattenMap(std::vector<std::string> head, const PropertyMap& map);

void ApplyRecord(const Record& record, Outcome* outcome);

}  // namespace sandbox
