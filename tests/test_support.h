// SPDX-License-Identifier: Apache-2.0
// Shared helpers of the test suite.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>

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

// Skips the test (fails it under CI=true) when the device-root sandbox can't be entered here.
#define REQUIRE_SANDBOX()                                                            \
    do {                                                                             \
        std::string unavailable_;                                                    \
        SKIP_WITHOUT_SANDBOX(sandbox::Available(&unavailable_) ? "" : unavailable_); \
    } while (0)

// Use right after RunInDevice: skips as above, and fails when the child didn't complete.
#define ASSERT_DEVICE_RAN(outcome)                                  \
    do {                                                            \
        SKIP_WITHOUT_SANDBOX((outcome).unavailable);                \
        ASSERT_TRUE((outcome).Completed()) << (outcome).Describe(); \
    } while (0)

// What an entry of a host directory looks like: compared before and after a run that must
// leave the host as it was.
struct HostFile {
    std::string content;  // of a regular file
    mode_t mode;          // type and permissions
    uid_t uid;
    gid_t gid;
    int64_t mtime_ns;
    bool operator==(const HostFile&) const = default;
};

inline void PrintTo(const HostFile& file, std::ostream* os) {
    *os << "{mode " << std::oct << file.mode << std::dec << ", owner " << file.uid << ":"
        << file.gid << ", mtime " << file.mtime_ns << ", '" << file.content << "'}";
}

// Every entry below |dir|, as the host sees it (links not followed).
inline std::map<std::string, HostFile> Snapshot(const std::string& dir) {
    namespace fs = std::filesystem;
    std::map<std::string, HostFile> entries;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
        struct stat st;
        if (lstat(it->path().c_str(), &st) != 0) continue;
        std::string content;
        if (S_ISREG(st.st_mode)) android::base::ReadFileToString(it->path(), &content);
        entries[it->path()] = {content, st.st_mode, st.st_uid, st.st_gid,
                               st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec};
    }
    return entries;
}

// The mounts this process sees, a line of /proc/self/mountinfo each.
inline std::set<std::string> Mounts() {
    std::string text;
    android::base::ReadFileToString("/proc/self/mountinfo", &text);
    const std::vector<std::string> lines = android::base::Split(text, "\n");
    return {lines.begin(), lines.end()};
}

// Paths of the built artefacts and the repository's examples.
inline std::string LibraryPath() {
    return ZELVA_LIBRARY_PATH;
}
inline std::string ExamplesDir() {
    return ZELVA_EXAMPLES_DIR;
}

// The lines of |text|, without the empty one after a final line feed.
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines = android::base::Split(text, "\n");
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    return lines;
}

// How a run of the built extprop-sim ended, and what it printed.
struct SimRun {
    int status = -1;  // the exit code, or 128 + the signal that ended it
    std::string out;
    std::string err;
};

inline void PrintTo(const SimRun& run, std::ostream* os) {
    *os << "exit " << run.status << "\nstdout:\n" << run.out << "stderr:\n" << run.err;
}

// Runs "extprop-sim <args>" in the examples directory (the device trees ./alder-eu and
// ./birch-cn, their seeded properties in ./<tree>.props), with the shell's environment
// assignments |env| before it.
inline SimRun Sim(const std::string& args, const std::string& env = "") {
    TemporaryFile out, err;
    const std::string command = "cd " + ExamplesDir() + " && " + env + " " ZELVA_SIMULATOR_PATH +
                                " " + args + " >" + out.path + " 2>" + err.path;
    const int status = system(command.c_str());
    SimRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    android::base::ReadFileToString(out.path, &run.out);
    android::base::ReadFileToString(err.path, &run.err);
    return run;
}

}  // namespace zelva_test
