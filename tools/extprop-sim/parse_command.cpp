// SPDX-License-Identifier: Apache-2.0
// parse FILE [--root DIR]: one property file through the library's own parser.
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
#include "option_file.h"
#include "printable.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop_sim {
namespace {

struct ParseRequest {
    std::string file;
    std::string root;
    std::string filter;
    PropertyMap props;  // --prop values, for ${name} in imports
    bool verbose = false;
};

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

void PrintLog(const sandbox::Outcome& outcome) {
    for (const sandbox::LogRecord& record : outcome.logs) {
        fprintf(stderr, "extprop-sim: %s\n", Printable(record.message).c_str());
    }
}

int Print(const PropertyMap& props) {
    for (const auto& [name, value] : props) {
        printf("%s=%s\n", Printable(name).c_str(), Printable(value).c_str());
    }
    return kExitOk;
}

int ParseInDeviceRoot(const ParseRequest& request) {
    struct stat st;
    if (stat(request.root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return Fail("device tree " + Printable(request.root) + " is not a directory");
    }
    const std::string path = DevicePath(request.file, request.root);
    sandbox::Options options;
    options.properties = request.props;
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
    PrintLog(outcome);
    if (!outcome.Completed()) return Fail("cannot parse " + path + ": " + outcome.Describe());
    if (auto error = outcome.notes.find("error"); error != outcome.notes.end()) {
        return Fail(Printable(error->second));
    }
    return Print(outcome.batches.empty() ? PropertyMap{} : outcome.batches[0].props);
}

int ParseAlone(const ParseRequest& request) {
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
            fprintf(stderr,
                    "extprop-sim: %s: import '%s' not followed: imports are device paths, "
                    "give the device tree with --root DIR\n",
                    Printable(request.file).c_str(), Printable(import.name).c_str());
        }
    }
    return Print(props);
}

}  // namespace

int ParseCommand(const Args& args) {
    ParseRequest request;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--prop" || arg == "--filter" || arg == "--root") {
            if (i + 1 == args.size() || args[i + 1].empty()) return Fail(arg + " needs a value");
            const std::string& value = args[++i];
            if (arg == "--filter") {
                request.filter = value;
                continue;
            }
            if (arg == "--root") {
                request.root = value;
                continue;
            }
            const size_t eq = value.find('=');
            if (eq == std::string::npos || eq == 0) {
                return Fail("bad --prop '" + Printable(value) + "': expected NAME=VALUE");
            }
            const std::string name = value.substr(0, eq), prop_value = value.substr(eq + 1);
            if (!hostplatform::SetProperty(name, prop_value)) {
                return Fail("bad --prop '" + Printable(value) +
                            "': a device would refuse this value");
            }
            request.props[name] = prop_value;
        } else if (arg == "-v" || arg == "--verbose") {
            request.verbose = true;
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail("unknown option '" + Printable(arg) + "' for parse");
        } else if (request.file.empty()) {
            request.file = arg;
        } else {
            return Fail("parse takes one FILE, got '" + Printable(request.file) + "' and '" +
                        Printable(arg) + "'");
        }
    }
    if (request.file.empty()) return Fail("parse needs a FILE");
    return request.root.empty() ? ParseAlone(request) : ParseInDeviceRoot(request);
}

}  // namespace extprop_sim
