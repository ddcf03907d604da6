// SPDX-License-Identifier: Apache-2.0
// Shared helpers of the test suite.
#pragma once

#include <stdlib.h>

#include "log_capture.h"  // and with it gtest, libbase logging, strings and vectors
#include "sandbox.h"

namespace zelva_test {

using PropertyMap = std::map<std::string, std::string>;

inline bool InCi() {
    return getenv("CI") != nullptr && std::string(getenv("CI")) == "true";
}

// Runs |fn| in the device-root sandbox: a fresh one built from a sandbox::DeviceTree, or a
// sandbox::ScratchRoot kept between runs.
template <typename Root>
sandbox::Outcome RunInDevice(const Root& root, const sandbox::Function& fn,
                             sandbox::Options options = {}) {
    return sandbox::Run(root, options, fn);
}
template <typename Root>
sandbox::Outcome RunInDevice(const Root& root, const sandbox::Options& options,
                             const sandbox::Function& fn) {
    return sandbox::Run(root, options, fn);
}

// Skips the test when |why| (the reason the sandbox can't be entered) isn't empty; fails it
// instead under CI=true, where the sandbox must work.
#define SKIP_WITHOUT_SANDBOX(why)                                                  \
    do {                                                                           \
        if (const std::string why_ = (why); !why_.empty()) {                       \
            if (::zelva_test::InCi()) FAIL() << "sandbox refused in CI: " << why_; \
            GTEST_SKIP() << "device-root sandbox unavailable: " << why_;           \
        }                                                                          \
    } while (0)

// Use right after RunInDevice: skips as above, and fails when the child didn't complete.
#define ASSERT_DEVICE_RAN(outcome)                                  \
    do {                                                            \
        SKIP_WITHOUT_SANDBOX((outcome).unavailable);                \
        ASSERT_TRUE((outcome).Completed()) << (outcome).Describe(); \
    } while (0)

// Paths of the built artefacts and the repository's examples.
inline std::string LibraryPath() {
    return ZELVA_LIBRARY_PATH;
}
inline std::string ExamplesDir() {
    return ZELVA_EXAMPLES_DIR;
}

}  // namespace zelva_test
