// SPDX-License-Identifier: Apache-2.0
// The entries of a device tree, and laying them out on disk.

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>

#include "sandbox.h"
#include "tree_copy.h"

namespace fs = std::filesystem;

namespace sandbox {

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
    entries_.push_back({Kind::kSocket, path, "", 0755});
    return *this;
}

std::vector<std::string> DeviceTree::CopiedDirectories() const {
    std::vector<std::string> dirs;
    for (const Entry& entry : entries_) {
        if (entry.kind == Kind::kCopy) dirs.push_back(entry.data);
    }
    return dirs;
}

bool DeviceTree::Materialize(const std::string& root, std::string* error, bool skip_copies) const {
    for (const Entry& entry : entries_) {
        if (entry.kind == Kind::kCopy && skip_copies) continue;
        const std::string host = root + entry.path;
        std::error_code ec;
        fs::create_directories(fs::path(host).parent_path(), ec);
        // A later entry replaces whatever an earlier one left at its path.
        if (entry.kind != Kind::kCopy &&
            !(entry.kind == Kind::kDir && fs::is_directory(host, ec))) {
            fs::remove_all(host, ec);
        }
        bool ok = true;
        switch (entry.kind) {
            case Kind::kCopy:
                ok = CopyTree(entry.data, host, error, fs::path(root).parent_path());
                break;
            case Kind::kFile:
                ok = android::base::WriteStringToFile(entry.data, host) &&
                     chmod(host.c_str(), entry.mode) == 0;
                break;
            case Kind::kDir:
                fs::create_directories(host, ec);
                ok = !ec && chmod(host.c_str(), entry.mode) == 0;
                break;
            case Kind::kSymlink:
                ok = symlink(entry.data.c_str(), host.c_str()) == 0;
                break;
            case Kind::kFifo:
                ok = mkfifo(host.c_str(), entry.mode) == 0;
                break;
            case Kind::kSocket:
                // A socket file needs no listener to exist, nor a short path.
                ok = mknod(host.c_str(), S_IFSOCK | entry.mode, 0) == 0;
                break;
        }
        if (!ok) {
            if (entry.kind != Kind::kCopy) *error = "lay out " + entry.path + ": " + strerror(errno);
            return false;
        }
    }
    return true;
}

}  // namespace sandbox
