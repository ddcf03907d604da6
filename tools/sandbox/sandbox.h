// SPDX-License-Identifier: Apache-2.0
// Device-root sandbox: runs a function in a child process whose "/" is a
// scratch copy of a device tree, inside its own mount namespace (and a user
// namespace mapping the caller to root when the caller isn't root). The
// library's fixed absolute paths (/my_carrier, /mnt/vendor/..., /data/...)
// resolve inside the scratch tree, and mount, unlink and lchown act for real
// there without touching the machine.
//
// What the function produces comes back to the parent as it happens: sink
// batches with their kind codes, log records, notes, the property store and
// the tree at the end. Each run is a fresh process, so the library's
// singleton and directory lists are built anew every time.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <android-base/logging.h>

namespace sandbox {

using PropertyMap = std::map<std::string, std::string>;
using Sink = std::function<void(int, PropertyMap)>;

// Files and directories to lay out under the scratch root. Paths are absolute
// device paths ("/my_carrier/build.prop"); parents are created as needed.
class DeviceTree {
  public:
    // Copies a directory on disk (symbolic links are copied as links).
    DeviceTree& CopyFrom(const std::string& dir);
    DeviceTree& File(const std::string& path, const std::string& content, mode_t mode = 0644);
    DeviceTree& Dir(const std::string& path, mode_t mode = 0755);
    DeviceTree& Symlink(const std::string& path, const std::string& target);
    DeviceTree& Fifo(const std::string& path);
    DeviceTree& Socket(const std::string& path);

    // Lays the tree out below |root|; false (and a message) on failure.
    bool Materialize(const std::string& root, std::string* error) const;

  private:
    enum class Kind { kCopy, kFile, kDir, kSymlink, kFifo, kSocket };
    struct Entry {
        Kind kind;
        std::string path;
        std::string data;  // content, link target or source directory
        mode_t mode;
    };
    std::vector<Entry> entries_;
};

// A scratch directory that holds one device root; removed when destroyed
// unless kept. Several runs may share one root (boot after boot).
class ScratchRoot {
  public:
    static std::unique_ptr<ScratchRoot> Create(const DeviceTree& tree, std::string* error);
    ~ScratchRoot();
    const std::string& path() const { return path_; }
    // Host path of a device path: "/data/x" -> "<root>/data/x".
    std::string HostPath(const std::string& device_path) const;
    void Keep() { keep_ = true; }

  private:
    explicit ScratchRoot(std::string path) : path_(std::move(path)) {}
    std::string path_;
    bool keep_ = false;
};

// A file system prepared in the child before the function runs.
struct MountSetup {
    enum class Kind {
        kReadOnly,  // the device path, bound read-only onto itself
        kTmpfs,     // a size-limited tmpfs holding a copy of the path's content
        kHostBind,  // the host's directory of that path, reachable at the same path
    };
    Kind kind;
    std::string path;
    size_t tmpfs_bytes = 0;
    bool fill = false;  // tmpfs only: fill it to the last byte before the run
};

struct Options {
    PropertyMap properties;  // system properties when the function starts
    std::vector<MountSetup> mounts;
    bool apply_batches = true;  // set each batch's entries as init would
    bool echo_logs = false;     // also write the log to stderr, as libbase does
    android::base::LogSeverity min_severity = android::base::INFO;
    bool capture_tree = true;          // report the tree as the child sees it at the end
    size_t capture_limit = 64 * 1024;  // bytes of each file's content reported
    std::chrono::milliseconds timeout{60000};
};

struct Batch {
    std::string step;  // the step that was running (Context::SetStep)
    int kind;
    PropertyMap props;
};

struct LogRecord {
    std::string step;
    android::base::LogSeverity severity;
    std::string file;
    unsigned line;
    std::string message;
};

struct TreeEntry {
    char type;  // 'f' file, 'd' directory, 'l' symlink, 'p' fifo, 's' socket, '?' other
    mode_t mode;
    uid_t uid;
    gid_t gid;
    std::string data;  // file content (up to the capture limit) or link target
};

struct Outcome {
    bool ran = false;         // the child entered the sandbox and ran the function
    std::string unavailable;  // why the sandbox couldn't be entered
    std::string error;        // anything else that went wrong around the function
    int exit_code = -1;       // when the child exited
    int signal = 0;           // when a signal ended the child
    bool timed_out = false;
    std::vector<Batch> batches;
    std::vector<LogRecord> logs;
    PropertyMap notes;
    PropertyMap properties;                 // the property store at the end
    std::map<std::string, TreeEntry> tree;  // device path -> entry, at the end

    bool Completed() const { return ran && exit_code == 0 && signal == 0 && !timed_out; }
    // Messages of the records at |severity|, in order.
    std::vector<std::string> Messages(android::base::LogSeverity severity) const;
    bool HasLog(android::base::LogSeverity severity, const std::string& message) const;
    bool HasLogContaining(const std::string& text) const;
    // Content of a regular file in the final tree, or nullopt.
    std::optional<std::string> FileContent(const std::string& device_path) const;
    bool Exists(const std::string& device_path) const { return tree.count(device_path) != 0; }
    // A one-line account of how the child ended, for failure messages.
    std::string Describe() const;
};

// Handed to the function inside the sandbox.
class Context {
  public:
    virtual ~Context() = default;
    // A sink that records each batch (and applies it, if the options say so).
    virtual Sink sink() = 0;
    // Labels the batches and log records that follow.
    virtual void SetStep(const std::string& step) = 0;
    // Records a value for the parent to check.
    virtual void Note(const std::string& key, const std::string& value) = 0;
    // Waits until a log message containing |text| has been recorded.
    virtual bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout) = 0;
};

using Function = std::function<void(Context&)>;

// Runs |fn| in a child process with |root| as its "/".
Outcome Run(const ScratchRoot& root, const Options& options, const Function& fn);

// Builds a fresh root from |tree|, runs |fn| in it and removes the root.
Outcome Run(const DeviceTree& tree, const Options& options, const Function& fn);

// Enters the sandbox in this very process, for good: a private mount namespace
// whose "/" is |root|, with |options.mounts| prepared and the working
// directory still reachable at its path. For fuzzers, whose coverage must
// stay in one process. Properties and logging are left to the caller.
bool EnterInProcess(const ScratchRoot& root, const Options& options, std::string* error);

// Whether this machine lets the sandbox in; the reason when it doesn't.
bool Available(std::string* reason);

}  // namespace sandbox
