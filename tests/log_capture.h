// Captures libbase log records in the test process (no sandbox needed, so
// the tests that use only this also build for a device).
#pragma once

#include <string>
#include <vector>

#include <android-base/logging.h>

namespace zelva_test {

struct LogLine {
    android::base::LogSeverity severity;
    std::string file;
    std::string message;
};

// Captures libbase log records in this process while alive.
class LogCapture {
  public:
    explicit LogCapture(android::base::LogSeverity min = android::base::VERBOSE);
    ~LogCapture();
    const std::vector<LogLine>& lines() const { return lines_; }
    // Messages at |severity|, in order.
    std::vector<std::string> Messages(android::base::LogSeverity severity) const;
    bool Has(android::base::LogSeverity severity, const std::string& message) const;
    void Clear() { lines_.clear(); }

  private:
    std::vector<LogLine> lines_;
    android::base::LogSeverity previous_min_;
};

}  // namespace zelva_test
