// SPDX-License-Identifier: Apache-2.0
// parse FILE [--root DIR] [--json]: one property file through the library's own parser.
//
// Imports name device paths. With --root the file is read, and its imports
// followed, inside that device root; without it nothing beyond FILE is read:
// every import is reported as not followed, never looked up on this machine.

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "commands.h"
#include "hostplatform/property_store.h"
#include "import_lines.h"
#include "json.h"
#include "option_file.h"
#include "printable.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop_sim {
namespace {

// The device path of |file| in the tree at |root|: its path below the root
// when it lies there (as given or with the root's links resolved), else
// |file| itself taken as a device path.
std::string DevicePath(const std::string& file, const std::string& root) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::path path = fs::absolute(file, ec).lexically_normal();
    for (const fs::path& base :
         {fs::absolute(root, ec).lexically_normal(), fs::weakly_canonical(root, ec)}) {
        const fs::path below = path.lexically_relative(base);
        if (!below.empty() && *below.begin() != "..") return "/" + below.string();
    }
    return file[0] == '/' ? file : "/" + file;
}

// What a parse found: the text goes out as it happens, the JSON document
// at the end.
struct ParseOutput {
    bool json;
    std::vector<sandbox::LogRecord> log;
    std::vector<std::string> imports_not_followed;

    void Log(const sandbox::LogRecord& record) {
        if (json) {
            log.push_back(record);
        } else {
            fprintf(stderr, "extprop-sim: %s\n", Printable(record.message).c_str());
        }
    }

    int Print(const PropertyMap& props) const {
        if (json) {
            Json document = JsonDocument("parse");
            document["properties"] = PropertyList(props);
            document["imports_not_followed"] = BytesList(imports_not_followed);
            document["log"] = Json::array();
            for (const auto& record : log) document["log"].push_back(LogRecordJson(record, {}));
            fputs(JsonText(document).c_str(), stdout);
            return kExitOk;
        }
        for (const auto& [name, value] : props) {
            printf("%s=%s\n", Printable(name).c_str(), Printable(value).c_str());
        }
        return kExitOk;
    }
};

int ParseInDeviceRoot(const ParseArgs& request, const PropertyMap& seeded) {
    ParseOutput output{request.json, {}, {}};
    struct stat st;
    if (stat(request.root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return Fail("device tree " + Printable(request.root) + " is not a directory");
    }
    const std::string path = DevicePath(request.file, request.root);
    sandbox::Options options;
    options.properties = seeded;
    options.apply_batches = false;
    options.capture_tree = false;
    options.min_severity = request.verbose ? android::base::VERBOSE : android::base::INFO;
    const sandbox::Outcome outcome = sandbox::Run(
            sandbox::DeviceTree().CopyFrom(request.root), options, [&](sandbox::Context& device) {
                struct stat file_st;
                if (stat(path.c_str(), &file_st) == 0 && S_ISREG(file_st.st_mode) &&
                    static_cast<uintmax_t>(file_st.st_size) > kOptionFileLimit) {
                    return device.Note("error", path + " is larger than " +
                                                        std::to_string(kOptionFileLimit >> 20) +
                                                        " MiB");
                }
                PropertyMap props;
                const char* filter = request.filter.empty() ? nullptr : request.filter.c_str();
                if (!load_properties_from_file_without_se(path.c_str(), filter, &props)) {
                    return device.Note("error", "cannot load " + path + " in " + request.root);
                }
                device.sink()(0, std::move(props));
            });
    for (const sandbox::LogRecord& record : outcome.logs) output.Log(record);
    if (!outcome.Completed()) return Fail("cannot parse " + path + ": " + outcome.Describe());
    if (auto error = outcome.notes.find("error"); error != outcome.notes.end()) {
        return Fail(Printable(error->second));
    }
    return output.Print(outcome.batches.empty() ? PropertyMap{} : outcome.batches[0].props);
}

int ParseAlone(const ParseArgs& request) {
    ParseOutput output{request.json, {}, {}};
    auto content = ReadOptionFile(request.file);
    if (!content.ok()) return Fail(Printable(content.error().message()));
    // The parser reads a file by name: a private copy, so that FILE is read
    // once, whatever it is (a FIFO, /dev/stdin). "*" keeps every name and
    // follows no import; a filter of the user's follows none either.
    TemporaryFile copy;
    if (!android::base::WriteStringToFd(*content, copy.fd)) {
        return Fail(std::string("cannot copy ") + Printable(request.file) + ": " + strerror(errno));
    }
    android::base::SetMinimumLogSeverity(request.verbose ? android::base::VERBOSE
                                                         : android::base::INFO);
    if (request.json) {
        android::base::SetLogger([&output](android::base::LogId,
                                           android::base::LogSeverity severity, const char* tag,
                                           const char* file, unsigned line, const char* message) {
            output.Log({"", severity, file != nullptr ? file : "", line, message,
                        tag != nullptr ? tag : ""});
        });
    }
    PropertyMap props;
    const bool follows = request.filter.empty();
    if (!load_properties_from_file_without_se(copy.path, follows ? "*" : request.filter.c_str(),
                                              &props)) {
        return Fail("cannot load " + Printable(request.file));
    }
    if (follows) {
        for (auto it = props.begin(); it != props.end();) {
            it = android::base::StartsWith(it->first, "import ") ? props.erase(it) : std::next(it);
        }
        for (const Import& import : ImportLines(*content)) {
            output.imports_not_followed.push_back(import.name);
            if (request.json) continue;
            fprintf(stderr,
                    "extprop-sim: %s: import '%s' not followed: imports are device paths, "
                    "give the device tree with --root DIR\n",
                    Printable(request.file).c_str(), Printable(import.name).c_str());
        }
    }
    return output.Print(props);
}

}  // namespace

int ParseCommand(const ParseArgs& args) {
    PropertyMap seeded;
    for (const std::string& prop : args.props) {
        const size_t eq = prop.find('=');
        if (eq == std::string::npos || eq == 0) {
            return Fail("bad --prop '" + Printable(prop) + "': expected NAME=VALUE");
        }
        const std::string name = prop.substr(0, eq), value = prop.substr(eq + 1);
        if (!hostplatform::SetProperty(name, value)) {
            return Fail("bad --prop '" + Printable(prop) + "': a device would refuse this value");
        }
        seeded[name] = value;
    }
    if (args.file.empty()) return Fail("parse needs a FILE");
    return args.root.empty() ? ParseAlone(args) : ParseInDeviceRoot(args, seeded);
}

}  // namespace extprop_sim
