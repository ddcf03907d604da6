// Shared helpers of the test suite.
#pragma once

#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "sandbox.h"

namespace zelva_test {

using PropertyMap = std::map<std::string, std::string>;

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

// Runs |fn| in the device-root sandbox built from |tree|. When the machine
// refuses the namespaces the test is skipped, or fails under CI=true.
sandbox::Outcome RunInDevice(const sandbox::DeviceTree& tree, const sandbox::Function& fn,
                             sandbox::Options options = {});
sandbox::Outcome RunInDevice(const sandbox::ScratchRoot& root, const sandbox::Function& fn,
                             sandbox::Options options = {});

// Skips (or, under CI=true, fails) when the sandbox couldn't be entered, and
// fails when the child didn't complete. Use right after RunInDevice.
#define ASSERT_DEVICE_RAN(outcome)                                                      \
    do {                                                                                \
        if (!(outcome).unavailable.empty()) {                                           \
            if (::zelva_test::InCi()) FAIL() << "sandbox refused in CI: " << (outcome).unavailable; \
            GTEST_SKIP() << "device-root sandbox unavailable: " << (outcome).unavailable; \
        }                                                                               \
        ASSERT_TRUE((outcome).Completed()) << (outcome).Describe();                     \
    } while (0)

bool InCi();

// Batches sent with |kind|, in order.
std::vector<PropertyMap> BatchesOfKind(const sandbox::Outcome& outcome, int kind);
// The kinds of all batches, in order.
std::vector<int> Kinds(const sandbox::Outcome& outcome);

// Paths of the built artefacts and the repository's examples.
std::string LibraryPath();
std::string ExamplesDir();

}  // namespace zelva_test
