// SPDX-License-Identifier: Apache-2.0
// The parent's side: forking the child, reading what it sends, and the
// in-process entry for fuzzers.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/unique_fd.h>

#include "child.h"
#include "confinement.h"
#include "records.h"
#include "sandbox.h"

namespace fs = std::filesystem;
using android::base::unique_fd;

namespace sandbox {
namespace {

// Decodes everything the child sends as it comes, until the child closes the
// pipe or time runs out.
bool ReadAll(int fd, std::chrono::milliseconds timeout, RecordDecoder* decoder) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    char buf[65536];
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd pfd{fd, POLLIN, 0};
        const int ready = poll(&pfd, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;
        const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buf, sizeof(buf)));
        if (n <= 0) return true;
        decoder->Feed(buf, n);
    }
}

}  // namespace

std::vector<std::string> Outcome::Messages(android::base::LogSeverity severity) const {
    std::vector<std::string> messages;
    for (const LogRecord& record : logs) {
        if (record.severity == severity) messages.push_back(record.message);
    }
    return messages;
}

bool Outcome::HasLog(android::base::LogSeverity severity, const std::string& message) const {
    return std::any_of(logs.begin(), logs.end(), [&](const LogRecord& r) {
        return r.severity == severity && r.message == message;
    });
}

bool Outcome::HasLogContaining(const std::string& text) const {
    return std::any_of(logs.begin(), logs.end(), [&](const LogRecord& r) {
        return r.message.find(text) != std::string::npos;
    });
}

std::optional<std::string> Outcome::FileContent(const std::string& device_path) const {
    auto it = tree.find(device_path);
    if (it == tree.end() || it->second.type != 'f') return std::nullopt;
    return it->second.data;
}

std::string Outcome::Describe() const {
    if (!unavailable.empty()) return "sandbox unavailable: " + unavailable;
    if (!error.empty()) return "sandbox setup failed: " + error;
    if (timed_out) return "child timed out";
    if (signal != 0) return std::string("child killed by signal ") + strsignal(signal);
    if (!ran) return "child never started";
    if (leaks) return "LeakSanitizer found leaks in the child";
    return "child exited with " + std::to_string(exit_code);
}

Outcome Run(const ScratchRoot& root, const Options& options, const Function& fn) {
    Outcome outcome;
    outcome.fallback = root.fallback();
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        outcome.error = std::string("pipe2: ") + strerror(errno);
        return outcome;
    }
    unique_fd read_end(fds[0]), write_end(fds[1]);
    fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        outcome.error = std::string("fork: ") + strerror(errno);
        return outcome;
    }
    if (pid == 0) {
        read_end.reset();
        RunChild(write_end.get(), parent, root.layout(), options, fn);
    }
    write_end.reset();

    RecordDecoder decoder(&outcome);
    if (!ReadAll(read_end.get(), options.timeout, &decoder)) {
        outcome.timed_out = true;
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && outcome.signal == 0) outcome.exit_code = WEXITSTATUS(status);
    if (WIFSIGNALED(status) && !outcome.timed_out) outcome.signal = WTERMSIG(status);
    return outcome;
}

Outcome Run(const DeviceTree& tree, const Options& options, const Function& fn) {
    std::string error;
    std::unique_ptr<ScratchRoot> root = ScratchRoot::Create(tree, &error);
    if (!root) {
        Outcome outcome;
        outcome.error = error;
        return outcome;
    }
    return Run(*root, options, fn);
}

bool EnterInProcess(const ScratchRoot& root, const Options& options, std::string* error) {
    Options with_cwd = options;
    std::error_code ec;
    const std::string cwd = fs::current_path(ec).string();
    with_cwd.mounts.push_back({MountSetup::Kind::kHostBind, cwd});
    // Sanitizer runtimes read /proc (LeakSanitizer at exit, for one).
    with_cwd.mounts.push_back({MountSetup::Kind::kHostBind, "/proc"});
    PrepareSanitizerReports();
    SetupError setup;
    if (!UnshareNamespaces(false, &setup) || !MountRoot(root.layout(), &setup) ||
        !EnterRoot(root.layout(), with_cwd.mounts, false, &setup)) {
        *error = setup.message;
        return false;
    }
    if (chdir(cwd.c_str()) != 0) {
        *error = "chdir " + cwd + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool Available(std::string* reason) {
    Options options;
    options.capture_tree = false;
    options.timeout = std::chrono::milliseconds(10000);
    Outcome outcome = Run(DeviceTree(), options, [](Context&) {});
    if (outcome.Completed()) return true;
    *reason = outcome.Describe();
    return false;
}

}  // namespace sandbox
