// SPDX-License-Identifier: Apache-2.0
// What init does with each property the library hands it: the library's own
// legality checks, the read-only rule of each host, and the SELinux property
// contexts with their types.

#include <dlfcn.h>

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "init_rules.h"
#include "property_contexts.h"
#include "test_support.h"

namespace extprop_sim {

bool operator==(const PropertyContext& a, const PropertyContext& b) {
    return a.context == b.context && a.type == b.type;
}

void PrintTo(const PropertyContext& context, std::ostream* os) {
    *os << "{" << context.context << ", type '" << context.type << "'}";
}

namespace {

using testing::Optional;

// The checks the built library exports, as the simulator takes them.
LegalityChecks LibraryChecks() {
    void* library = dlopen(zelva_test::LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(library, nullptr) << dlerror();
    auto checks = LibraryLegalityChecks(library);
    EXPECT_TRUE(checks.ok()) << checks.error();
    return checks.ok() ? *checks : LegalityChecks{};
}

std::unique_ptr<PropertyContexts> Contexts(const std::string& content) {
    TemporaryDir scratch;
    auto contexts = PropertyContexts::Load({{"test_property_contexts", content}}, scratch.path);
    EXPECT_TRUE(contexts.ok()) << contexts.error();
    return contexts.ok() ? std::move(*contexts) : nullptr;
}

struct RuleCase {
    const char* behaviour;
    HostMode host;
    std::string name;
    std::string value;
    std::optional<std::string> current = std::nullopt;  // what init holds for the name
    std::optional<std::string> refusal = std::nullopt;
};

TEST(InitRulesTest, NamesValuesAndReadOnlyPropertiesUnderEachHost) {
    const std::string v91(91, 'v'), v92(92, 'v');
    constexpr HostMode kVendor = HostMode::kVendor, kAosp = HostMode::kAosp;
    // clang-format off
    const RuleCase cases[] = {
        {.behaviour = "a legal name is set", .host = kVendor, .name = "persist.sys.a", .value = "on"},
        {.behaviour = "a name with a blank is illegal", .host = kVendor, .name = "persist.sys.a b",
         .value = "on", .refusal = "Illegal property name"},
        {.behaviour = "91 bytes fit outside ro.", .host = kVendor, .name = "persist.sys.a", .value = v91},
        {.behaviour = "92 bytes are too long outside ro.", .host = kVendor, .name = "persist.sys.a",
         .value = v92, .refusal = "Property value too long"},
        {.behaviour = "ro. values have no length limit", .host = kAosp, .name = "ro.a", .value = v92},
        {.behaviour = "the vendor init sets an ro. property again", .host = kVendor, .name = "ro.a",
         .value = "B", .current = "A"},
        {.behaviour = "stock init refuses an ro. property already set", .host = kAosp, .name = "ro.a",
         .value = "B", .current = "A", .refusal = "Read-only property was already set"},
        {.behaviour = "stock init sets an ro. property the first time", .host = kAosp, .name = "ro.a",
         .value = "B"},
        {.behaviour = "stock init sets other properties again", .host = kAosp, .name = "persist.sys.a",
         .value = "B", .current = "A"},
    };
    // clang-format on
    const LegalityChecks checks = LibraryChecks();
    for (const RuleCase& c : cases) {
        const InitRules rules{.host = c.host, .legal = checks};
        EXPECT_EQ(InitRefusal(rules, c.name, c.value, c.current), c.refusal) << c.behaviour;
    }
}

TEST(PropertyContextsTest, ExactLinesMatchOnlyTheirNameAndWinOverPrefixes) {
    auto contexts = Contexts(
            "# comment\n"
            "ro.zelva.          u:object_r:zelva_prop:s0\n"
            "ro.zelva.nightjar  u:object_r:nightjar_prop:s0  exact  bool\n"
            "ro.zelva.cust.     u:object_r:cust_prop:s0      prefix string\n");
    ASSERT_NE(contexts, nullptr);
    EXPECT_THAT(contexts->Lookup("ro.zelva.nightjar"),
                Optional(PropertyContext{"u:object_r:nightjar_prop:s0", "bool"}));
    EXPECT_THAT(contexts->Lookup("ro.zelva.nightjar.x"),
                Optional(PropertyContext{"u:object_r:zelva_prop:s0", ""}));
    EXPECT_THAT(contexts->Lookup("ro.zelva.cust.region"),
                Optional(PropertyContext{"u:object_r:cust_prop:s0", "string"}));
    EXPECT_EQ(contexts->Lookup("persist.sys.x"), std::nullopt);
}

TEST(InitRulesTest, APropertyWithoutContextIsRefused) {
    auto contexts = Contexts("persist.sys. u:object_r:system_prop:s0\n");
    ASSERT_NE(contexts, nullptr);
    const InitRules rules{.legal = LibraryChecks(), .contexts = contexts.get()};
    EXPECT_EQ(InitRefusal(rules, "persist.sys.a", "1", std::nullopt), std::nullopt);
    EXPECT_EQ(InitRefusal(rules, "persist.vendor.a", "1", std::nullopt),
              "No SELinux property context for this name");
}

struct TypeCase {
    std::string type;
    std::string good;
    std::optional<std::string> bad = std::nullopt;
};

TEST(InitRulesTest, TypedContextsTakeOnlyValuesOfTheirType) {
    const TypeCase cases[] = {
            {.type = "bool", .good = "false", .bad = "yes"},
            {.type = "int", .good = "-42", .bad = "42x"},
            {.type = "uint", .good = "42", .bad = "-1"},
            {.type = "double", .good = "2.5", .bad = "two"},
            {.type = "size", .good = "512k", .bad = "512q"},
            {.type = "enum aurora boreal", .good = "boreal", .bad = "austral"},
            {.type = "string", .good = "any text at all"},
    };
    std::string lines;
    for (size_t i = 0; i < std::size(cases); ++i) {
        lines += "t." + std::to_string(i) + " u:object_r:t_prop:s0 exact " + cases[i].type + "\n";
    }
    auto contexts = Contexts(lines);
    ASSERT_NE(contexts, nullptr);
    const InitRules rules{.legal = LibraryChecks(), .contexts = contexts.get()};
    for (size_t i = 0; i < std::size(cases); ++i) {
        const std::string name = "t." + std::to_string(i);
        EXPECT_EQ(InitRefusal(rules, name, cases[i].good, std::nullopt), std::nullopt)
                << cases[i].type;
        if (!cases[i].bad) continue;
        EXPECT_EQ(InitRefusal(rules, name, *cases[i].bad, std::nullopt),
                  "Property type check failed, value doesn't match expected type '" +
                          cases[i].type + "'");
    }
}

}  // namespace
}  // namespace extprop_sim
