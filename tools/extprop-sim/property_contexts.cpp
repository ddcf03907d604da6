// SPDX-License-Identifier: Apache-2.0
#include "property_contexts.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include <android-base/file.h>
#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace extprop_sim {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

const std::vector<std::string> kStandardPropertyContexts = {
        "/system/etc/selinux/plat_property_contexts",
        "/system_ext/etc/selinux/system_ext_property_contexts",
        "/product/etc/selinux/product_property_contexts",
        "/vendor/etc/selinux/vendor_property_contexts",
        "/odm/etc/selinux/odm_property_contexts",
};

namespace {

// From Android's <selinux/label.h>; the functions are looked up by name, so
// nothing of that library is linked into the simulator.
constexpr unsigned kSelabelCtxAndroidProp = 4;
constexpr int kSelabelOptPath = 3;
struct SelinuxOpt {
    int type;
    const char* value;
};

// Parses property_contexts lines: "NAME CONTEXT [exact|prefix] [TYPE ...]".
template <typename Line>
Result<void> ParseLines(const ContextsFile& file, std::vector<Line>* lines) {
    std::istringstream in(file.content);
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        std::vector<std::string> words;
        std::istringstream split(text);
        for (std::string word; split >> word;) words.push_back(word);
        if (words.empty() || words[0][0] == '#') continue;
        if (words.size() < 2) {
            return Error() << file.source << ":" << number << ": a property without a context";
        }
        Line line{words[0], words[1], false, ""};
        if (words.size() > 2) {
            if (words[2] != "exact" && words[2] != "prefix") {
                return Error() << file.source << ":" << number << ": '" << words[2]
                               << "' is neither exact nor prefix";
            }
            line.exact = words[2] == "exact";
            std::vector<std::string> type(words.begin() + 3, words.end());
            line.type = android::base::Join(type, ' ');
        }
        lines->push_back(std::move(line));
    }
    return {};
}

// The library's handle, or why it can't be loaded.
void* selinux_library = nullptr;
std::string selinux_error;

}  // namespace

android::base::Result<void> LoadAndroidSelinux() {
    if (selinux_library == nullptr && selinux_error.empty()) {
        // Privately: its selinux_android_restorecon must not become the one
        // the extension library binds to.
        selinux_library = dlopen(ZELVA_ANDROID_SELINUX, RTLD_NOW | RTLD_LOCAL);
        if (selinux_library == nullptr) selinux_error = dlerror();
    }
    if (selinux_library == nullptr) return Error() << "cannot load libselinux: " << selinux_error;
    return {};
}

struct PropertyContexts::Backend {
    void* library = nullptr;
    void* handle = nullptr;
    int (*lookup)(void*, char**, const char*, int) = nullptr;
    void (*close)(void*) = nullptr;

    ~Backend() {
        if (handle != nullptr) close(handle);
        // The library stays loaded: unloading it buys nothing in a short run.
    }
};

Result<std::unique_ptr<PropertyContexts>> PropertyContexts::Load(
        const std::vector<ContextsFile>& files, const std::string& scratch_dir) {
    std::unique_ptr<PropertyContexts> contexts(new PropertyContexts);
    for (const ContextsFile& file : files) {
        if (auto parsed = ParseLines(file, &contexts->lines_); !parsed.ok()) return parsed.error();
        contexts->sources_.push_back(file.source);
    }

    auto backend = std::make_unique<Backend>();
    if (auto loaded = LoadAndroidSelinux(); !loaded.ok()) return loaded.error();
    backend->library = selinux_library;
    auto open = reinterpret_cast<void* (*)(unsigned, const SelinuxOpt*, unsigned)>(
            dlsym(backend->library, "selabel_open"));
    backend->lookup = reinterpret_cast<int (*)(void*, char**, const char*, int)>(
            dlsym(backend->library, "selabel_lookup"));
    backend->close = reinterpret_cast<void (*)(void*)>(dlsym(backend->library, "selabel_close"));
    if (open == nullptr || backend->lookup == nullptr || backend->close == nullptr) {
        return Error() << ZELVA_ANDROID_SELINUX << " lacks the selabel functions";
    }

    // libselinux reads files by path: the contents go to a private directory.
    std::string dir = scratch_dir + "/.extprop-sim-contexts.XXXXXX";
    if (mkdtemp(dir.data()) == nullptr) return ErrnoError() << "cannot create " << dir;
    std::vector<std::string> paths;
    for (size_t i = 0; i < files.size(); ++i) {
        paths.push_back(dir + "/" + std::to_string(i));
        if (!android::base::WriteStringToFile(files[i].content, paths.back())) {
            paths.pop_back();
            break;
        }
    }
    std::vector<SelinuxOpt> options;
    for (const std::string& path : paths) options.push_back({kSelabelOptPath, path.c_str()});
    if (paths.size() == files.size()) {
        backend->handle = open(kSelabelCtxAndroidProp, options.data(), options.size());
    }
    const int open_errno = errno;
    for (const std::string& path : paths) unlink(path.c_str());
    rmdir(dir.c_str());
    if (paths.size() != files.size()) return Error() << "cannot write the contexts under " << dir;
    if (backend->handle == nullptr) {
        return Error() << "libselinux refused the property contexts: " << strerror(open_errno);
    }
    contexts->backend_ = std::move(backend);
    return contexts;
}

PropertyContexts::~PropertyContexts() = default;

std::optional<PropertyContext> PropertyContexts::Lookup(const std::string& name) const {
    char* found = nullptr;
    if (backend_->lookup(backend_->handle, &found, name.c_str(), 0) != 0) return std::nullopt;
    free(found);
    // libselinux of this release reads every line as a prefix; init matches
    // "exact" lines only to their own name, and prefers them to any prefix.
    const Line* best = nullptr;
    for (const Line& line : lines_) {
        const bool matches =
                line.exact ? line.name == name
                           : line.name == "*" || android::base::StartsWith(name, line.name);
        if (!matches) continue;
        if (best == nullptr || (line.exact && !best->exact) ||
            (line.exact == best->exact && line.name.size() > best->name.size())) {
            best = &line;
        }
    }
    if (best == nullptr) return std::nullopt;
    return PropertyContext{best->context, best->type};
}

bool ValueMatchesType(const std::string& type, const std::string& value) {
    if (type.empty() || type == "string") return true;
    if (type == "bool") return value == "true" || value == "false" || value == "1" || value == "0";
    if (type == "int") {
        int64_t parsed;
        return android::base::ParseInt(value, &parsed);
    }
    if (type == "uint") {
        uint64_t parsed;
        return android::base::ParseUint(value, &parsed);
    }
    if (type == "double") {
        double parsed;
        return android::base::ParseDouble(value, &parsed);
    }
    if (type == "size") {
        uint64_t parsed;
        return android::base::ParseByteCount(value, &parsed);
    }
    if (android::base::StartsWith(type, "enum ")) {
        for (const std::string& allowed : android::base::Split(type.substr(5), " ")) {
            if (allowed == value) return true;
        }
        return false;
    }
    return false;  // a type init doesn't know lets nothing through
}

}  // namespace extprop_sim
