// SPDX-License-Identifier: Apache-2.0
// parse FILE: one property file through the library's own parser.

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include <android-base/logging.h>

#include "commands.h"
#include "hostplatform/property_store.h"
#include "utils.h"

namespace extprop_sim {

int ParseCommand(const Args& args) {
    std::string file, filter;
    bool verbose = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--prop" || arg == "--filter") {
            if (i + 1 == args.size()) return Fail(arg + " needs a value");
            const std::string& value = args[++i];
            if (arg == "--filter") {
                filter = value;
                continue;
            }
            const size_t eq = value.find('=');
            if (eq == std::string::npos || eq == 0) {
                return Fail("bad --prop '" + value + "': expected NAME=VALUE");
            }
            if (!hostplatform::SetProperty(value.substr(0, eq), value.substr(eq + 1))) {
                return Fail("bad --prop '" + value + "': a device would refuse this value");
            }
        } else if (arg == "-v" || arg == "--verbose") {
            verbose = true;
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail("unknown option '" + arg + "' for parse");
        } else if (file.empty()) {
            file = arg;
        } else {
            return Fail("parse takes one FILE, got '" + file + "' and '" + arg + "'");
        }
    }
    if (file.empty()) return Fail("parse needs a FILE");
    if (access(file.c_str(), R_OK) != 0) {
        return Fail("cannot read " + file + ": " + strerror(errno));
    }

    android::base::SetMinimumLogSeverity(verbose ? android::base::VERBOSE : android::base::INFO);
    PropertyMap props;
    if (!load_properties_from_file_without_se(file.c_str(),
                                              filter.empty() ? nullptr : filter.c_str(), &props)) {
        return Fail("cannot load " + file);
    }
    for (const auto& [name, value] : props) printf("%s=%s\n", name.c_str(), value.c_str());
    return kExitOk;
}

}  // namespace extprop_sim
