// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets that run the library on a device tree share: entering
// the device root once per process, a fresh writable tree per input, init's
// way of applying batches, and a look at the tree afterwards.
#pragma once

#include <dirent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "extension_paths.h"
#include "fuzz_input.h"
#include "hostplatform/property_store.h"
#include "sandbox.h"
#include "utils.h"

namespace fuzz_device {

// Every directory the library reads or writes at the top of the device root.
inline constexpr const char* kTopLevel[] = {"/my_region", "/my_carrier", "/my_company",
                                            "/my_product", "/mnt", "/data", "/dev", "/odm", "/sys"};

using fuzz_input::Fail;
using fuzz_input::Field;
using fuzz_input::Fields;

// The library's log stays quiet unless ZELVA_FUZZ_LOG is set (to replay a finding).
inline void QuietUnlessAsked() {
    if (getenv("ZELVA_FUZZ_LOG") == nullptr) {
        android::base::SetMinimumLogSeverity(android::base::FATAL);
    } else {
        android::base::SetLogger(android::base::StderrLogger);
    }
}

// mount() and umount2() straight to the kernel: a target may replace libc's mount() to record
// the library's calls, and the tree's own mounts are not the library's.
inline int KernelMount(const char* source, const char* target, const char* type,
                       unsigned long flags, const void* data) {
    return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
}

// Whether this process only coordinates a corpus merge (-merge=1): it runs no input itself but
// starts the target again for that, which a process inside the device root can't (the host's
// libraries are out of reach there). Run merges with -merge_control_file=<relative path>.
inline bool MergeCoordinator(int argc, char** argv) {
    bool merge = false, inner = false;
    for (int i = 1; i < argc; ++i) {
        merge |= strcmp(argv[i], "-merge=1") == 0;
        inner |= strncmp(argv[i], "-merge_inner=", 13) == 0;
    }
    return merge && !inner;
}

// Enters a device root holding |tree|, with a tmpfs at each of kTopLevel, in this process and
// for good (coverage stays in one process). Ends the process when it can't.
inline void Enter(sandbox::DeviceTree tree) {
    sandbox::Options options;
    for (const char* dir : kTopLevel) {
        tree.Dir(dir);
        options.mounts.push_back({sandbox::MountSetup::Kind::kTmpfs, dir, 16 << 20});
    }
    std::string error;
    static std::unique_ptr<sandbox::ScratchRoot> root = sandbox::ScratchRoot::Create(tree, &error);
    if (!root || !sandbox::EnterInProcess(*root, options, &error)) {
        fprintf(stderr, "cannot enter the device root: %s\n", error.c_str());
        exit(1);
    }
}

// What one input left behind is gone before the next: every top-level directory is emptied
// (they are mount points and stay; on a small tree this is a few system calls), and no property
// is set. With |key_stores|, the directories of the reserve and data key stores are there, as on
// a device where the partitions are mounted.
inline void FreshInput(bool key_stores = false) {
    for (const char* dir : kTopLevel) {
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
            std::filesystem::remove_all(entry.path(), ec);
        }
    }
    hostplatform::ResetProperties();
    if (!key_stores) return;
    std::filesystem::create_directories(android::init::kReserveSsvDir);
    std::filesystem::create_directories(
            std::filesystem::path(android::init::kDataRegionSwitchFile).parent_path());
}

// The switch-key map files, as the customization directories hold them in etc/.
inline constexpr const char* kMapFiles[] = {"nvmap.prop", "flags.prop", "custom_map.prop"};

// |path| as the kernel resolves it where every component is a directory (the trees hold no
// symbolic links): "." and ".." taken lexically, no separator at the end.
inline std::string NormalPath(const std::string& path) {
    std::string normal = std::filesystem::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

// Whether |path| (absolute, taken lexically) lies in one of the directories of kTopLevel.
inline bool InTree(const std::string& path) {
    const std::string normal = std::filesystem::path(path).lexically_normal().string();
    for (const char* dir : kTopLevel) {
        if (normal == dir || android::base::StartsWith(normal, std::string(dir) + "/")) return true;
    }
    return false;
}

// Writes |content| at |path|, creating its parents.
inline void PutFile(const std::string& path, const std::string& content) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    android::base::WriteStringToFile(content, path);
}

// What every device target does first: unless it only coordinates a merge, it enters a device
// root whose brand is "alder" (and whose SKU region is |region|, when given) and builds the
// directory lists from them, once per process. /my_region is one of the emptied directories, so
// the region is written into it after entering, and each input then gives its own (or none).
inline void Start(int argc, char** argv, const char* region = nullptr) {
    if (MergeCoordinator(argc, argv)) return;
    QuietUnlessAsked();
    namespace paths = android::init;
    Enter(sandbox::DeviceTree().File(paths::kSystemExtBuildProp,
                                     std::string(paths::kBrandProperty) + "=alder\n"));
    if (region != nullptr) {
        PutFile(paths::kRegionBuildProp, std::string(paths::kSkuRegionProperty) + "=" + region + "\n");
    }
    paths::InitCustDirList();
}

// Sets the entries of a batch as init would: a "ro." property that is set keeps its value.
inline void ApplyBatch(const PropertyMap& batch) {
    for (const auto& [name, value] : batch) {
        if (android::base::StartsWith(name, "ro.") && hostplatform::GetProperty(name)) continue;
        hostplatform::SetProperty(name, value);
    }
}

// A property's value as the library reads it (a C string of at most 91 bytes), "" when unset.
inline std::string Property(const std::string& name) {
    return std::string(hostplatform::GetProperty(name).value_or("").c_str()).substr(0, 91);
}

struct Entry {
    bool directory;
    std::string content;  // files only
    bool aged = false;    // files only: still carries the time Age() gave it
};

// The modification time that Age() gives every file: a file written later has another.
inline constexpr time_t kAgedTime = 1;

// Everything in the device root but /proc and the working directory (the host's), by path
// (links not followed).
inline std::map<std::string, Entry> WalkRoot() {
    static const std::string cwd = std::filesystem::current_path().string();
    std::map<std::string, Entry> entries;
    std::vector<std::string> pending = {"/"};
    while (!pending.empty()) {
        const std::string current = pending.back();
        pending.pop_back();
        std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(current.c_str()), closedir);
        if (!d) continue;
        while (const dirent* e = readdir(d.get())) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            const std::string path = (current == "/" ? "" : current) + "/" + name;
            if (path == "/proc" || path == cwd) continue;
            struct stat st;
            if (lstat(path.c_str(), &st) != 0) continue;
            const bool host_parent = android::base::StartsWith(cwd, path + "/");
            if (S_ISDIR(st.st_mode)) {
                if (!host_parent) entries[path] = {true, ""};
                pending.push_back(path);
            } else {
                std::string content;
                if (S_ISREG(st.st_mode)) android::base::ReadFileToString(path, &content);
                entries[path] = {false, content, st.st_mtim.tv_sec == kAgedTime};
            }
        }
    }
    return entries;
}

// Gives every file of the tree the time kAgedTime, so that a later write shows.
inline void Age() {
    const struct timespec times[2] = {{kAgedTime, 0}, {kAgedTime, 0}};
    for (const auto& [path, entry] : WalkRoot()) {
        if (!entry.directory) utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
}

}  // namespace fuzz_device
