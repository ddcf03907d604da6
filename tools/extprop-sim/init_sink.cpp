// SPDX-License-Identifier: Apache-2.0
#include "init_sink.h"

#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include <android-base/strings.h>

#include "hostplatform/property_store.h"
#include "option_file.h"

namespace extprop_sim {
namespace {

constexpr char kContextsNote[] = "init: contexts";
constexpr char kContextsErrorNote[] = "init: contexts error";
constexpr char kContextOfNote[] = "init: context of";
constexpr char kRefusalNote[] = "init: refused ";  // + batch number + ' ' + name

}  // namespace

android::base::Result<std::unique_ptr<PropertyContexts>> LoadDeviceContexts(
        const std::vector<ContextsFile>& given, bool find_in_tree) {
    std::vector<ContextsFile> files = given;
    if (find_in_tree) {
        for (const std::string& path : kStandardPropertyContexts) {
            if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) continue;
            auto content = ReadOptionFile(path);
            if (!content.ok()) return content.error();
            files.push_back({path, *content});
        }
    }
    if (files.empty()) return nullptr;
    // The device's root is this process's scratch copy: libselinux's copies
    // of the files live there for a moment.
    return PropertyContexts::Load(files, "/");
}

void UseUtf8Locale() {
    if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) setlocale(LC_CTYPE, "");
}

InitSink::InitSink(sandbox::Context& device, const InitSetup& setup)
    : device_(device) {
    rules_.host = setup.host;
    rules_.legal = setup.legal;
    auto contexts = LoadDeviceContexts(setup.contexts_files, setup.find_tree_contexts);
    if (!contexts.ok()) {
        device.Note(kContextsErrorNote, contexts.error().message());
        ready_ = false;
        return;
    }
    contexts_ = std::move(*contexts);
    rules_.contexts = contexts_.get();
    device.Note(kContextsNote,
                contexts_ ? android::base::Join(contexts_->sources(), ", ") : std::string());
    if (!setup.context_of.empty() && contexts_) {
        const auto context = contexts_->Lookup(setup.context_of);
        device.Note(kContextOfNote, !context ? "none"
                                    : context->type.empty()
                                            ? context->context
                                            : context->context + " (type " + context->type + ")");
    }
}

sandbox::Sink InitSink::sink() {
    return [this](int kind, sandbox::PropertyMap props) { Apply(kind, std::move(props)); };
}

void InitSink::SetHost(HostMode host) {
    std::lock_guard<std::mutex> guard(lock_);
    rules_.host = host;
}

void InitSink::Apply(int kind, sandbox::PropertyMap props) {
    std::lock_guard<std::mutex> guard(lock_);
    const size_t batch = batches_++;
    device_.Record(kind, props);
    // Each entry moves into the store as init takes it: a batch can hold a
    // whole large build.prop, which the batch and the store needn't both hold.
    // Its refusals go back in one record.
    sandbox::PropertyMap refusals;
    while (!props.empty()) {
        auto entry = props.extract(props.begin());
        const std::string& name = entry.key();
        // Only stock init's read-only rule looks at what the store holds.
        const auto refusal = InitRefusal(
                rules_, name, entry.mapped(),
                rules_.host == HostMode::kAosp ? hostplatform::GetProperty(name) : std::nullopt);
        if (refusal) {
            refusals.emplace_hint(refusals.end(),
                                  kRefusalNote + std::to_string(batch) + " " + name, *refusal);
        } else {
            hostplatform::SetProperty(std::move(entry.key()), std::move(entry.mapped()));
        }
    }
    device_.Notes(refusals);
}

std::optional<std::string> RefusalOf(const sandbox::Outcome& outcome, size_t batch,
                                     const std::string& name) {
    auto it = outcome.notes.find(kRefusalNote + std::to_string(batch) + " " + name);
    if (it == outcome.notes.end()) return std::nullopt;
    return it->second;
}

void RenumberRefusals(sandbox::PropertyMap* notes, size_t batches_before) {
    sandbox::PropertyMap renumbered;
    for (auto& [key, value] : *notes) {
        size_t batch;
        char* end = nullptr;
        if (key.rfind(kRefusalNote, 0) == 0 &&
            (batch = strtoul(key.c_str() + strlen(kRefusalNote), &end, 10), *end == ' ')) {
            renumbered[kRefusalNote + std::to_string(batch + batches_before) + end] = value;
        } else {
            renumbered[key] = value;
        }
    }
    *notes = std::move(renumbered);
}

std::map<std::string_view, std::string_view> RefusalsOf(const sandbox::Outcome& outcome,
                                                         size_t batch) {
    const std::string prefix = kRefusalNote + std::to_string(batch) + " ";
    std::map<std::string_view, std::string_view> refusals;
    for (auto it = outcome.notes.lower_bound(prefix);
         it != outcome.notes.end() && android::base::StartsWith(it->first, prefix); ++it) {
        refusals.emplace(std::string_view(it->first).substr(prefix.size()), it->second);
    }
    return refusals;
}

std::string ContextsInUse(const sandbox::Outcome& outcome) {
    auto it = outcome.notes.find(kContextsNote);
    return it == outcome.notes.end() || it->second.empty()
                   ? "off (no property_contexts given or found in the tree)"
                   : it->second;
}

std::optional<std::string> ContextOfNamed(const sandbox::Outcome& outcome) {
    auto it = outcome.notes.find(kContextOfNote);
    if (it == outcome.notes.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> ContextsError(const sandbox::Outcome& outcome) {
    auto it = outcome.notes.find(kContextsErrorNote);
    if (it == outcome.notes.end()) return std::nullopt;
    return it->second;
}

}  // namespace extprop_sim
