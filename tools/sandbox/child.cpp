// SPDX-License-Identifier: Apache-2.0
#include "child.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "confinement.h"
#include "hostplatform/property_store.h"
#include "records.h"

// Present only when a sanitizer runtime is linked in.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));
extern "C" void __sanitizer_symbolize_pc(void* pc, const char* fmt, char* out, size_t size)
        __attribute__((weak));

namespace sandbox {
namespace {

constexpr int kSetupFailedExit = 70;
constexpr int kMaxTreeDepth = 64;

class ChildContext : public Context {
  public:
    ChildContext(int fd, const Options& options) : fd_(fd), options_(options) {}

    void Send(char tag, const std::vector<std::string>& fields) {
        const std::string record = EncodeRecord(tag, fields);
        std::lock_guard<std::mutex> guard(write_lock_);
        android::base::WriteFully(fd_, record.data(), record.size());
    }

    Sink sink() override {
        return [this](int kind, PropertyMap props) { Record(kind, props); };
    }

    void Record(int kind, const PropertyMap& props) override {
        if (options_.apply_batches) {
            for (const auto& [name, value] : props) hostplatform::SetProperty(name, value);
        }
        const std::string step = CurrentStep(), kind_text = std::to_string(kind);
        std::lock_guard<std::mutex> guard(write_lock_);
        RecordWriter writer(fd_, kBatch, 2 + 2 * props.size());
        writer.Field(step);
        writer.Field(kind_text);
        for (const auto& [name, value] : props) {
            writer.Field(name);
            writer.Field(value);
        }
        writer.End();
    }

    // The property store as it is, read under its lock rather than copied.
    void SendProperties() {
        std::lock_guard<std::mutex> guard(write_lock_);
        hostplatform::VisitProperties([this](const PropertyMap& store) {
            RecordWriter writer(fd_, kProperties, 2 * store.size());
            for (const auto& [name, value] : store) {
                writer.Field(name);
                writer.Field(value);
            }
            writer.End();
        });
    }

    void SetStep(const std::string& step) override {
        std::lock_guard<std::mutex> guard(state_lock_);
        step_ = step;
    }

    void Note(const std::string& key, const std::string& value) override {
        Send(kNote, {key, value});
    }

    void Notes(const PropertyMap& notes) override {
        if (notes.empty()) return;
        std::lock_guard<std::mutex> guard(write_lock_);
        RecordWriter writer(fd_, kNote, 2 * notes.size());
        for (const auto& [key, value] : notes) {
            writer.Field(key);
            writer.Field(value);
        }
        writer.End();
    }

    bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout) override {
        std::unique_lock<std::mutex> guard(state_lock_);
        return logged_.wait_for(guard, timeout, [&] {
            return std::any_of(messages_.begin(), messages_.end(), [&](const std::string& m) {
                return m.find(text) != std::string::npos;
            });
        });
    }

    void OnLog(android::base::LogSeverity severity, const char* tag, const char* file,
               unsigned line, const char* message) {
        // Sent before waiters wake, so a record that WaitForLog saw is never
        // lost when the function returns right after.
        Send(kLog, {CurrentStep(), std::to_string(severity), file != nullptr ? file : "",
                    std::to_string(line), message, tag != nullptr ? tag : ""});
        {
            std::lock_guard<std::mutex> guard(state_lock_);
            messages_.push_back(message);
        }
        logged_.notify_all();
    }

  private:
    std::string CurrentStep() {
        std::lock_guard<std::mutex> guard(state_lock_);
        return step_;
    }

    const int fd_;
    const Options& options_;
    std::mutex write_lock_;
    std::mutex state_lock_;
    std::condition_variable logged_;
    std::string step_;
    std::vector<std::string> messages_;
};

char TypeOf(mode_t mode) {
    if (S_ISREG(mode)) return 'f';
    if (S_ISDIR(mode)) return 'd';
    if (S_ISLNK(mode)) return 'l';
    if (S_ISFIFO(mode)) return 'p';
    if (S_ISSOCK(mode)) return 's';
    return '?';
}

// Sends every entry below |dir|, skipping |hidden| (the sandbox's own /proc).
void SendTree(ChildContext* ctx, const std::string& dir, int depth, size_t limit,
              const std::string& hidden) {
    std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.empty() ? "/" : dir.c_str()), closedir);
    if (!d || depth > kMaxTreeDepth) return;
    std::vector<std::string> names;
    while (const dirent* entry = readdir(d.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.push_back(entry->d_name);
        }
    }
    d.reset();
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = dir + "/" + name;
        struct stat st;
        if (path == hidden || lstat(path.c_str(), &st) != 0) continue;
        std::string data;
        if (S_ISREG(st.st_mode)) {
            android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
            if (fd != -1) {
                data.resize(std::min<size_t>(limit, st.st_size));
                const ssize_t n = android::base::ReadFully(fd.get(), data.data(), data.size())
                                          ? data.size()
                                          : 0;
                data.resize(n);
            }
        } else if (S_ISLNK(st.st_mode)) {
            android::base::Readlink(path, &data);
        }
        ctx->Send(kTreeEntry,
                  {path, std::string(1, TypeOf(st.st_mode)), std::to_string(st.st_mode & 07777),
                   std::to_string(st.st_uid), std::to_string(st.st_gid), data});
        if (S_ISDIR(st.st_mode)) SendTree(ctx, path, depth + 1, limit, hidden);
    }
}

