// SPDX-License-Identifier: Apache-2.0
#include "boot_sequence.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "extension_paths.h"
#include "file_history.h"
#include "hostplatform/property_store.h"
#include "init_sink.h"

namespace fs = std::filesystem;

namespace extprop_sim {

const char kSimSwitchCurrentProperty[] = "sys.sim.switch.current";

namespace {

constexpr char kPersistPrefix[] = "persist.";
constexpr char kDataDir[] = "/data";

// Removes what a directory holds, keeping the directory (a mount point on a
// device). Through the overlay, files of the tree's own layers are hidden.
bool EmptyDirectory(const std::string& dir, std::string* error) {
    std::error_code ec;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir, ec)) {
        fs::remove_all(entry.path(), ec);
        if (ec) break;
    }
    if (ec) *error = dir + ": " + ec.message();
    return !ec;
}

bool LayOut(const PartitionImage& image, std::string* error) {
    for (const PartitionImage::Entry& entry : image.entries) {
        const std::string path = image.partition + "/" + entry.path;
        bool ok = true;
        if (entry.type == 'd') {
            ok = mkdir(path.c_str(), entry.mode) == 0;
        } else if (entry.type == 'l') {
            ok = symlink(entry.data.c_str(), path.c_str()) == 0;
        } else {
            ok = android::base::WriteStringToFile(entry.data, path, entry.mode, getuid(), getgid());
        }
        if (!ok) {
            *error = path + ": " + strerror(errno);
            return false;
        }
    }
    return true;
}

size_t LoadRecords(const sandbox::Outcome& outcome) {
    size_t loads = 0;
    for (const sandbox::LogRecord& record : outcome.logs) {
        if (android::base::StartsWith(record.message, kLoadedPrefix)) ++loads;
    }
    return loads;
}

}  // namespace

bool StartsBoot(const Step& step) {
    return step.kind == Step::Kind::kReboot || step.kind == Step::Kind::kWipeData ||
           step.kind == Step::Kind::kOta;
}

std::vector<int> BootNumbers(const std::vector<Step>& steps) {
    std::vector<int> boots;
    int boot = 1;
    // A script that begins with a restart restarts the device before its first boot.
    for (const Step& step : steps) {
        boots.push_back(boot += StartsBoot(step) && !boots.empty() ? 1 : 0);
    }
    return boots;
}

bool IsPersistent(std::string_view name) {
    return android::base::StartsWith(name, kPersistPrefix);
}

bool ReadPartitionImage(const Step& ota, PartitionImage* image, std::string* error) {
    image->partition = "/" + ota.args[0];
    const fs::path top = ota.args[1];
    std::error_code ec;
    if (!fs::is_directory(top, ec)) {
        *error = "ota: " + top.string() + " is not a directory";
        return false;
    }
    // Parents come before what they hold, as the walk visits them.
    for (auto it = fs::recursive_directory_iterator(top, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        const fs::path& path = it->path();
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) continue;
        PartitionImage::Entry entry{fs::relative(path, top, ec).string(), 'f', st.st_mode & 07777,
                                    ""};
        if (S_ISDIR(st.st_mode)) {
            entry.type = 'd';
        } else if (S_ISLNK(st.st_mode)) {
            entry.type = 'l';
            entry.data = fs::read_symlink(path, ec).string();
        } else if (!S_ISREG(st.st_mode) ||
                   !android::base::ReadFileToString(path.string(), &entry.data, false)) {
            *error = "ota: cannot read " + path.string();
            return false;
        }
        image->entries.push_back(std::move(entry));
    }
    if (ec) *error = "ota: " + top.string() + ": " + ec.message();
    return !ec;
}

void RestartDevice(const Step& restart, const PartitionImage& image, sandbox::Context& ctx,
                   const std::string& note_key) {
    std::string error;
    if (restart.kind == Step::Kind::kWipeData) {
        if (!EmptyDirectory(kDataDir, &error)) ctx.Note(note_key, "wipe failed: " + error);
    } else if (restart.kind == Step::Kind::kOta) {
        std::error_code ec;
        fs::create_directories(image.partition, ec);  // a tree may lack the partition
        if (!EmptyDirectory(image.partition, &error) || !LayOut(image, &error)) {
            ctx.Note(note_key, "ota failed: " + error);
        }
    }
}

void SwitchSim(const std::string& key, sandbox::Context& ctx, const std::string& note_key) {
    std::error_code ec;
    fs::create_directories(android::init::kReserveSsvDir, ec);
    const std::string line = std::string(kSimSwitchCurrentProperty) + "=" + key + "\n";
    if (!android::base::WriteStringToFile(line, android::init::kReserveSimSwitchCurrentFile)) {
        ctx.Note(note_key, std::string("cannot write ") +
                                   android::init::kReserveSimSwitchCurrentFile + ": " +
                                   strerror(errno));
    }
    hostplatform::SetProperty(kSimSwitchCurrentProperty, key);
}

void AppendBoot(sandbox::Outcome* all, sandbox::Outcome next) {
    if (!all->ran) {
        *all = std::move(next);
        return;
    }
    RenumberRefusals(&next.notes, all->batches.size());
    LoadedFiles::RenumberLoads(&next.notes, LoadRecords(*all));
    for (sandbox::Batch& batch : next.batches) all->batches.push_back(std::move(batch));
    for (sandbox::LogRecord& record : next.logs) all->logs.push_back(std::move(record));
    next.notes.merge(all->notes);  // a key both noted (the contexts in use) keeps the later value
    all->notes = std::move(next.notes);
    all->properties = std::move(next.properties);
    all->tree = std::move(next.tree);
    all->unavailable = next.unavailable;
    all->error = next.error;
    all->exit_code = next.exit_code;
    all->signal = next.signal;
    all->timed_out = next.timed_out;
    all->leaks = all->leaks || next.leaks;
}

}  // namespace extprop_sim
