// SPDX-License-Identifier: Apache-2.0
#include "sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "hostplatform/property_store.h"

namespace fs = std::filesystem;
using android::base::unique_fd;

namespace sandbox {
namespace {

constexpr int kSetupFailedExit = 70;
constexpr int kMaxTreeDepth = 64;

std::string ErrnoText(const std::string& what) {
    return what + ": " + strerror(errno);
}

// --- Records sent from the child to the parent ---
//
// A record is a tag byte, a field count and the fields, each a 32-bit length
// and its bytes. Records are written whole under one lock, so batches from the
// COTA thread and the host's thread never interleave.

enum RecordTag : char {
    kUnavailable = 'U',
    kSetupError = 'X',
    kStarted = 'S',
    kBatch = 'B',
    kLog = 'L',
    kNote = 'N',
    kProperties = 'P',
    kTreeEntry = 'T',
};

void AppendField(std::string* out, const std::string& field) {
    const uint32_t size = field.size();
    out->append(reinterpret_cast<const char*>(&size), sizeof(size));
    out->append(field);
}

std::string EncodeRecord(char tag, const std::vector<std::string>& fields) {
    std::string out(1, tag);
    const uint32_t count = fields.size();
    out.append(reinterpret_cast<const char*>(&count), sizeof(count));
    for (const std::string& field : fields) AppendField(&out, field);
    return out;
}

struct Record {
    char tag;
    std::vector<std::string> fields;
};

// Decodes as many whole records as |data| holds.
std::vector<Record> DecodeRecords(const std::string& data) {
    std::vector<Record> records;
    size_t pos = 0;
    auto read_u32 = [&](uint32_t* value) {
        if (data.size() - pos < sizeof(*value)) return false;
        memcpy(value, data.data() + pos, sizeof(*value));
        pos += sizeof(*value);
        return true;
    };
    while (pos < data.size()) {
        Record record{data[pos++], {}};
        uint32_t count;
        if (!read_u32(&count)) break;
        bool whole = true;
        for (uint32_t i = 0; i < count && whole; ++i) {
            uint32_t size;
            whole = read_u32(&size) && data.size() - pos >= size;
            if (whole) {
                record.fields.emplace_back(data, pos, size);
                pos += size;
            }
        }
        if (!whole) break;
        records.push_back(std::move(record));
    }
    return records;
}

std::vector<std::string> FlattenMap(std::vector<std::string> head, const PropertyMap& map) {
    for (const auto& [name, value] : map) {
        head.push_back(name);
        head.push_back(value);
    }
    return head;
}

PropertyMap UnflattenMap(const std::vector<std::string>& fields, size_t from) {
    PropertyMap map;
    for (size_t i = from; i + 1 < fields.size(); i += 2) map[fields[i]] = fields[i + 1];
    return map;
}

// --- The child's side ---

class ChildContext : public Context {
  public:
    ChildContext(int fd, const Options& options) : fd_(fd), options_(options) {}

    void Send(char tag, const std::vector<std::string>& fields) {
        const std::string record = EncodeRecord(tag, fields);
        std::lock_guard<std::mutex> guard(write_lock_);
        android::base::WriteFully(fd_, record.data(), record.size());
    }

    Sink sink() override {
        return [this](int kind, PropertyMap props) {
            if (options_.apply_batches) {
                for (const auto& [name, value] : props) hostplatform::SetProperty(name, value);
            }
            Send(kBatch, FlattenMap({CurrentStep(), std::to_string(kind)}, props));
        };
    }

    void SetStep(const std::string& step) override {
        std::lock_guard<std::mutex> guard(state_lock_);
        step_ = step;
    }

    void Note(const std::string& key, const std::string& value) override {
        Send(kNote, {key, value});
    }

    bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout) override {
        std::unique_lock<std::mutex> guard(state_lock_);
        return logged_.wait_for(guard, timeout, [&] {
            return std::any_of(messages_.begin(), messages_.end(), [&](const std::string& m) {
                return m.find(text) != std::string::npos;
            });
        });
    }

