// Helpers shared by the object, partition, persist, special and switch-key tests.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {

inline android::init::InitExtensionPropertyImpl* Obj() {
    return android::init::InitExtensionPropertyImpl::getInstance();
}

// path -> content; content "->x" makes a link to x, a path ending in "/" a directory.
inline sandbox::DeviceTree Tree(const std::vector<std::pair<std::string, std::string>>& entries) {
    sandbox::DeviceTree tree;
    for (const auto& [path, content] : entries) {
        if (path.back() == '/') tree.Dir(path);
        if (android::base::StartsWith(content, "->")) tree.Symlink(path, content.substr(2));
        if (path.back() != '/' && content.rfind("->", 0) != 0) tree.File(path, content);
    }
    return tree;
}

// "a=1,b=" -> {a: 1, b: ""}.
inline PropertyMap Props(const std::string& text) {
    PropertyMap map;
    for (const std::string& item : android::base::Split(text, ",")) {
        const size_t eq = item.find('=');
        if (!item.empty()) map[item.substr(0, eq)] = eq == item.npos ? "" : item.substr(eq + 1);
    }
    return map;
}

inline std::unique_ptr<sandbox::ScratchRoot> Root(const sandbox::DeviceTree& tree) {
    std::string error;
    auto root = sandbox::ScratchRoot::Create(tree, &error);
    EXPECT_TRUE(root) << error;
    return root;
}

inline sandbox::Options Opts(const std::string& props,
                             std::vector<sandbox::MountSetup> mounts = {}) {
    sandbox::Options options;
    options.properties = Props(props);
    options.mounts = std::move(mounts);
    return options;
}

// Builds the object, then runs fn(ctx, i) for each case in the same sandbox as step "i", the
// store holding the properties that the case (or its first field) names.
template <typename Case, typename Fn>
sandbox::Outcome RunCases(const sandbox::DeviceTree& tree, const std::vector<Case>& cases, Fn fn) {
    return RunInDevice(tree, [&](sandbox::Context& ctx) {
        Obj();
        for (size_t i = 0; i < cases.size(); ++i) {
            hostplatform::ResetProperties();
            std::string props;
            if constexpr (std::is_same_v<Case, std::string>) props = cases[i];
            if constexpr (!std::is_same_v<Case, std::string>) props = std::get<0>(cases[i]);
            for (const auto& [name, value] : Props(props)) hostplatform::SetProperty(name, value);
            ctx.SetStep(std::to_string(i));
            fn(ctx, i);
        }
    });
}

// The batches sent while |step| ran, as "kind:name=value,...;" in order.
inline std::string Sent(const sandbox::Outcome& outcome, const std::string& step) {
    std::string text;
    for (const sandbox::Batch& b : outcome.batches) {
        if (b.step != step) continue;
        text += std::to_string(b.kind) + ":";
        for (const auto& [name, value] : b.props) text += name + "=" + value + ",";
        text += ";";
    }
    return text;
}

// Messages logged at |severity| (all, for VERBOSE) while |step| ran, joined by "|".
inline std::string Logged(const sandbox::Outcome& outcome, const std::string& step,
                          android::base::LogSeverity severity) {
    std::vector<std::string> messages;
    for (const sandbox::LogRecord& r : outcome.logs) {
        if (r.step == step && (r.severity == severity || severity == android::base::VERBOSE)) {
            messages.push_back(r.message);
        }
    }
    return android::base::Join(messages, "|");
}

// Inside the sandbox: a file's content, or "-" when it is missing.
inline std::string ContentOf(const std::string& path) {
    std::string content = "-";
    if (access(path.c_str(), F_OK) == 0) android::base::ReadFileToString(path, &content, false);
    return content;
}

// The next boot's properties: the device's own plus the last boot's persist.* ones.
inline PropertyMap NextBoot(PropertyMap device, const PropertyMap& last_boot) {
    for (const auto& [name, value] : last_boot) {
        if (android::base::StartsWith(name, "persist.")) device[name] = value;
    }
    return device;
}

}  // namespace zelva_test
