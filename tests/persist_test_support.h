// Helpers shared by the object, partition, persist, special and switch-key tests.
#pragma once

#include <android-base/file.h>  // and with it <sys/stat.h> and <unistd.h>
#include <android-base/strings.h>

#include "ZelvaExtensionProperty.h"
#include "expectations.h"
#include "hostplatform/property_store.h"
#include "test_support.h"

namespace zelva_test {

// Rows of cases; the first field of a row names its properties.
using Table = std::vector<std::vector<std::string>>;

inline auto* Obj() {
    return android::init::InitExtensionPropertyImpl::getInstance();
}

// Inside the device: hands |map| back to the test under |name|, so that a map the library
// filled (rather than sent) can be compared there as a value.
inline void ShowMap(sandbox::Context& ctx, const std::string& name, const PropertyMap& map) {
    ctx.SetStep("map " + name);
    ctx.sink()(kOrdinary, map);
}
// The map shown under |name|; nullopt when the device never showed it.
inline std::optional<PropertyMap> ShownMap(const sandbox::Outcome& outcome,
                                           const std::string& name) {
    const std::vector<SentBatch> shown = SentBatches(outcome, "map " + name);
    if (shown.empty()) return std::nullopt;
    return shown.front().props;
}

// Runs |run| for each row in one device, as the step named row.name, the store holding only
// row.properties.
template <typename Row>
sandbox::Outcome RunRows(const sandbox::DeviceTree& tree, const std::vector<Row>& rows,
                         const std::function<void(sandbox::Context&, const Row&)>& run) {
    return RunInDevice(tree, [&](sandbox::Context& ctx) {
        for (const Row& row : rows) {
            hostplatform::ResetProperties();
            for (const auto& [name, value] : row.properties) hostplatform::SetProperty(name, value);
            ctx.SetStep(row.name);
            run(ctx, row);
        }
    });
}

// Inside the device: puts at |path| a node that exists but can't be opened (a socket).
inline void MakeUnopenable(const std::string& path) {
    unlink(path.c_str());
    mknod(path.c_str(), S_IFSOCK | 0600, 0);
}

// "a=1,b=" -> {a: 1, b: ""}.
inline PropertyMap Props(const std::string& text) {
    PropertyMap map;
    for (const std::string& s : android::base::Split(text, ","))
        if (size_t eq = s.find('='); eq != s.npos) map[s.substr(0, eq)] = s.substr(eq + 1);
    return map;
}

// Inside the sandbox: content "-" removes |path|, "<socket>" makes it a socket (it exists, but
// can't be opened), else it is written as a file.
inline void Put(const std::string& path, const std::string& content) {
    unlink(path.c_str());
    if (content == "<socket>")
        mknod(path.c_str(), S_IFSOCK | 0600, 0);
    else if (content != "-")
        android::base::WriteStringToFile(content, path);
}

// Runs fn(ctx, i) for each case as step "i" in one sandbox, the store holding the case's
// properties; what fn returns becomes note "i". The object is fn's to build.
using CaseFn = std::function<std::string(sandbox::Context& ctx, size_t i)>;
inline sandbox::Outcome RunCases(const sandbox::DeviceTree& tree, const Table& cases, CaseFn fn) {
    return RunInDevice(tree, [&](sandbox::Context& ctx) {
        for (size_t i = 0; i < cases.size(); ++i) {
            hostplatform::ResetProperties();
            for (const auto& [n, v] : Props(cases[i][0])) hostplatform::SetProperty(n, v);
            ctx.SetStep(std::to_string(i));
            ctx.Note(std::to_string(i), fn(ctx, i));
        }
    });
}

// What |step| produced: its note, each batch as "[kind name=value ...]", then each message
// logged at |sev| (at any for 0, VERBOSE) as "|message", but none of the property file parser's.
inline std::string Seen(const sandbox::Outcome& o, const std::string& step, int sev = -1) {
    std::string text = o.notes.count(step) ? o.notes.at(step) : "";
    for (const sandbox::Batch& b : o.batches) {
        std::string batch = "[" + std::to_string(b.kind);
        for (const auto& [name, value] : b.props) batch += " " + name + "=" + value;
        if (b.step == step) text += batch + "]";
    }
    for (const sandbox::LogRecord& r : o.logs)
        if (r.step == step && (r.severity == sev || !sev) && r.file != "utils.cpp")
            text += "|" + r.message;
    return text;
}

// Runs the cases (RunCases) and expects Seen(step "i") to be the last field of case i.
inline void ExpectCases(const sandbox::DeviceTree& tree, const Table& cases, int sev, CaseFn fn) {
    sandbox::Outcome outcome = RunCases(tree, cases, fn);
    ASSERT_DEVICE_RAN(outcome);
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(Seen(outcome, std::to_string(i), sev), cases[i].back()) << "case " << i;
}

}  // namespace zelva_test
