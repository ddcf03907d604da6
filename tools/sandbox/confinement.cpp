// SPDX-License-Identifier: Apache-2.0
#include "confinement.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "tree_copy.h"

namespace fs = std::filesystem;

namespace sandbox {
namespace {

// What the library's operations need: mount (COTA binds), lchown of the files
// it creates, and reading and writing files it doesn't own.
constexpr int kKeptCapabilities[] = {CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH,
                                     CAP_FOWNER, CAP_FSETID,       CAP_SYS_ADMIN};

bool Fail(SetupError* error, const std::string& what, bool refused = false) {
    error->message = what + ": " + strerror(errno);
    error->refused = refused;
    return false;
}

// "a:b,c" as one overlay layer path: separators escaped.
std::string EscapeLayer(const std::string& path) {
    std::string out;
    for (char c : path) {
        if (c == '\\' || c == ':' || c == ',') out += '\\';
        out += c;
    }
    return out;
}

bool MountTmpfs(const std::string& root, const std::string& staging, const MountSetup& setup,
                SetupError* error) {
    const std::string target = root + setup.path;
    // Prepared on a staging directory in the scratch, then moved over the
    // target with what the target held; the staging directory goes with it.
    std::error_code ec;
    fs::create_directories(staging, ec);
    const std::string options = "size=" + std::to_string(setup.tmpfs_bytes) + ",mode=0755";
    if (mount("tmpfs", staging.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        return Fail(error, "mount tmpfs on " + staging);
    }
    if (fs::is_directory(target, ec)) {
        std::string copy_error;
        if (!CopyTree(target, staging, &copy_error)) {
            error->message = "fill tmpfs for " + setup.path + ": " + copy_error;
            return false;
        }
    } else {
        fs::create_directories(target, ec);
    }
    if (mount(staging.c_str(), target.c_str(), nullptr, MS_MOVE, nullptr) != 0) {
        return Fail(error, "move tmpfs onto " + setup.path);
    }
    rmdir(staging.c_str());
    if (setup.fill) {
        // Fill to the last byte, so that any later write fails with ENOSPC.
        android::base::unique_fd filler(
                open((target + "/.filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        std::string block(4096, 'x');
        while (filler != -1 && write(filler.get(), block.data(), block.size()) > 0) {
        }
        while (filler != -1 && write(filler.get(), block.data(), 1) > 0) {
        }
    }
    return true;
}

bool MountReadOnly(const std::string& root, const MountSetup& setup, SetupError* error) {
    const std::string target = root + setup.path;
    if (mount(target.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return Fail(error, "bind " + setup.path);
    }
    if (mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
        return Fail(error, "remount read-only " + setup.path);
    }
    return true;
}

bool MountHostDirectory(const std::string& root, const MountSetup& setup, SetupError* error) {
    const std::string target = root + setup.path;
    std::error_code ec;
    fs::create_directories(target, ec);
    if (mount(setup.path.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
        return Fail(error, "bind host " + setup.path);
    }
    return true;
}

bool WriteIdMap(const char* file, const std::string& content, SetupError* error) {
    if (!android::base::WriteStringToFile(content, file)) {
        return Fail(error, std::string("write ") + file, true);
    }
    return true;
}

int SetCapabilities(const __user_cap_data_struct data[2]) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return static_cast<int>(syscall(SYS_capset, &header, data));
}

// Root enters a user namespace that maps every id to itself: files keep their
// owners and the library may chown to any of them, but its capabilities then
// reach only what that namespace owns (its mounts, not the machine's). Only a
// process outside can write such a map, so a helper forked before the unshare
// writes it once told to.
bool UnshareAsRoot(int flags, SetupError* error) {
    int go[2];
    if (pipe2(go, O_CLOEXEC) != 0) return Fail(error, "pipe2");
    const pid_t self = getpid();
    const pid_t helper = fork();
    if (helper == 0) {
        close(go[1]);
        char byte;
        if (TEMP_FAILURE_RETRY(read(go[0], &byte, 1)) != 1) _exit(1);
        const std::string proc = "/proc/" + std::to_string(self);
        const bool mapped =
                android::base::WriteStringToFile("0 0 4294967295", proc + "/uid_map") &&
                android::base::WriteStringToFile("0 0 4294967295", proc + "/gid_map");
        _exit(mapped ? 0 : 1);
    }
    close(go[0]);
    if (helper < 0) return Fail(error, "fork");
    const bool unshared = unshare(flags) == 0;
    const int unshare_errno = errno;
    if (unshared) TEMP_FAILURE_RETRY(write(go[1], "m", 1));
    close(go[1]);
    int status = 0;
    while (waitpid(helper, &status, 0) < 0 && errno == EINTR) {
    }
    errno = unshare_errno;
    if (!unshared) return Fail(error, "unshare(CLONE_NEWUSER|CLONE_NEWNS|PID|NET|IPC|UTS)", true);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        errno = EPERM;
        return Fail(error, "map every id in the user namespace", true);
    }
    return true;
}

}  // namespace

bool UnshareNamespaces(bool isolate, SetupError* error) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    int flags = CLONE_NEWNS;
    if (isolate) flags |= CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;
    if (uid == 0 && isolate) {
        // A process with threads (a ThreadSanitizer runtime's, for one) may
        // not enter a user namespace: root then keeps the machine's, its
        // capabilities still bounded below.
        if (!UnshareAsRoot(flags, error) &&
            !(errno == EINVAL && unshare(flags & ~CLONE_NEWUSER) == 0)) {
            return false;
        }
    } else if (unshare(flags | (uid != 0 ? CLONE_NEWUSER : 0)) != 0) {
        return Fail(error, std::string("unshare(") + (uid != 0 || isolate ? "CLONE_NEWUSER|" : "") +
                                   "CLONE_NEWNS" + (isolate ? "|PID|NET|IPC|UTS" : "") + ")",
                    true);
    } else if (uid != 0 &&
               !(WriteIdMap("/proc/self/setgroups", "deny", error) &&
                 WriteIdMap("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1", error) &&
                 WriteIdMap("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1", error))) {
        return false;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return Fail(error, "make / private", true);
    }
    return true;
}

bool MountRoot(const RootLayout& layout, SetupError* error) {
    if (!layout.copy.empty()) {
        if (mount(layout.copy.c_str(), layout.mount_point.c_str(), nullptr, MS_BIND | MS_REC,
                  nullptr) != 0) {
            return Fail(error, "bind the copied tree", true);
        }
        return true;
    }
    std::string options = "lowerdir=";
    for (size_t i = 0; i < layout.lower.size(); ++i) {
        options += (i == 0 ? "" : ":") + EscapeLayer(layout.lower[i]);
    }
    options += ",upperdir=" + EscapeLayer(layout.upper) + ",workdir=" + EscapeLayer(layout.work);
    if (options.size() >= 4096) {
        errno = E2BIG;
        return Fail(error, "overlay layer list", true);
    }
    // userxattr: in a user namespace the overlay can mark a directory that
    // hides the layers below (one made after removing a tree's directory)
    // only with user.* attributes; without it such an rmdir fails with EIO.
    // Kernels before 5.11 don't know the option.
    if (mount("overlay", layout.mount_point.c_str(), "overlay", 0,
              (options + ",userxattr").c_str()) != 0 &&
        mount("overlay", layout.mount_point.c_str(), "overlay", 0, options.c_str()) != 0) {
        return Fail(error, "mount overlay", true);
    }
    return true;
}

bool EnterRoot(const RootLayout& layout, const std::vector<MountSetup>& mounts, bool proc,
               SetupError* error) {
    const std::string& root = layout.mount_point;
    for (size_t i = 0; i < mounts.size(); ++i) {
        const MountSetup& setup = mounts[i];
        bool ok = false;
        switch (setup.kind) {
            case MountSetup::Kind::kReadOnly:
                ok = MountReadOnly(root, setup, error);
                break;
            case MountSetup::Kind::kTmpfs:
                ok = MountTmpfs(root, layout.staging + "/" + std::to_string(i), setup, error);
                break;
            case MountSetup::Kind::kHostBind:
                ok = MountHostDirectory(root, setup, error);
                break;
        }
        if (!ok) return false;
    }
    if (proc) {
        // Mounted now, while the machine's /proc makes a new one allowed, and
        // covered by an empty read-only tmpfs until RevealProc: the function
        // sees an empty directory, not the processes.
        const std::string target = root + "/proc";
        mkdir(target.c_str(), 0555);
        if (mount("proc", target.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
            return Fail(error, "mount /proc");
        }
        if (mount("tmpfs", target.c_str(), "tmpfs", MS_RDONLY, "size=4k,mode=0555") != 0) {
            return Fail(error, "cover /proc");
        }
    }
    // The old root stacks on the new one and is then detached: nothing of
    // the machine's file system stays reachable by path.
    if (chdir(root.c_str()) != 0) return Fail(error, "chdir to the root");
    if (syscall(SYS_pivot_root, ".", ".") != 0) return Fail(error, "pivot_root", true);
    if (umount2(".", MNT_DETACH) != 0) return Fail(error, "detach the old root");
    if (chdir("/") != 0) return Fail(error, "chdir /");
    return true;
}

bool RevealProc() {
    return umount2("/proc", MNT_DETACH) == 0;
}

bool DropPrivileges(SetupError* error) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return Fail(error, "no_new_privs");
    __u32 kept[2] = {0, 0};
    for (int cap : kKeptCapabilities) kept[cap / 32] |= 1u << (cap % 32);
    for (int cap = 0; prctl(PR_CAPBSET_READ, cap, 0, 0, 0) >= 0; ++cap) {
        if ((kept[cap / 32] & (1u << (cap % 32))) != 0) continue;
        if (prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) != 0) {
            return Fail(error, "drop capability " + std::to_string(cap));
        }
    }
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    __user_cap_data_struct data[2] = {};
    for (int i = 0; i < 2; ++i) data[i].effective = data[i].permitted = kept[i];
    if (SetCapabilities(data) != 0) return Fail(error, "capset");
    return true;
}

}  // namespace sandbox
