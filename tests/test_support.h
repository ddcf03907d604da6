// Shared helpers of the test suite.
#pragma once

#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "log_capture.h"
#include "sandbox.h"

namespace zelva_test {

using PropertyMap = std::map<std::string, std::string>;

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
