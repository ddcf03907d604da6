// SPDX-License-Identifier: Apache-2.0
#include "file_history.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <android-base/file.h>
#include <android-base/strings.h>

namespace extprop_sim {
namespace {

std::string LoadKey(size_t load) {
    return "load " + std::to_string(load);
}

// Notes of every-file captures: a load that repeats the content of the load
// so many records back, and a load left out for the budget (its size).
constexpr char kRepeats[] = " repeats";
constexpr char kLeftOut[] = " left out";

}  // namespace

bool LoadedFiles::Start() {
    fd_ = memfd_create("extprop-sim-log", MFD_CLOEXEC);
    return fd_ != -1 && dup2(fd_, STDERR_FILENO) != -1;
}

void LoadedFiles::NoteEveryFile(sandbox::Context& ctx, size_t load, std::string content) {
    // A partition is loaded at both of its mount points, and again by later
    // operations: its content travels once.
    if (auto seen = seen_.find(content); seen != seen_.end()) {
        ctx.Note(LoadKey(load) + kRepeats, std::to_string(load - seen->second));
    } else if (content.size() > budget_) {
        ctx.Note(LoadKey(load) + kLeftOut, std::to_string(content.size()));
    } else {
        budget_ -= content.size();
        ctx.Note(LoadKey(load), content);
        seen_.emplace(std::move(content), load);
    }
}

void LoadedFiles::CaptureAfterStep(sandbox::Context& ctx) {
    char buffer[65536];
    ssize_t n;
    while ((n = pread(fd_, buffer, sizeof(buffer), read_)) > 0) {
        partial_.append(buffer, n);
        read_ += n;
    }
    const size_t complete = partial_.rfind('\n');
    if (complete == std::string::npos) return;
    for (const std::string& line : android::base::Split(partial_.substr(0, complete), "\n")) {
        // "<header> utils.cpp:126] (Loading properties from F took Nms.)"
        const std::string marker = std::string("] ") + kLoadedPrefix;
        const size_t begin = line.find(marker);
        const size_t took = line.rfind(kLoadedSuffix);
        if (begin == std::string::npos || took == std::string::npos || took < begin) continue;
        const size_t load = loads_++;
        const size_t name_begin = begin + marker.size();
        const std::string file = line.substr(name_begin, took - name_begin);
        std::string content;
        // The parser doesn't follow a final symbolic link either.
        if (!android::base::ReadFileToString(file, &content, false)) continue;
        if (names_.empty()) {
            NoteEveryFile(ctx, load, std::move(content));
        } else if (std::any_of(names_.begin(), names_.end(), [&](const std::string& name) {
                       return content.find(name) != std::string::npos;
                   })) {
            ctx.Note(LoadKey(load), content);
        }
    }
    partial_.erase(0, complete + 1);
}

const std::string* LoadedFiles::Find(const sandbox::Outcome& outcome, size_t load) {
    if (auto repeat = outcome.notes.find(LoadKey(load) + kRepeats); repeat != outcome.notes.end()) {
        const size_t back = std::stoul(repeat->second);
        return back != 0 && back <= load ? Find(outcome, load - back) : nullptr;
    }
    auto it = outcome.notes.find(LoadKey(load));
    return it == outcome.notes.end() ? nullptr : &it->second;
}

std::optional<std::string> LoadedFiles::Content(const sandbox::Outcome& outcome, size_t load) {
    const std::string* content = Find(outcome, load);
    return content == nullptr ? std::nullopt : std::optional(*content);
}

std::optional<size_t> LoadedFiles::LeftOut(const sandbox::Outcome& outcome, size_t load) {
    auto it = outcome.notes.find(LoadKey(load) + kLeftOut);
    if (it == outcome.notes.end()) return std::nullopt;
    return std::stoul(it->second);
}

void LoadedFiles::RenumberLoads(sandbox::PropertyMap* notes, size_t loads_before) {
    sandbox::PropertyMap renumbered;
    for (auto& [key, value] : *notes) {
        size_t load;
        int end = 0;
        // "load N", "load N repeats", "load N left out"
        if (sscanf(key.c_str(), "load %zu%n", &load, &end) == 1 &&
            key.compare(0, end, LoadKey(load)) == 0) {
            renumbered[LoadKey(load + loads_before) + key.substr(end)] = value;
        } else {
            renumbered[key] = value;
        }
    }
    *notes = std::move(renumbered);
}

}  // namespace extprop_sim
