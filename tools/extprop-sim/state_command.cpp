// SPDX-License-Identifier: Apache-2.0
// state --root DIR: the switch-key files on the reserve partition and under
// /data, as the tree holds them before the first boot and as each boot of a
// sequence found and left them, so that a team sees which boot wrote a key.

#include <sys/stat.h>

#include <cstdio>
#include <map>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "boot_options.h"
#include "boot_sequence.h"
#include "commands.h"
#include "extension_paths.h"
#include "json.h"
#include "printable.h"
#include "sandbox.h"

namespace extprop_sim {
namespace {

using namespace android::init;

// The files the library keeps its switch keys and their markers in.
constexpr const char* kKeyFiles[] = {
        kReserveSimSwitchFirstFile,  kReserveSimSwitchCurrentFile, kReserveRegionSwitchFile,
        kReserveSimSwitchConvertFile, kReserveFirstSwitchNoneClearFile, kReserveSimActionFile,
        kReserveSimSwitchCommonFile, kReserveForceConnectFile,     kFlashbackFile,
        kDataSimSwitchFirstFile,     kDataSimSwitchCurrentFile,    kDataRegionSwitchFile,
        kDataSimActionFile,
};
constexpr size_t kContentLimit = 64 * 1024;
constexpr char kNotePrefix[] = "state/";

// One key file as a boot found or left it; absent when the map has no entry.
struct KeyFile {
    std::string owner_mode;  // "uid:gid 0644"
    std::string content;
    bool operator==(const KeyFile& o) const {
        return owner_mode == o.owner_mode && content == o.content;
    }
};
using KeyFiles = std::map<std::string, KeyFile>;

// Inside the device: each key file's owner, mode and content, as notes
// "state/<when>/<path>" = "<owner mode>\n<content>".
void NoteKeyFiles(sandbox::Context& ctx, const std::string& when) {
    sandbox::PropertyMap notes;
    for (const char* path : kKeyFiles) {
        struct stat st;
        if (lstat(path, &st) != 0) continue;
        std::string content;
        if (S_ISREG(st.st_mode)) android::base::ReadFileToString(path, &content, false);
        if (content.size() > kContentLimit) content.resize(kContentLimit);
        notes[kNotePrefix + when + "/" + path] =
                android::base::StringPrintf("%u:%u %04o\n", st.st_uid, st.st_gid,
                                            st.st_mode & 07777) +
                content;
    }
    ctx.Notes(notes);
}

KeyFiles KeyFilesNoted(const sandbox::PropertyMap& notes, const std::string& when) {
    KeyFiles files;
    const std::string prefix = kNotePrefix + when + "/";
    for (auto it = notes.lower_bound(prefix); it != notes.end() && it->first.rfind(prefix, 0) == 0;
         ++it) {
        const size_t newline = it->second.find('\n');
        files[it->first.substr(prefix.size())] = {it->second.substr(0, newline),
                                                  it->second.substr(newline + 1)};
    }
    return files;
}

struct BootState {
    int boot;
    std::string started_by;  // the restart step, "" for the first boot
    KeyFiles start, end;
};

std::string Quoted(const std::string& bytes) {
    return "\"" + Printable(bytes) + "\"";
}

void PrintFiles(const KeyFiles& files) {
    if (files.empty()) printf("  (none)\n");
    for (const auto& [path, file] : files) {
        printf("  %s: %s (%s)\n", Printable(path).c_str(), Quoted(file.content).c_str(),
               file.owner_mode.c_str());
    }
}

// "+ path: content", "~ path: before -> after", "- path", one line each.
void PrintChanges(const KeyFiles& before, const KeyFiles& after) {
    size_t changes = 0;
    for (const auto& [path, file] : after) {
        const auto it = before.find(path);
        if (it == before.end()) {
            printf("  + %s: %s (%s)\n", Printable(path).c_str(), Quoted(file.content).c_str(),
                   file.owner_mode.c_str());
        } else if (!(it->second == file)) {
            printf("  ~ %s: %s (%s) -> %s (%s)\n", Printable(path).c_str(),
                   Quoted(it->second.content).c_str(), it->second.owner_mode.c_str(),
                   Quoted(file.content).c_str(), file.owner_mode.c_str());
        } else {
            continue;
        }
        ++changes;
    }
    for (const auto& [path, file] : before) {
        if (after.count(path) == 0) {
            printf("  - %s\n", Printable(path).c_str());
            ++changes;
        }
    }
    if (changes == 0) printf("  (nothing)\n");
}

Json FilesJson(const KeyFiles& files) {
    Json list = Json::array();
    for (const auto& [path, file] : files) {
        Json record = Json::object();
        PutBytes(&record, "path", path);
        record["owner_mode"] = file.owner_mode;
        PutBytes(&record, "content", file.content);
        list.push_back(std::move(record));
    }
    return list;
}

}  // namespace

int StateCommand(const StateArgs& args) {
    if (args.boot.tree.empty()) return Fail("state needs --root DIR");
    BootConfig config;
    std::string error;
    if (!MakeBootConfig(args.boot, &config, &error)) return Fail(error);
    // Each step leaves its notes; a boot's last step tells how the boot ended.
    config.after_step = [](sandbox::Context& ctx, size_t step) {
        NoteKeyFiles(ctx, std::to_string(step));
    };
    // The tree as it is before any boot, read inside the device root.
    sandbox::Options options;
    options.capture_tree = false;
    const sandbox::Outcome before = sandbox::Run(
            sandbox::DeviceTree().CopyFrom(config.tree), options,
            [](sandbox::Context& ctx) { NoteKeyFiles(ctx, "tree"); });
    if (!before.Completed()) return Fail("cannot read " + config.tree + ": " + before.Describe());
    BootResult result;
    if (!BootQuietly(config, &result, &error)) return Fail(error);

    const std::vector<int> boots = BootNumbers(result.steps);
    std::vector<BootState> states;
    for (size_t i = 0; i < result.steps.size(); ++i) {
        if (states.empty() || states.back().boot != boots[i]) {
            const bool first = states.empty();
            // A later boot starts as its restart step (reboot, wipe-data, ota) left the device.
            states.push_back({boots[i], first ? "" : result.steps[i].Describe(),
                              KeyFilesNoted(first ? before.notes : result.outcome.notes,
                                            first ? "tree" : std::to_string(i)),
                              {}});
        }
        states.back().end = KeyFilesNoted(result.outcome.notes, std::to_string(i));
    }

    if (args.json) {
        Json document = JsonDocument("state");
        document["tree"] = FilesJson(KeyFilesNoted(before.notes, "tree"));
        Json list = Json::array();
        for (const BootState& state : states) {
            Json record = {{"boot", state.boot}};
            PutBytes(&record, "started_by",
                     state.started_by.empty() ? std::nullopt
                                              : std::optional<std::string>(state.started_by));
            record["start"] = FilesJson(state.start);
            record["end"] = FilesJson(state.end);
            list.push_back(std::move(record));
        }
        document["boots"] = std::move(list);
        fputs(JsonText(document).c_str(), stdout);
        return kExitOk;
    }
    printf("Switch-key files of %s\nIn the tree:\n", Printable(config.tree).c_str());
    PrintFiles(KeyFilesNoted(before.notes, "tree"));
    const KeyFiles* previous = nullptr;
    for (const BootState& state : states) {
        if (previous != nullptr && !(state.start == *previous)) {
            printf("%s before boot %d changed:\n", Printable(state.started_by).c_str(), state.boot);
            PrintChanges(*previous, state.start);
        }
        printf("Boot %d wrote:\n", state.boot);
        PrintChanges(state.start, state.end);
        previous = &state.end;
    }
    printf("After boot %d:\n", states.empty() ? 0 : states.back().boot);
    PrintFiles(states.empty() ? KeyFiles() : states.back().end);
    return kExitOk;
}

}  // namespace extprop_sim