// Dies with the parent: the kernel sends SIGKILL when it goes, and if it
// went before that was armed, |alive| (a pipe it holds open) has hung up.
void DieWithParent(pid_t parent, int alive) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (parent > 0 && getppid() != parent) _exit(kSetupFailedExit);
    pollfd pfd{alive, 0, 0};
    if (alive != -1 && poll(&pfd, 1, 0) == 1 && (pfd.revents & POLLHUP) != 0) {
        _exit(kSetupFailedExit);
    }
}

// The function's process: PID 2 of the sandbox's PID namespace.
[[noreturn]] void RunFunction(int fd, const RootLayout& layout, const Options& options,
                              const Function& fn) {
    ChildContext ctx(fd, options);
    // LeakSanitizer walks /proc/self; the root gets a /proc of its own PID
    // namespace, uncovered only for the leak check.
    // A run that binds the machine's /proc itself (to reach a host descriptor as
    // /proc/self/fd/N) keeps it as it asked: the leak check reads that one.
    const bool leak_check = __lsan_do_recoverable_leak_check != nullptr;
    const bool host_proc = std::any_of(
            options.mounts.begin(), options.mounts.end(), [](const MountSetup& setup) {
                return setup.kind == MountSetup::Kind::kHostBind && setup.path == "/proc";
            });
    const bool proc = leak_check && !host_proc;
    SetupError error;
    if (!MountRoot(layout, &error) || !EnterRoot(layout, options.mounts, proc, &error) ||
        !DropPrivileges(&error)) {
        ctx.Send(error.refused ? kUnavailable : kSetupError, {error.message});
        _exit(kSetupFailedExit);
    }

    hostplatform::ResetProperties();
    for (const auto& [name, value] : options.properties) hostplatform::SetProperty(name, value);
    android::base::SetMinimumLogSeverity(options.min_severity);
    const bool echo = options.echo_logs;
    android::base::SetLogger([&ctx, echo](android::base::LogId id,
                                          android::base::LogSeverity severity, const char* tag,
                                          const char* file, unsigned line, const char* message) {
        ctx.OnLog(severity, tag, file, line, message);
        if (echo) android::base::StderrLogger(id, severity, tag, file, line, message);
    });

    ctx.Send(kStarted, {});
    fn(ctx);

    ctx.SendProperties();
    if (options.capture_tree) SendTree(&ctx, "", 0, options.capture_limit, proc ? "/proc" : "");
    // No exit handlers (threads the function left running just stop), so the
    // leak check that exit would run is run here.
    if (leak_check && (!proc || RevealProc()) && __lsan_do_recoverable_leak_check() != 0) {
        ctx.Send(kLeaks, {});
    }
    _exit(0);
}

// PID 1 of the sandbox's PID namespace: reaps, and ends as the function's
// process ended (a signal it died of is sent as a record: init can't die of
// most signals it raises at itself).
[[noreturn]] void RunInit(int fd, int alive, const RootLayout& layout, const Options& options,
                          const Function& fn) {
    DieWithParent(0, alive);
    const pid_t worker = fork();
    if (worker == 0) {
        close(alive);
        RunFunction(fd, layout, options, fn);
    }
    if (worker < 0) _exit(kSetupFailedExit);
    int status = 0;
    pid_t pid;
    while ((pid = waitpid(-1, &status, 0)) != worker) {
        if (pid < 0 && errno != EINTR) _exit(kSetupFailedExit);
    }
    if (WIFSIGNALED(status)) {
        const std::string record = EncodeRecord(kKilledBy, {std::to_string(WTERMSIG(status))});
        android::base::WriteFully(fd, record.data(), record.size());
        _exit(128 + WTERMSIG(status));
    }
    _exit(WEXITSTATUS(status));
}

}  // namespace

void PrepareSanitizerReports() {
    if (__sanitizer_symbolize_pc == nullptr) return;
    char text[256];
    __sanitizer_symbolize_pc(reinterpret_cast<void*>(&PrepareSanitizerReports), "%p %F %L", text,
                             sizeof(text));
}

void RunChild(int fd, pid_t parent, const RootLayout& layout, const Options& options,
              const Function& fn) {
    DieWithParent(parent, -1);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
    PrepareSanitizerReports();

    SetupError error;
    int alive[2];
    if (!UnshareNamespaces(true, &error) || pipe2(alive, O_CLOEXEC) != 0) {
        if (error.message.empty()) error.message = std::string("pipe2: ") + strerror(errno);
        const std::string record = EncodeRecord(error.refused ? kUnavailable : kSetupError,
                                                {error.message});
        android::base::WriteFully(fd, record.data(), record.size());
        _exit(kSetupFailedExit);
    }
    const pid_t init = fork();
    if (init == 0) {
        close(alive[1]);
        RunInit(fd, alive[0], layout, options, fn);
    }
    close(alive[0]);
    int status = 0;
    while (init > 0 && waitpid(init, &status, 0) < 0 && errno == EINTR) {
    }
    _exit(init > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : kSetupFailedExit);
}

}  // namespace sandbox
