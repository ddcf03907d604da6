#include "log_capture.h"

#include <algorithm>

namespace zelva_test {

LogCapture::LogCapture(android::base::LogSeverity min)
    : previous_min_(android::base::SetMinimumLogSeverity(min)) {
    android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                    const char*, const char* file, unsigned, const char* message) {
        lines_.push_back({severity, file != nullptr ? file : "", message});
    });
}

LogCapture::~LogCapture() {
    android::base::SetLogger(android::base::StderrLogger);
    android::base::SetMinimumLogSeverity(previous_min_);
}

std::vector<std::string> LogCapture::Messages(android::base::LogSeverity severity) const {
    std::vector<std::string> messages;
    for (const LogLine& line : lines_) {
        if (line.severity == severity) messages.push_back(line.message);
    }
    return messages;
}

bool LogCapture::Has(android::base::LogSeverity severity, const std::string& message) const {
    return std::any_of(lines_.begin(), lines_.end(), [&](const LogLine& line) {
        return line.severity == severity && line.message == message;
    });
}

}  // namespace zelva_test
