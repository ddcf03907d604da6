#include "file_history.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include <android-base/file.h>

#include "boot.h"

namespace extprop_sim {
namespace {

// Larger files are no property file anyone ships; they are not read.
constexpr off_t kLargestPropertyFile = 16 << 20;

bool SameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool NotBefore(const timespec& a, const timespec& b) {
    return a.tv_sec > b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec >= b.tv_nsec);
}

std::string FileKey(int step, const std::string& path) {
    return "file " + std::to_string(step) + " " + path;
}

std::string GoneKey(int step, const std::string& path) {
    return "gone " + std::to_string(step) + " " + path;
}

}  // namespace

bool FileHistory::Identity::operator==(const Identity& other) const {
    return dev == other.dev && ino == other.ino && size == other.size &&
           SameTime(mtime, other.mtime) && SameTime(ctime, other.ctime);
}

void FileHistory::CaptureAfterStep(sandbox::Context& ctx, size_t step) {
    namespace fs = std::filesystem;
    timespec walk_start;
    clock_gettime(CLOCK_REALTIME, &walk_start);
    std::map<std::string, Identity> now;
    std::error_code ec;
    fs::recursive_directory_iterator it("/", fs::directory_options::skip_permission_denied, ec);
    for (const fs::recursive_directory_iterator end; it != end; it.increment(ec)) {
        if (!it->is_regular_file(ec) || it->is_symlink(ec)) continue;
        const std::string path = it->path().string();
        struct stat st;
        if (lstat(path.c_str(), &st) != 0 || st.st_size > kLargestPropertyFile) continue;
        const Identity identity{st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
        now.emplace(path, identity);
        auto before = seen_.find(path);
        // A file written in the same clock tick as the last walk may look
        // unchanged by its times: read it again.
        const bool unchanged = before != seen_.end() && before->second == identity &&
                               !NotBefore(st.st_mtim, last_walk_);
        if (unchanged) continue;
        std::string content;
        android::base::ReadFileToString(path, &content, false);
        if (content.find(name_) != std::string::npos) {
            ctx.Note(FileKey(step, path), content);
            noted_.insert(path);
        } else if (noted_.erase(path) != 0) {
            ctx.Note(FileKey(step, path), "");  // no longer mentions it
        }
    }
    for (const auto& [path, identity] : seen_) {
        if (now.count(path) == 0 && noted_.erase(path) != 0) ctx.Note(GoneKey(step, path), "");
    }
    seen_ = std::move(now);
    last_walk_ = walk_start;
}

std::optional<std::string> FileHistory::ContentAt(const sandbox::Outcome& outcome,
                                                  const std::string& path, int step) {
    // The factory's reads come before step 0's walk. A step that removed the
    // file read it as an earlier step left it; one that came after the
    // removal read a file made anew, which never mentioned the property.
    const int last = std::max(step, 0);
    for (int k = last; k >= 0; --k) {
        if (auto content = outcome.notes.find(FileKey(k, path)); content != outcome.notes.end()) {
            return content->second;
        }
        if (k < last && outcome.notes.count(GoneKey(k, path)) != 0) return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace extprop_sim
