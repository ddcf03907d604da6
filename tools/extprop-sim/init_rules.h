// SPDX-License-Identifier: Apache-2.0
// What init does with each property the library hands it: sets it, or
// refuses it with its reason. The same rules serve boot (in the device's sink,
// so that later operations see the store init really has) and lint.
#pragma once

#include <optional>
#include <string>

#include <android-base/result.h>

#include "property_contexts.h"

namespace extprop_sim {

// Which init receives the properties.
enum class HostMode {
    kVendor,  // the init this library is built for: it also sets late "ro." values
    kAosp,    // stock Android init: an "ro." property is set once
};

std::optional<HostMode> ParseHostMode(const std::string& text);
const char* HostModeName(HostMode mode);

// The legality checks the extension library exports, taken from the loaded
// library itself so that the rules are exactly what it ships.
struct LegalityChecks {
    bool (*name)(const std::string&) = nullptr;
    android::base::Result<void> (*value)(const std::string&, const std::string&) = nullptr;
};

// Looks the checks up in a library loaded with dlopen.
android::base::Result<LegalityChecks> LibraryLegalityChecks(void* library);

struct InitRules {
    HostMode host = HostMode::kVendor;
    LegalityChecks legal;
    const PropertyContexts* contexts = nullptr;  // null: the context check is off
};

// Why init refuses to set |name| to |value| while it holds |current| for the
// name; nullopt when it sets it.
std::optional<std::string> InitRefusal(const InitRules& rules, const std::string& name,
                                       const std::string& value,
                                       const std::optional<std::string>& current);

}  // namespace extprop_sim
