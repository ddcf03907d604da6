// SPDX-License-Identifier: Apache-2.0
#include "lint_access.h"

#include <dirent.h>
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstring>

#include <android-base/strings.h>

#include "access_record.h"
#include "boot_options.h"

namespace extprop_sim {
namespace {

constexpr char kAccessNote[] = "access/";
constexpr const char* kMapFiles[] = {"nvmap.prop", "flags.prop", "custom_map.prop"};
constexpr size_t kMaxDepth = 8;

// Inside the device, after a step: the step's calls as notes
// "access/<step>/<n>" = call NUL r|w NUL errno NUL path NUL resolved path.
void NoteAccesses(sandbox::Context& ctx, size_t step) {
    sandbox::PropertyMap notes;
    size_t n = 0;
    for (const LibraryAccess& access : TakeLibraryAccesses()) {
        char resolved[PATH_MAX];
        const std::string real = realpath(access.path.c_str(), resolved) ? resolved : "";
        std::string note = access.call;
        note += '\0';
        note += access.writes ? "w" : "r";
        note += '\0';
        note += std::to_string(access.error) + '\0' + access.path + '\0' + real;
        notes[kAccessNote + std::to_string(step) + "/" + std::to_string(n++)] = note;
    }
    ctx.Notes(notes);
}

// Whether |path| (a device path) is one the static checks own: a file of a
// property set or an etc/build.<key>.prop, which another key would read, or
// a map file, read only when an old identity is converted.
bool ReachedByAnotherKey(const std::string& path) {
    const std::vector<std::string> parts = android::base::Split(path, "/");
    for (size_t i = 0; i + 2 < parts.size(); ++i) {
        if (parts[i] == "properties") return true;
    }
    const std::string name = parts.back();
    if (parts.size() >= 2 && parts[parts.size() - 2] == "etc") {
        if (name != "build.prop" && android::base::StartsWith(name, "build.")) return true;
        for (const char* map : kMapFiles) {
            if (name == map) return true;
        }
    }
    return false;
}

void WalkUnread(LintContext* ctx, const std::string& dir, size_t depth,
                const std::set<std::string>& reached) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr || depth > kMaxDepth) {
        if (d != nullptr) closedir(d);
        return;
    }
    std::vector<std::string> names;
    while (dirent* entry = readdir(d)) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names.push_back(entry->d_name);
        }
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = dir + "/" + name;
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            WalkUnread(ctx, path, depth + 1, reached);
        } else if (S_ISREG(st.st_mode) && android::base::EndsWith(name, ".prop") &&
                   reached.count(path) == 0 && !ReachedByAnotherKey(path)) {
            ctx->Report(lint_rule::kUnreadFile, path,
                        "no boot reads it: the library never opened it with these keys");
        }
    }
}

}  // namespace

bool RecordBootAccesses(const LintArgs& args, BootAccesses* accesses, std::string* error) {
    BootOptions options;
    options.tree = args.tree;
    options.props_file = args.props_file;
    options.property_contexts = args.property_contexts;
    BootConfig config;
    if (!MakeBootConfig(options, &config, error)) return false;
    // The handle MakeBootConfig keeps open: the child, forked later, has the
    // library at the same address.
    void* handle = dlopen(config.library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    const void* factory = handle ? dlsym(handle, "QRAV_FETCH_IInitExtensionProperty") : nullptr;
    config.before_steps = [factory](sandbox::Context&) { RecordLibraryAccess(factory); };
    config.after_step = NoteAccesses;
    const BootResult result = RunBoot(config);
    if (!result.error.empty()) {
        *error = "the boot of " + args.tree + " failed: " + result.error;
        return false;
    }
    std::set<std::string> failed;  // each path once, however often the library tried it
    for (auto it = result.outcome.notes.lower_bound(kAccessNote);
         it != result.outcome.notes.end() && it->first.rfind(kAccessNote, 0) == 0; ++it) {
        const std::vector<std::string> f = android::base::Split(it->second, std::string(1, '\0'));
        if (f.size() != 5) continue;
        const std::string& call = f[0];
        const int errnum = std::stoi(f[2]);
        const std::string& path = f[3];
        const std::string& resolved = f[4];
        accesses->reached.insert(path);
        if (!resolved.empty()) accesses->reached.insert(resolved);
        // A read of a path that is there, which failed: not a missing file,
        // nor a write (those are the library's to report).
        if (errnum != 0 && errnum != ENOENT && f[1] == "r" && failed.insert(path).second) {
            accesses->failures.push_back({FindLintRule(lint_rule::kFailedRead), path, 0,
                                          "the library's " + call + " failed at boot: " +
                                                  strerror(errnum)});
        }
    }
    return true;
}

void LintUnreadFiles(LintContext* ctx, const std::set<std::string>& reached) {
    std::vector<std::string> partitions;
    if (DIR* root = opendir("/")) {
        while (dirent* entry = readdir(root)) {
            if (android::base::StartsWith(entry->d_name, "my_")) {
                partitions.push_back(std::string("/") + entry->d_name);
            }
        }
        closedir(root);
    }
    std::sort(partitions.begin(), partitions.end());
    for (const std::string& partition : partitions) WalkUnread(ctx, partition, 0, reached);
}

}  // namespace extprop_sim
