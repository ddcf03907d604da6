// SPDX-License-Identifier: Apache-2.0
#include "tree_path.h"

#include <sys/stat.h>

#include <deque>

#include <android-base/file.h>
#include <android-base/strings.h>

namespace extprop_sim {
namespace {

// Queues the components of |path| in front of |pending|.
void PushFront(const std::string& path, std::deque<std::string>* pending) {
    std::vector<std::string> parts = android::base::Split(path, "/");
    for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
        if (!it->empty() && *it != ".") pending->push_front(*it);
    }
}

}  // namespace

std::string HostPath(const std::string& root, const std::string& device_path, bool follow_final) {
    std::deque<std::string> pending;
    PushFront(device_path, &pending);
    std::string resolved;  // device path resolved so far, "" for "/"
    for (int links = 0; !pending.empty();) {
        const std::string part = pending.front();
        pending.pop_front();
        if (part == "..") {
            resolved.resize(resolved.empty() ? 0 : resolved.rfind('/'));
            continue;
        }
        const std::string next = resolved + "/" + part;
        std::string target;
        struct stat st;
        if ((pending.empty() && !follow_final) || lstat((root + next).c_str(), &st) != 0 ||
            !S_ISLNK(st.st_mode) || !android::base::Readlink(root + next, &target)) {
            resolved = next;
            continue;
        }
        if (++links > 40) return "";
        if (!target.empty() && target[0] == '/') resolved.clear();
        PushFront(target, &pending);
    }
    return root + resolved;
}

}  // namespace extprop_sim
