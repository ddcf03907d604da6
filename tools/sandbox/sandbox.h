// SPDX-License-Identifier: Apache-2.0
// Device-root sandbox: runs a function in a child process whose "/" is a
// device tree: the tree's directories as read-only layers of an overlay whose
// writable layer lies in a scratch directory (or, where the kernel refuses
// the overlay, a scratch copy of the tree). The child has its own user (when
// the caller isn't root), mount, PID, network, IPC and UTS namespaces, has
// pivoted into the root with the machine's root detached, cannot gain
// privileges and keeps only the capabilities the library's operations need.
// The library's fixed absolute paths (/my_carrier, /mnt/vendor/..., /data/...)
// resolve inside the root, and mount, unlink and lchown act for real there
// without touching the machine or the tree on disk.
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
// Entries written by File, Dir, Symlink, Fifo and Socket lie over every
// CopyFrom directory; a later CopyFrom directory lies over an earlier one.
class DeviceTree {
  public:
    // A directory on disk as part of the tree: a read-only layer, or copied
    // (symbolic links as links) where the overlay is refused.
    DeviceTree& CopyFrom(const std::string& dir);
    DeviceTree& File(const std::string& path, const std::string& content, mode_t mode = 0644);
    DeviceTree& Dir(const std::string& path, mode_t mode = 0755);
    DeviceTree& Symlink(const std::string& path, const std::string& target);
    DeviceTree& Fifo(const std::string& path);
    DeviceTree& Socket(const std::string& path);

    // Lays the tree out below |root|, copying the CopyFrom directories there
    // too unless |skip_copies|; false (and a message) on failure.
    bool Materialize(const std::string& root, std::string* error, bool skip_copies = false) const;
    // The CopyFrom directories, in order.
    std::vector<std::string> CopiedDirectories() const;

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

// How a root's "/" is put together in the child, all below one scratch
// directory ($TMPDIR or /tmp, "zelva-root-<pid>-<start time>-XXXXXX").
struct RootLayout {
    std::string scratch;             // the scratch directory
    std::string mount_point;         // empty directory the root is mounted on in the child
    std::vector<std::string> lower;  // read-only layers, topmost first (overlay only)
    std::string upper, work;         // the overlay's writable layer and its work directory
    std::string copy;                // the tree copied, when the overlay was refused
    std::string staging;             // where tmpfs mounts are prepared
};

// A scratch directory that holds one device root; removed when destroyed
// unless kept, and by a watcher process when its owner dies without
// destroying it (or, should the watcher die too, by the next Create).
// Several runs may share one root (boot after boot): the writable layer is
// kept between them.
class ScratchRoot {
  public:
    static std::unique_ptr<ScratchRoot> Create(const DeviceTree& tree, std::string* error);
    ~ScratchRoot();
    // The tree's own entries as laid out on disk (with the copied directories
    // too, where the overlay was refused).
    const std::string& path() const { return path_; }
    // Where the runs' writes land on disk: the overlay's writable layer, or
    // the copied tree.
    const std::string& changes() const { return layout_.copy.empty() ? layout_.upper : path_; }
    // Why the tree was copied rather than overlaid; empty when overlaid.
    const std::string& fallback() const { return fallback_; }
    const RootLayout& layout() const { return layout_; }
    // Host path holding a device path's content as the last run left it:
    // the writable layer's, else the topmost read-only layer's that has it; a
    // path that doesn't exist for one a run deleted.
    std::string HostPath(const std::string& device_path) const;
    // Keeps the scratch directory, even should the process be killed.
    void Keep();

  private:
    ScratchRoot() = default;
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;
    std::string path_;
    RootLayout layout_;
    std::string fallback_;
    bool keep_ = false;
    int watcher_fd_ = -1;  // its closing tells the watcher to remove the scratch
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
    std::string tag;  // the logger's tag, as the host's logger receives it
};

struct TreeEntry {
    char type;  // 'f' file, 'd' directory, 'l' symlink, 'p' fifo, 's' socket, '?' other
    mode_t mode;
    uid_t uid;
    gid_t gid;
    std::string data;  // file content (up to the capture limit) or link target
};

struct Outcome {
    std::string fallback;     // why the tree was copied rather than overlaid, if it was
    bool ran = false;         // the child entered the sandbox and ran the function
    std::string unavailable;  // why the sandbox couldn't be entered
    std::string error;        // anything else that went wrong around the function
    int exit_code = -1;       // when the child exited
    int signal = 0;           // when a signal ended the child
    bool timed_out = false;
    bool leaks = false;  // LeakSanitizer (in sanitizer builds) found leaks in the child
    std::vector<Batch> batches;
    std::vector<LogRecord> logs;
    PropertyMap notes;
    PropertyMap properties;                 // the property store at the end
    std::map<std::string, TreeEntry> tree;  // device path -> entry, at the end

    bool Completed() const {
        return ran && exit_code == 0 && signal == 0 && !timed_out && !leaks;
    }
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
    // What the sink does with one batch, for a caller that keeps the batch.
    virtual void Record(int kind, const PropertyMap& props) = 0;
    // Labels the batches and log records that follow.
    virtual void SetStep(const std::string& step) = 0;
    // Records a value for the parent to check.
    virtual void Note(const std::string& key, const std::string& value) = 0;
    // Records many values at once, in one record however many they are.
    virtual void Notes(const PropertyMap& notes) = 0;
    // Waits until a log message containing |text| has been recorded.
    virtual bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout) = 0;
};

using Function = std::function<void(Context&)>;

// Runs |fn| in a child process with |root| as its "/".
Outcome Run(const ScratchRoot& root, const Options& options, const Function& fn);

// Builds a fresh root from |tree|, runs |fn| in it and removes the root.
Outcome Run(const DeviceTree& tree, const Options& options, const Function& fn);

// Enters the sandbox in this very process, for good: a private mount namespace
// (in a user namespace when not root) whose "/" is |root|, with
// |options.mounts| prepared and the working directory and /proc still
// reachable at their paths. For fuzzers, whose coverage must stay in one
// process: no PID or network namespace, no capability bound. Properties and
// logging are left to the caller.
bool EnterInProcess(const ScratchRoot& root, const Options& options, std::string* error);

// Whether this machine lets the sandbox in; the reason when it doesn't.
bool Available(std::string* reason);

}  // namespace sandbox