    void OnLog(android::base::LogSeverity severity, const char* file, unsigned line,
               const char* message) {
        // Sent before waiters wake, so a record that WaitForLog saw is never
        // lost when the function returns right after.
        Send(kLog, {CurrentStep(), std::to_string(severity), file != nullptr ? file : "",
                    std::to_string(line), message});
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

bool WriteProcFile(const char* path, const std::string& content) {
    return android::base::WriteStringToFile(content, path);
}

// Makes |root| + |path| a tmpfs of |bytes| that starts with the content the
// directory had.
std::string MountTmpfs(const std::string& root, const MountSetup& setup) {
    const std::string target = root + setup.path;
    char staging_template[] = "/tmp/zelva-tmpfs-XXXXXX";
    if (mkdtemp(staging_template) == nullptr) return ErrnoText("mkdtemp");
    const std::string staging = staging_template;
    const std::string options = "size=" + std::to_string(setup.tmpfs_bytes) + ",mode=0755";
    if (mount("tmpfs", staging.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        return ErrnoText("mount tmpfs on " + staging);
    }
    std::error_code ec;
    if (fs::exists(target)) {
        fs::copy(target, staging, fs::copy_options::recursive | fs::copy_options::copy_symlinks,
                 ec);
        if (ec) return "copy into tmpfs: " + ec.message();
    } else {
        fs::create_directories(target, ec);
    }
    if (mount(staging.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        return ErrnoText("bind tmpfs onto " + target);
    }
    if (setup.fill) {
        // Fill to the last byte, so that any later write fails with ENOSPC.
        unique_fd filler(open((target + "/.filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        std::string block(4096, 'x');
        while (filler != -1 && write(filler.get(), block.data(), block.size()) > 0) {
        }
        while (filler != -1 && write(filler.get(), block.data(), 1) > 0) {
        }
    }
    return "";
}

std::string MountReadOnly(const std::string& root, const MountSetup& setup) {
    const std::string target = root + setup.path;
    if (mount(target.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return ErrnoText("bind " + target);
    }
    if (mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
        return ErrnoText("remount read-only " + target);
    }
    return "";
}

std::string MountHostDirectory(const std::string& root, const MountSetup& setup) {
    const std::string target = root + setup.path;
    std::error_code ec;
    fs::create_directories(target, ec);
    if (mount(setup.path.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        return ErrnoText("bind host " + setup.path);
    }
    return "";
}

std::string PrepareMount(const std::string& root, const MountSetup& setup) {
    switch (setup.kind) {
        case MountSetup::Kind::kReadOnly:
            return MountReadOnly(root, setup);
        case MountSetup::Kind::kTmpfs:
            return MountTmpfs(root, setup);
        case MountSetup::Kind::kHostBind:
            return MountHostDirectory(root, setup);
    }
    return "unknown mount kind";
}

// Enters a private mount namespace rooted at |root|. Returns "" or what failed;
// |unavailable| tells a refused namespace from other failures.
std::string EnterSandbox(const std::string& root, const Options& options, bool* unavailable) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    const int flags = CLONE_NEWNS | (uid != 0 ? CLONE_NEWUSER : 0);
    if (unshare(flags) != 0) {
        *unavailable = true;
        return ErrnoText(uid != 0 ? "unshare(CLONE_NEWUSER|CLONE_NEWNS)" : "unshare(CLONE_NEWNS)");
    }
    if (uid != 0) {
        if (!WriteProcFile("/proc/self/setgroups", "deny") ||
            !WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
            !WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
            *unavailable = true;
            return ErrnoText("user namespace id maps");
        }
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        *unavailable = true;
        return ErrnoText("make / private");
    }
    for (const MountSetup& setup : options.mounts) {
        std::string error = PrepareMount(root, setup);
        if (!error.empty()) return error;
    }
    if (chroot(root.c_str()) != 0) {
        *unavailable = true;
        return ErrnoText("chroot " + root);
    }
    if (chdir("/") != 0) return ErrnoText("chdir /");
    return "";
}

char TypeOf(mode_t mode) {
    if (S_ISREG(mode)) return 'f';
    if (S_ISDIR(mode)) return 'd';
    if (S_ISLNK(mode)) return 'l';
    if (S_ISFIFO(mode)) return 'p';
    if (S_ISSOCK(mode)) return 's';
    return '?';
}

void SendTree(ChildContext* ctx, const std::string& dir, int depth, size_t limit) {
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
        if (lstat(path.c_str(), &st) != 0) continue;
        std::string data;
        if (S_ISREG(st.st_mode)) {
            unique_fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
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
        if (S_ISDIR(st.st_mode)) SendTree(ctx, path, depth + 1, limit);
    }
}

[[noreturn]] void RunChild(int fd, const std::string& root, const Options& options,
                           const Function& fn) {
    ChildContext ctx(fd, options);
    bool unavailable = false;
    std::string error = EnterSandbox(root, options, &unavailable);
    if (!error.empty()) {
        ctx.Send(unavailable ? kUnavailable : kSetupError, {error});
        _exit(kSetupFailedExit);
    }

    hostplatform::ResetProperties();
    for (const auto& [name, value] : options.properties) hostplatform::SetProperty(name, value);
    android::base::SetMinimumLogSeverity(options.min_severity);
    const bool echo = options.echo_logs;
    android::base::SetLogger([&ctx, echo](android::base::LogId id,
                                          android::base::LogSeverity severity, const char* tag,
                                          const char* file, unsigned line, const char* message) {
        ctx.OnLog(severity, file, line, message);
        if (echo) android::base::StderrLogger(id, severity, tag, file, line, message);
    });

    ctx.Send(kStarted, {});
    fn(ctx);

    ctx.Send(kProperties, FlattenMap({}, hostplatform::SnapshotProperties()));
    if (options.capture_tree) SendTree(&ctx, "", 0, options.capture_limit);
    // No exit handlers: threads the function left running just stop.
    _exit(0);
}

void ApplyRecord(const Record& record, Outcome* outcome) {
    const std::vector<std::string>& f = record.fields;
    switch (record.tag) {
        case kUnavailable:
            if (!f.empty()) outcome->unavailable = f[0];
            break;
        case kSetupError:
            if (!f.empty()) outcome->error = f[0];
            break;
        case kStarted:
            outcome->ran = true;
            break;
        case kBatch:
            if (f.size() >= 2)
                outcome->batches.push_back({f[0], std::stoi(f[1]), UnflattenMap(f, 2)});
            break;
        case kLog:
            if (f.size() == 5) {
                outcome->logs.push_back({f[0],
                                         static_cast<android::base::LogSeverity>(std::stoi(f[1])),
                                         f[2], static_cast<unsigned>(std::stoul(f[3])), f[4]});
            }
            break;
        case kNote:
            if (f.size() == 2) outcome->notes[f[0]] = f[1];
            break;
        case kProperties:
            outcome->properties = UnflattenMap(f, 0);
            break;
        case kTreeEntry:
            if (f.size() == 6) {
                outcome->tree[f[0]] = {f[1][0], static_cast<mode_t>(std::stoul(f[2])),
                                       static_cast<uid_t>(std::stoul(f[3])),
                                       static_cast<gid_t>(std::stoul(f[4])), f[5]};
            }
            break;
    }
}

// Reads everything the child sends until it closes the pipe or time runs out.
bool ReadAll(int fd, std::chrono::milliseconds timeout, std::string* data) {
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
        data->append(buf, n);
    }
}

void MakeRemovable(const std::string& dir) {
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) chmod(it->path().c_str(), 0755);
    }
}

std::string CreateSocketAt(const std::string& path) {
    char dir_template[] = "/tmp/zelva-sock-XXXXXX";
    if (mkdtemp(dir_template) == nullptr) return ErrnoText("mkdtemp");
    const std::string temp = std::string(dir_template) + "/s";
    unique_fd sock(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, temp.c_str(), sizeof(addr.sun_path) - 1);
    std::string error;
    if (sock == -1 || bind(sock.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        error = ErrnoText("socket " + temp);
    } else if (rename(temp.c_str(), path.c_str()) != 0) {
        error = ErrnoText("move socket to " + path);
    }
    unlink(temp.c_str());
    rmdir(dir_template);
    return error;
}

}  // namespace

DeviceTree& DeviceTree::CopyFrom(const std::string& dir) {
    entries_.push_back({Kind::kCopy, "/", dir, 0});
    return *this;
}

DeviceTree& DeviceTree::File(const std::string& path, const std::string& content, mode_t mode) {
    entries_.push_back({Kind::kFile, path, content, mode});
    return *this;
}

DeviceTree& DeviceTree::Dir(const std::string& path, mode_t mode) {
    entries_.push_back({Kind::kDir, path, "", mode});
    return *this;
}

DeviceTree& DeviceTree::Symlink(const std::string& path, const std::string& target) {
    entries_.push_back({Kind::kSymlink, path, target, 0});
    return *this;
}

DeviceTree& DeviceTree::Fifo(const std::string& path) {
    entries_.push_back({Kind::kFifo, path, "", 0644});
    return *this;
}

DeviceTree& DeviceTree::Socket(const std::string& path) {
    entries_.push_back({Kind::kSocket, path, "", 0});
    return *this;
}

bool DeviceTree::Materialize(const std::string& root, std::string* error) const {
    for (const Entry& entry : entries_) {
        const std::string host = root + entry.path;
        std::error_code ec;
        fs::create_directories(fs::path(host).parent_path(), ec);
        // A later entry replaces whatever an earlier one left at its path.
        if (entry.kind != Kind::kCopy &&
            !(entry.kind == Kind::kDir && fs::is_directory(host, ec))) {
            fs::remove_all(host, ec);
        }
        switch (entry.kind) {
            case Kind::kCopy:
                fs::copy(entry.data, host,
                         fs::copy_options::recursive | fs::copy_options::copy_symlinks |
                                 fs::copy_options::overwrite_existing,
                         ec);
                if (ec) *error = "copy " + entry.data + ": " + ec.message();
                break;
            case Kind::kFile:
                if (!android::base::WriteStringToFile(entry.data, host) ||
                    chmod(host.c_str(), entry.mode) != 0) {
                    *error = ErrnoText("write " + host);
                }
                break;
            case Kind::kDir:
                fs::create_directories(host, ec);
                if (ec) *error = "mkdir " + host + ": " + ec.message();
                chmod(host.c_str(), entry.mode);
                break;
            case Kind::kSymlink:
                if (symlink(entry.data.c_str(), host.c_str()) != 0) {
                    *error = ErrnoText("symlink " + host);
                }
                break;
            case Kind::kFifo:
                if (mkfifo(host.c_str(), entry.mode) != 0) *error = ErrnoText("mkfifo " + host);
                break;
            case Kind::kSocket:
                *error = CreateSocketAt(host);
                break;
        }
        if (!error->empty()) return false;
    }
    return true;
}

std::unique_ptr<ScratchRoot> ScratchRoot::Create(const DeviceTree& tree, std::string* error) {
    const char* tmp = getenv("TMPDIR");
    std::string pattern =
            std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/zelva-root-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        *error = ErrnoText("mkdtemp " + pattern);
        return nullptr;
    }
    std::unique_ptr<ScratchRoot> root(new ScratchRoot(pattern));
    chmod(root->path_.c_str(), 0755);
    if (!tree.Materialize(root->path_, error)) return nullptr;
    return root;
}

ScratchRoot::~ScratchRoot() {
    if (keep_) return;
    MakeRemovable(path_);
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::string ScratchRoot::HostPath(const std::string& device_path) const {
    return path_ + device_path;
}

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
    return "child exited with " + std::to_string(exit_code);
}

Outcome Run(const ScratchRoot& root, const Options& options, const Function& fn) {
    Outcome outcome;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        outcome.error = ErrnoText("pipe2");
        return outcome;
    }
    unique_fd read_end(fds[0]), write_end(fds[1]);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        outcome.error = ErrnoText("fork");
        return outcome;
    }
    if (pid == 0) {
        read_end.reset();
        RunChild(write_end.get(), root.path(), options, fn);
    }
    write_end.reset();

    std::string data;
    if (!ReadAll(read_end.get(), options.timeout, &data)) {
        outcome.timed_out = true;
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    for (const Record& record : DecodeRecords(data)) ApplyRecord(record, &outcome);
    if (WIFEXITED(status)) outcome.exit_code = WEXITSTATUS(status);
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
    bool unavailable = false;
    *error = EnterSandbox(root.path(), with_cwd, &unavailable);
    if (error->empty() && chdir(cwd.c_str()) != 0) *error = ErrnoText("chdir " + cwd);
    return error->empty();
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
