#include "test_support.h"

#include <stdlib.h>
#include <string.h>

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

bool InCi() {
    const char* ci = getenv("CI");
    return ci != nullptr && strcmp(ci, "true") == 0;
}

sandbox::Outcome RunInDevice(const sandbox::DeviceTree& tree, const sandbox::Function& fn,
                             sandbox::Options options) {
    return sandbox::Run(tree, options, fn);
}

sandbox::Outcome RunInDevice(const sandbox::ScratchRoot& root, const sandbox::Function& fn,
                             sandbox::Options options) {
    return sandbox::Run(root, options, fn);
}

std::vector<PropertyMap> BatchesOfKind(const sandbox::Outcome& outcome, int kind) {
    std::vector<PropertyMap> batches;
    for (const sandbox::Batch& batch : outcome.batches) {
        if (batch.kind == kind) batches.push_back(batch.props);
    }
    return batches;
}

std::vector<int> Kinds(const sandbox::Outcome& outcome) {
    std::vector<int> kinds;
    for (const sandbox::Batch& batch : outcome.batches) kinds.push_back(batch.kind);
    return kinds;
}

std::string LibraryPath() {
    return ZELVA_LIBRARY_PATH;
}

std::string ExamplesDir() {
    return ZELVA_EXAMPLES_DIR;
}

}  // namespace zelva_test
