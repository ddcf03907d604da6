// SPDX-License-Identifier: Apache-2.0
#include "tree_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

namespace fs = std::filesystem;
using android::base::unique_fd;

namespace sandbox {
namespace {

constexpr int kMaxDepth = 256;

bool Fail(const std::string& path, std::string* error) {
    *error = "copy " + path + ": " + strerror(errno);
    return false;
}

bool CopyFile(const std::string& from, const std::string& to, mode_t mode, std::string* error) {
    unique_fd in(open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (in == -1) return Fail(from, error);
    unique_fd out(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (out == -1) return Fail(to, error);
    char buf[65536];
    ssize_t n;
    while ((n = TEMP_FAILURE_RETRY(read(in.get(), buf, sizeof(buf)))) > 0) {
        if (!android::base::WriteFully(out.get(), buf, n)) return Fail(to, error);
    }
    if (n < 0) return Fail(from, error);
    if (fchmod(out.get(), mode & 07777) != 0) return Fail(to, error);
    return true;
}

bool CopyEntry(const std::string& from, const std::string& to, const struct stat& st,
               const struct stat& skip, int depth, std::string* error);

bool CopyDirectory(const std::string& from, const std::string& to, const struct stat& skip,
                   int depth, std::string* error) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(from.c_str()), closedir);
    if (!dir) return Fail(from, error);
    std::vector<std::string> names;
    while (const dirent* entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.push_back(entry->d_name);
        }
    }
    dir.reset();
    for (const std::string& name : names) {
        const std::string source = from + "/" + name;
        struct stat st;
        if (lstat(source.c_str(), &st) != 0) return Fail(source, error);
        if (st.st_dev == skip.st_dev && st.st_ino == skip.st_ino) continue;
        if (!CopyEntry(source, to + "/" + name, st, skip, depth + 1, error)) return false;
    }
    return true;
}

bool CopyEntry(const std::string& from, const std::string& to, const struct stat& st,
               const struct stat& skip, int depth, std::string* error) {
    if (depth > kMaxDepth) {
        errno = ELOOP;
        return Fail(from, error);
    }
    struct stat existing;
    const bool exists = lstat(to.c_str(), &existing) == 0;
    if (exists && !(S_ISDIR(existing.st_mode) && S_ISDIR(st.st_mode))) {
        std::error_code ec;
        fs::remove_all(to, ec);
    }
    if (S_ISDIR(st.st_mode)) {
        // Writable while filling it; its own mode once full.
        if (!(exists && S_ISDIR(existing.st_mode)) && mkdir(to.c_str(), 0700) != 0) {
            return Fail(to, error);
        }
        chmod(to.c_str(), 0700);
        if (!CopyDirectory(from, to, skip, depth, error)) return false;
        if (chmod(to.c_str(), st.st_mode & 07777) != 0) return Fail(to, error);
        return true;
    }
    if (S_ISREG(st.st_mode)) return CopyFile(from, to, st.st_mode, error);
    if (S_ISLNK(st.st_mode)) {
        std::string target;
        if (!android::base::Readlink(from, &target)) return Fail(from, error);
        if (symlink(target.c_str(), to.c_str()) != 0) return Fail(to, error);
        return true;
    }
    // FIFOs and sockets need no privilege to create; device nodes do.
    if (mknod(to.c_str(), st.st_mode, S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) ? st.st_rdev : 0) !=
        0) {
        return Fail(from, error);
    }
    return true;
}

}  // namespace

bool CopyTree(const std::string& from, const std::string& to, std::string* error,
              const std::string& skip) {
    struct stat st, skip_st {};
    if (stat(from.c_str(), &st) != 0) return Fail(from, error);
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return Fail(from, error);
    }
    if (!skip.empty()) stat(skip.c_str(), &skip_st);
    return CopyDirectory(from, to, skip_st, 0, error);
}

void MakeRemovable(const std::string& dir) {
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) chmod(it->path().c_str(), 0755);
    }
}

}  // namespace sandbox
