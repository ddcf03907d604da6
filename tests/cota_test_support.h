// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the SIM-switch, media path and COTA tests.
#pragma once

#include <sstream>

#include "ZelvaExtensionProperty.h"
#include "test_support.h"

namespace zelva_test {

using Lines = std::vector<std::string>;

// Every mount() of this process since the last call, one "source>target 0xFLAGS" a line:
// cota_test.cpp wraps mount() to record each call before making it, so that the flags
// asked for show even where the kernel ignores some (MS_RDONLY in a first bind).
std::string TakeMountCalls();
// Runs |fn| with the properties |props| ("a=1 b=2") set in a device laid out from |tree|, a
// list of "path=content" (a path ending in "/" is a directory, ";" in a content a line
// break); the mount calls made during |fn| come back as the note "mounts".
sandbox::Outcome RunDevice(const std::string& tree, const std::string& props,
                           const sandbox::Function& fn);

// "a=1 b=2" as a map (a name alone maps to ""; a later value replaces an earlier one).
inline PropertyMap P(const std::string& text) {
    PropertyMap map;
    std::istringstream in(text);
    for (std::string item; in >> item;) {
        const size_t eq = item.find('=');
        map[item.substr(0, eq)] = eq == std::string::npos ? "" : item.substr(eq + 1);
    }
    return map;
}

// The batches as "{a=1 b=2} {c=3}"; a kind other than 0 shows as "{kind2 ...}".
inline std::string Sent(const sandbox::Outcome& o) {
    std::string out;
    for (const sandbox::Batch& b : o.batches) {
        std::string batch = b.kind ? "kind" + std::to_string(b.kind) : "";
        for (const auto& [k, v] : b.props) batch += (batch.empty() ? "" : " ") + k + "=" + v;
        out += (out.empty() ? "{" : " {") + batch + "}";
    }
    return out;
}

// With kSeed set, loadSpecialProperties sends kSpecial.
inline const std::string kSeed = "ro.vendor.zelva.version_suffix=T ro.build.display.id=QX100_11";
inline const std::string kSpecial = "{ro.vendor.zelva.exp.version=QX100T_11}";
constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

inline auto* Impl() { return android::init::InitExtensionPropertyImpl::getInstance(); }

}  // namespace zelva_test
