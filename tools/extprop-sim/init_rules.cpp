// SPDX-License-Identifier: Apache-2.0
#include "init_rules.h"

#include <dlfcn.h>

#include <android-base/strings.h>

namespace extprop_sim {

// The C++ names of the library's exports (utils.h), as the compiler spells them.
constexpr char kIsLegalPropertyName[] =
        "_Z19IsLegalPropertyNameRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE";
constexpr char kIsLegalPropertyValue[] =
        "_Z20IsLegalPropertyValueRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES6_";

std::optional<HostMode> ParseHostMode(const std::string& text) {
    if (text == "vendor") return HostMode::kVendor;
    if (text == "aosp") return HostMode::kAosp;
    return std::nullopt;
}

const char* HostModeName(HostMode mode) {
    return mode == HostMode::kAosp ? "aosp" : "vendor";
}

android::base::Result<LegalityChecks> LibraryLegalityChecks(void* library) {
    LegalityChecks checks;
    checks.name = reinterpret_cast<decltype(checks.name)>(dlsym(library, kIsLegalPropertyName));
    checks.value = reinterpret_cast<decltype(checks.value)>(dlsym(library, kIsLegalPropertyValue));
    if (checks.name == nullptr || checks.value == nullptr) {
        return android::base::Error() << "the library exports no IsLegalPropertyName and "
                                         "IsLegalPropertyValue";
    }
    return checks;
}

// In init's order: the name and the SELinux check before the store is
// touched, then the value and the read-only rule as the store sets it.
std::optional<std::string> InitRefusal(const InitRules& rules, const std::string& name,
                                       const std::string& value,
                                       const std::optional<std::string>& current) {
    if (!rules.legal.name(name)) return "Illegal property name";
    if (rules.contexts != nullptr) {
        const std::optional<PropertyContext> context = rules.contexts->Lookup(name);
        if (!context) return "No SELinux property context for this name";
        if (!ValueMatchesType(context->type, value)) {
            return "Property type check failed, value doesn't match expected type '" +
                   context->type + "'";
        }
    }
    if (auto legal = rules.legal.value(name, value); !legal.ok()) return legal.error().message();
    if (rules.host == HostMode::kAosp && current.has_value() &&
        android::base::StartsWith(name, "ro.")) {
        return "Read-only property was already set";
    }
    return std::nullopt;
}

}  // namespace extprop_sim
