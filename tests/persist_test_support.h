// Helpers shared by the object, partition, persist, special and switch-key tests.
#pragma once

#include <android-base/file.h>  // and, through unique_fd.h, <unistd.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {

// Rows of cases; the first field of a row names its properties.
using Table = std::vector<std::vector<std::string>>;

inline auto* Obj() { return android::init::InitExtensionPropertyImpl::getInstance(); }

// "a=1,b=" -> {a: 1, b: ""}.
inline PropertyMap Props(const std::string& text) {
    PropertyMap map;
    for (const std::string& s : android::base::Split(text, ",")) {
        if (size_t eq = s.find('='); eq != s.npos) map[s.substr(0, eq)] = s.substr(eq + 1);
    }
    return map;
}

// Inside the sandbox: content "-" removes |path|, "/" makes it a directory, else a file.
inline void Put(const std::string& path, const std::string& content) {
    if (unlink(path.c_str()) != 0) rmdir(path.c_str());
    if (content == "/") mkdir(path.c_str(), 0755);
    else if (content != "-") android::base::WriteStringToFile(content, path);
}

// Builds the object, then runs fn(ctx, i) for each case as step "i" in one sandbox, the
// store holding the case's properties; what fn returns becomes note "i".
template <typename Fn>
sandbox::Outcome RunCases(const sandbox::DeviceTree& tree, const Table& cases, Fn fn) {
    return RunInDevice(tree, [&](sandbox::Context& ctx) {
        Obj();
        for (size_t i = 0; i < cases.size(); ++i) {
            hostplatform::ResetProperties();
            for (const auto& [n, v] : Props(cases[i][0])) hostplatform::SetProperty(n, v);
            ctx.SetStep(std::to_string(i));
            ctx.Note(std::to_string(i), fn(ctx, i));
        }
    });
}

// What |step| produced: its note, each batch as "[kind name=value ...]", then each message
// logged at |severity| (at any for 0, VERBOSE) as "|message".
inline std::string Seen(const sandbox::Outcome& o, const std::string& step, int severity = -1) {
    std::string text = o.notes.count(step) ? o.notes.at(step) : "";
    for (const sandbox::Batch& b : o.batches) {
        if (b.step != step) continue;
        text += "[" + std::to_string(b.kind);
        for (const auto& [name, value] : b.props) text += " " + name + "=" + value;
        text += "]";
    }
    for (const sandbox::LogRecord& r : o.logs)
        if (r.step == step && (r.severity == severity || severity == 0)) text += "|" + r.message;
    return text;
}

// Runs the cases (RunCases) and expects Seen(step "i") to be the last field of case i.
template <typename Fn>
void ExpectCases(const sandbox::DeviceTree& tree, const Table& cases, int severity, Fn fn) {
    sandbox::Outcome outcome = RunCases(tree, cases, fn);
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(Seen(outcome, std::to_string(i), severity), cases[i].back()) << "case " << i;
}

}  // namespace zelva_test
