// SPDX-License-Identifier: Apache-2.0
// Scratch directories: where they are, how a root is laid out in one, and
// their removal however their owner ends.

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "confinement.h"
#include "sandbox.h"
#include "tree_copy.h"

namespace fs = std::filesystem;

namespace sandbox {
namespace {

constexpr char kPrefix[] = "zelva-root-";
constexpr char kKeptMarker[] = "/kept";
constexpr char kKeepByte = 'k';

std::string ScratchParent() {
    const char* tmp = getenv("TMPDIR");
    return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

// Field 22 of /proc/PID/stat: when the process started, which tells a live
// owner from a later process that reused its id.
std::string StartTime(pid_t pid) {
    std::string stat;
    if (!android::base::ReadFileToString("/proc/" + std::to_string(pid) + "/stat", &stat)) {
        return "";
    }
    const size_t name_end = stat.rfind(')');
    if (name_end == std::string::npos) return "";
    const std::vector<std::string> fields = android::base::Split(stat.substr(name_end + 2), " ");
    return fields.size() > 19 ? fields[19] : "";
}

void Remove(const std::string& dir) {
    MakeRemovable(dir);
    std::error_code ec;
    fs::remove_all(dir, ec);
}

// Removes the scratch directories whose owner is gone (killed before it or
// its watcher could remove them), unless they were kept on purpose.
void RemoveStale(const std::string& parent) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(parent.c_str()), closedir);
    if (!dir) return;
    std::vector<std::string> stale;
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (!android::base::StartsWith(name, kPrefix)) continue;
        const std::vector<std::string> parts =
                android::base::Split(name.substr(strlen(kPrefix)), "-");
        if (parts.size() != 3) continue;
        const pid_t owner = atoi(parts[0].c_str());
        if (owner <= 0 || StartTime(owner) == parts[1]) continue;
        const std::string path = parent + "/" + name;
        if (access((path + kKeptMarker).c_str(), F_OK) != 0) stale.push_back(path);
    }
    dir.reset();
    for (const std::string& path : stale) Remove(path);
}

// A grandchild that outlives nothing but the pipe: when every process that
// holds the write end is gone (the owner and the sandbox children it forked),
// it removes |scratch| unless it was told to keep it. Returns the write end.
int StartWatcher(const std::string& scratch) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        if (fork() != 0) _exit(0);
        // Out of the terminal's signals, holding no descriptor but its own.
        setsid();
        signal(SIGINT, SIG_IGN);
        signal(SIGTERM, SIG_IGN);
        signal(SIGHUP, SIG_IGN);
        dup2(fds[0], 3);
        const int null = open("/dev/null", O_RDWR);
        for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
        syscall(SYS_close_range, 4, ~0U, 0);
        char byte = 0;
        bool keep = false;
        while (TEMP_FAILURE_RETRY(read(3, &byte, 1)) == 1) keep = keep || byte == kKeepByte;
        if (!keep) Remove(scratch);
        _exit(0);
    }
    close(fds[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    return fds[1];
}

// Whether the overlay of |layout| mounts here, tried in a throwaway child.
// Empty when it does; what was refused otherwise. |namespaces_refused| when
// the child couldn't even get its namespaces (the sandbox says so when run).
std::string TryOverlay(const RootLayout& layout, bool* namespaces_refused) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return strerror(errno);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        SetupError error;
        const bool unshared = UnshareNamespaces(true, &error);
        if (unshared && MountRoot(layout, &error)) _exit(0);
        const std::string message = (unshared ? "+" : "-") + error.message;
        android::base::WriteFully(fds[1], message.data(), message.size());
        _exit(1);
    }
    close(fds[1]);
    std::string message;
    android::base::ReadFdToString(fds[0], &message);
    close(fds[0]);
    int status = 0;
    if (pid > 0) waitpid(pid, &status, 0);
    if (pid > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
    *namespaces_refused = message.empty() || message[0] == '-';
    return message.empty() ? "the probe died" : message.substr(1);
}

}  // namespace

std::unique_ptr<ScratchRoot> ScratchRoot::Create(const DeviceTree& tree, std::string* error) {
    const std::string parent = ScratchParent();
    RemoveStale(parent);
    std::string pattern = parent + "/" + kPrefix + std::to_string(getpid()) + "-" +
                          StartTime(getpid()) + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        *error = "mkdtemp " + pattern + ": " + strerror(errno);
        return nullptr;
    }
    std::unique_ptr<ScratchRoot> root(new ScratchRoot());
    RootLayout& layout = root->layout_;
    layout.scratch = pattern;
    root->watcher_fd_ = StartWatcher(layout.scratch);
    chmod(layout.scratch.c_str(), 0755);
    root->path_ = layout.scratch + "/tree";
    layout.mount_point = layout.scratch + "/root";
    layout.staging = layout.scratch + "/staging";
    layout.upper = layout.scratch + "/upper";
    layout.work = layout.scratch + "/work";
    for (const std::string& dir : {root->path_, layout.mount_point, layout.staging, layout.upper,
                                   layout.work}) {
        mkdir(dir.c_str(), 0755);
    }

    // The layers: the tree's own entries over the directories, the last
    // directory topmost; each by its real path, so a symbolic link works.
    layout.lower.push_back(root->path_);
    const std::vector<std::string> copies = tree.CopiedDirectories();
    for (auto it = copies.rbegin(); it != copies.rend(); ++it) {
        std::error_code ec;
        const fs::path real = fs::canonical(*it, ec);
        if (ec || !fs::is_directory(real, ec)) {
            *error = "tree " + *it + ": " + (ec ? ec.message() : strerror(ENOTDIR));
            return nullptr;
        }
        layout.lower.push_back(real.string());
    }
    if (!tree.Materialize(root->path_, error, /*skip_copies=*/true)) return nullptr;

    bool namespaces_refused = false;
    const std::string refused = TryOverlay(layout, &namespaces_refused);
    if (!refused.empty() && !namespaces_refused) {
        root->fallback_ = "overlay refused (" + refused + "): the tree is copied instead";
        layout.copy = root->path_;
        layout.lower.clear();
        // Entries replace what the copies hold at their paths, as when laid out in order.
        if (!tree.Materialize(root->path_, error)) return nullptr;
    }
    return root;
}

ScratchRoot::~ScratchRoot() {
    if (!keep_) Remove(layout_.scratch);
    if (watcher_fd_ != -1) close(watcher_fd_);
}

void ScratchRoot::Keep() {
    keep_ = true;
    android::base::WriteStringToFile("", layout_.scratch + kKeptMarker);
    if (watcher_fd_ != -1) android::base::WriteFully(watcher_fd_, &kKeepByte, 1);
}

std::string ScratchRoot::HostPath(const std::string& device_path) const {
    if (!layout_.copy.empty()) return layout_.copy + device_path;
    const std::string upper = layout_.upper + device_path;
    // A whiteout (a 0/0 character device) in the writable layer hides what
    // the layers below hold at its path and below it.
    for (size_t end = 0; end != std::string::npos;) {
        end = device_path.find('/', end + 1);
        struct stat st;
        if (lstat((layout_.upper + device_path.substr(0, end)).c_str(), &st) != 0) break;
        if (S_ISCHR(st.st_mode) && st.st_rdev == 0) return layout_.scratch + "/deleted" + device_path;
        if (end == std::string::npos) return upper;
    }
    for (const std::string& layer : layout_.lower) {
        struct stat st;
        if (lstat((layer + device_path).c_str(), &st) == 0) return layer + device_path;
    }
    return upper;
}

}  // namespace sandbox
