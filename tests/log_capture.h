// SPDX-License-Identifier: Apache-2.0
// Captures libbase log records in the test process. Needs no sandbox, so the tests that use
// only this also build for a device.
#pragma once

#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

namespace zelva_test {

struct LogLine {
    android::base::LogSeverity severity;
    std::string file;
    std::string message;
};

// Captures libbase log records in this process while alive.
class LogCapture {
  public:
    explicit LogCapture(android::base::LogSeverity min = android::base::VERBOSE)
        : previous_min_(android::base::SetMinimumLogSeverity(min)) {
        android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                        const char*, const char* file, unsigned, const char* text) {
            lines_.push_back({severity, file != nullptr ? file : "", text});
        });
    }
    ~LogCapture() {
        android::base::SetLogger(android::base::StderrLogger);
        android::base::SetMinimumLogSeverity(previous_min_);
    }
    const std::vector<LogLine>& lines() const { return lines_; }
    // Messages at |severity|, in order.
    std::vector<std::string> Messages(android::base::LogSeverity severity) const {
        std::vector<std::string> messages;
        for (const LogLine& line : lines_) {
            if (line.severity == severity) messages.push_back(line.message);
        }
        return messages;
    }

  private:
    std::vector<LogLine> lines_;
    android::base::LogSeverity previous_min_;
};

}  // namespace zelva_test
