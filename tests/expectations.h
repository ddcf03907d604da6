// SPDX-License-Identifier: Apache-2.0
// What a test expects, as values: the batches the library sent, the records it logged and the
// files it left. Each has operator== and PrintTo, so a matcher that fails (ElementsAre,
// UnorderedElementsAre, Contains) prints the values that differ, not two long strings.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "log_capture.h"
#include "sandbox.h"

namespace zelva_test {

using PropertyMap = std::map<std::string, std::string>;

// Kind codes of the host's sink: which kind of batch the library chose to send.
constexpr int kOrdinary = 0;  // every ordinary batch
constexpr int kCompany = 1;   // the company partition's properties outside "ro."
constexpr int kRestore = 2;   // the channel reset and the company image date record

// One batch handed to the sink.
struct SentBatch {
    int kind;
    PropertyMap props;
    bool operator==(const SentBatch&) const = default;
};

inline void PrintTo(const SentBatch& batch, std::ostream* os) {
    static const char* const kNames[] = {"ordinary", "company", "restore"};
    const bool known = batch.kind >= 0 && batch.kind <= 2;
    *os << (known ? kNames[batch.kind] : "unknown") << " batch (kind " << batch.kind << ") "
        << testing::PrintToString(batch.props);
}

inline SentBatch Ordinary(PropertyMap props) {
    return {kOrdinary, std::move(props)};
}
inline SentBatch Company(PropertyMap props) {
    return {kCompany, std::move(props)};
}
inline SentBatch Restore(PropertyMap props) {
    return {kRestore, std::move(props)};
}

// The batches of |outcome| in the order they were sent; only those of |step| when given.
inline std::vector<SentBatch> SentBatches(const sandbox::Outcome& outcome,
                                          const std::optional<std::string>& step = std::nullopt) {
    std::vector<SentBatch> batches;
    for (const sandbox::Batch& batch : outcome.batches) {
        if (!step || batch.step == *step) batches.push_back({batch.kind, batch.props});
    }
    return batches;
}

// One log record: how severe, and what it says.
struct LogRecord {
    android::base::LogSeverity severity;
    std::string message;
    bool operator==(const LogRecord&) const = default;
};

inline void PrintTo(const LogRecord& record, std::ostream* os) {
    static const char* const kNames[] = {
            "VERBOSE", "DEBUG", "INFO", "WARNING", "ERROR", "FATAL_WITHOUT_ABORT", "FATAL"};
    *os << kNames[record.severity] << " \"" << record.message << "\"";
}

inline LogRecord Info(std::string message) {
    return {android::base::INFO, std::move(message)};
}
inline LogRecord Warning(std::string message) {
    return {android::base::WARNING, std::move(message)};
}
inline LogRecord Error(std::string message) {
    return {android::base::ERROR, std::move(message)};
}

// Which records LogRecords() keeps.
struct LogFilter {
    std::optional<std::string> step;                                   // only those of this step
    android::base::LogSeverity min_severity = android::base::VERBOSE;  // and at least this severe
    bool parser = false;  // also the property file parser's own records (utils.cpp)
};

// The log records of |outcome|, in order, as |filter| selects them.
inline std::vector<LogRecord> LogRecords(const sandbox::Outcome& outcome, LogFilter filter = {}) {
    std::vector<LogRecord> records;
    for (const sandbox::LogRecord& record : outcome.logs) {
        if (filter.step && record.step != *filter.step) continue;
        if (record.severity < filter.min_severity) continue;
        if (!filter.parser && record.file == "utils.cpp") continue;
        records.push_back({record.severity, record.message});
    }
    return records;
}

// The records |capture| holds, in order, at least |min_severity| severe.
inline std::vector<LogRecord> LogRecords(
        const LogCapture& capture,
        android::base::LogSeverity min_severity = android::base::VERBOSE) {
    std::vector<LogRecord> records;
    for (const LogLine& line : capture.lines()) {
        if (line.severity >= min_severity) records.push_back({line.severity, line.message});
    }
    return records;
}

// A regular file as the device leaves it.
struct FileState {
    std::string content;
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0644;
    bool operator==(const FileState&) const = default;
};

inline void PrintTo(const FileState& file, std::ostream* os) {
    *os << "file \"" << file.content << "\" owned by " << file.uid << ":" << file.gid << " mode 0"
        << std::oct << file.mode << std::dec;
}

// The state of the regular file at |device_path| in the final tree; nullopt when it is absent
// or not a regular file.
inline std::optional<FileState> FileAt(const sandbox::Outcome& outcome,
                                       const std::string& device_path) {
    const auto it = outcome.tree.find(device_path);
    if (it == outcome.tree.end() || it->second.type != 'f') return std::nullopt;
    const sandbox::TreeEntry& entry = it->second;
    return FileState{entry.data, entry.uid, entry.gid, entry.mode & 07777};
}

}  // namespace zelva_test
