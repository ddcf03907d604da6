// SPDX-License-Identifier: Apache-2.0
// The simulator's --json output: byte strings from a tree are carried exactly (text when
// they are UTF-8, text with U+FFFD beside the exact bytes in hex when not), and the boot
// document says what init did with each entry of each batch.

#include <android-base/file.h>
#include <gmock/gmock.h>

#include "json.h"
#include "simulator_run.h"

namespace zelva_test {
namespace {

using extprop_sim::Json;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;

constexpr char kReplacement[] = "\xEF\xBF\xBD";

std::string Replaced(size_t bytes) {
    std::string text;
    for (size_t i = 0; i < bytes; ++i) text += kReplacement;
    return text;
}

struct Utf8Case {
    std::string name;  // also the property's name suffix in the round trip
    std::string bytes;
    bool valid;
    std::string text;  // as the document shows it
};

const std::vector<Utf8Case>& Utf8Cases() {
    static const std::vector<Utf8Case> cases = {
            {.name = "quotes_backslash", .bytes = R"(say "hi" \ C:\dir\)", .valid = true},
            {.name = "control_bytes", .bytes = "a\x01z\x1b[2J\x7f", .valid = true},
            {.name = "two_byte", .bytes = "caf\xC3\xA9", .valid = true},
            {.name = "highest_scalar", .bytes = "\xF4\x8F\xBF\xBF", .valid = true},
            {.name = "below_surrogates", .bytes = "\xED\x9F\xBF", .valid = true},
            {.name = "latin1", .bytes = "caf\xE9", .valid = false, .text = "caf" + Replaced(1)},
            {.name = "overlong_two", .bytes = "\xC0\xAF", .valid = false, .text = Replaced(2)},
            {.name = "overlong_three",
             .bytes = "\xE0\x80\xAF",
             .valid = false,
             .text = Replaced(3)},
            {.name = "surrogate", .bytes = "\xED\xA0\x80", .valid = false, .text = Replaced(3)},
            {.name = "above_10ffff",
             .bytes = "\xF4\x90\x80\x80",
             .valid = false,
             .text = Replaced(4)},
            {.name = "lone_continuation",
             .bytes = "a\x80z",
             .valid = false,
             .text = "a" + Replaced(1) + "z"},
            {.name = "truncated", .bytes = "x\xE2\x82", .valid = false, .text = "x" + Replaced(2)},
    };
    return cases;
}

TEST(JsonBytesTest, InvalidSequencesBecomeOneReplacementPerByteAndValidOnesStay) {
    for (const Utf8Case& c : Utf8Cases()) {
        EXPECT_EQ(extprop_sim::IsValidUtf8(c.bytes), c.valid) << c.name;
        EXPECT_EQ(extprop_sim::ReplaceInvalidUtf8(c.bytes), c.valid ? c.bytes : c.text) << c.name;
    }
}

std::string Unhex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

// A byte-string field KEY of |record| as the document carries it.
struct Carried {
    std::string text;
    std::optional<std::string> bytes;  // decoded KEY_hex
    bool valid;
    bool operator==(const Carried&) const = default;
};

void PrintTo(const Carried& carried, std::ostream* os) {
    *os << "{text '" << carried.text << "', bytes "
        << (carried.bytes ? testing::PrintToString(*carried.bytes) : "null") << ", valid "
        << carried.valid << "}";
}

Carried CarriedField(const Json& record, const std::string& key) {
    const Json& hex = record.at(key + "_hex");
    return {record.at(key).get<std::string>(),
            hex.is_null() ? std::nullopt : std::optional(Unhex(hex.get<std::string>())),
            record.at(key + "_valid_utf8").get<bool>()};
}

// The exact bytes a field stands for: its hex when given, else its text.
std::string ExactBytes(const Json& record, const std::string& key) {
    const Carried carried = CarriedField(record, key);
    return carried.bytes.value_or(carried.text);
}

TEST(JsonBytesTest, ParsedValuesRoundTripExactlyThroughTheDocument) {
    TemporaryDir dir;
    std::string file;
    PropertyMap written;
    for (const Utf8Case& c : Utf8Cases()) {
        file += "test." + c.name + "=" + c.bytes + "\n";
        written["test." + c.name] = c.bytes;
    }
    // Names are bytes too: this one is Latin-1 and an overlong lead.
    file += "test.name\xE9\xC0=x\n";
    written["test.name\xE9\xC0"] = "x";
    ASSERT_TRUE(android::base::WriteStringToFile(file, std::string(dir.path) + "/build.prop"));

    const SimulatorRun run = RunSimulator({"parse", "build.prop", "--json"}, dir.path);
    ASSERT_EQ(run.status, 0) << testing::PrintToString(run);
    EXPECT_THAT(run.out, ConformsToTheSchema());
    const Json document = Json::parse(run.out);
    PropertyMap carried;
    for (const Json& property : document.at("properties")) {
        carried[ExactBytes(property, "name")] = ExactBytes(property, "value");
    }
    EXPECT_EQ(carried, written);
    for (const Utf8Case& c : Utf8Cases()) {
        auto record = std::find_if(document["properties"].begin(), document["properties"].end(),
                                   [&](const Json& p) { return p["name"] == "test." + c.name; });
        ASSERT_NE(record, document["properties"].end()) << c.name;
        const Carried expected =
                c.valid ? Carried{c.bytes, std::nullopt, true} : Carried{c.text, c.bytes, false};
        EXPECT_EQ(CarriedField(*record, "value"), expected) << c.name;
    }
}

class JsonBootTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string why;
        SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    }
};

// One batch entry as a test compares it.
struct Entry {
    std::optional<int> kind;
    std::string name;
    std::string value;
    std::string effect;
    std::optional<std::string> previous;
    bool operator==(const Entry&) const = default;
};

void PrintTo(const Entry& entry, std::ostream* os) {
    *os << "{kind " << (entry.kind ? std::to_string(*entry.kind) : "null") << ", " << entry.name
        << "=" << entry.value << ", " << entry.effect << ", was " << entry.previous.value_or("null")
        << "}";
}

std::vector<Entry> Entries(const Json& boot) {
    std::vector<Entry> entries;
    for (const Json& batch : boot.at("batches")) {
        for (const Json& entry : batch.at("entries")) {
            entries.push_back(
                    {batch["kind"].is_null() ? std::nullopt
                                             : std::optional(batch["kind"].get<int>()),
                     ExactBytes(entry, "name"), ExactBytes(entry, "value"), entry["effect"],
                     entry["previous"].is_null() ? std::nullopt
                                                 : std::optional(ExactBytes(entry, "previous"))});
        }
    }
    return entries;
}

TEST_F(JsonBootTest, CompanyHandOverShowsEachEntrysEffect) {
    const SimulatorRun run =
            RunSimulator({"boot", "--root", "alder-eu", "--props", "alder-eu.props", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ConformsToTheSchema());
    const Json boot = Json::parse(run.out);
    EXPECT_EQ(boot["schema"], "extprop-sim/1");
    // The company's non-ro. properties as kind 1 (already set by slot 4's map), its date as
    // kind 2.
    EXPECT_THAT(Entries(boot),
                Contains(Entry{1, "persist.sys.company.launcher", "classic", "same"}));
    EXPECT_THAT(Entries(boot),
                Contains(AllOf(Field(&Entry::kind, 2),
                               Field(&Entry::name, "persist.sys.zelva.company.ota.version.backup"),
                               Field(&Entry::effect, "new"))));
    // The region set replaces the brand region's locale, which slot 4's map had set.
    EXPECT_THAT(Entries(boot),
                Contains(Entry{0, "persist.sys.locale.default", "de-DE", "changed", "en-IE"}));
    // The library logs under its host's tag, as Android's logger shows it.
    ASSERT_FALSE(boot["log"].empty());
    for (const Json& record : boot["log"]) EXPECT_EQ(record["tag"], "extprop-sim") << record;
    // No machine's paths: the tree and library as this machine names them stay out.
    EXPECT_EQ(run.out.find(ExamplesDir()), std::string::npos);
    EXPECT_EQ(run.out.find(LibraryPath()), std::string::npos);
}

TEST_F(JsonBootTest, RefusedInvalidValueKeepsItsBytesAndInitsReason) {
    const std::string value = "caf\xE9\xC0\xAF";
    std::string error;
    auto tree = sandbox::ScratchRoot::Create(
            sandbox::DeviceTree()
                    .File("/my_carrier/build.prop", "persist.test.bytes=" + value + "\n")
                    .Dir("/data"),
            &error);
    ASSERT_NE(tree, nullptr) << error;
    const SimulatorRun run = RunSimulator({"boot", "--root", tree->path(), "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ConformsToTheSchema());
    const Json boot = Json::parse(run.out);
    std::vector<Json> carried;
    for (const Json& batch : boot["batches"]) {
        for (const Json& entry : batch["entries"]) {
            if (entry["name"] == "persist.test.bytes") carried.push_back(entry);
        }
    }
    ASSERT_THAT(carried, testing::Not(testing::IsEmpty()));
    for (const Json& entry : carried) {
        EXPECT_EQ(ExactBytes(entry, "value"), value);
        EXPECT_EQ(entry["value_valid_utf8"], false);
        EXPECT_EQ(entry["effect"], "refused");
        EXPECT_TRUE(entry["reason"].is_string()) << entry.dump();
        EXPECT_TRUE(entry["final"].is_null()) << entry.dump();
    }
}

}  // namespace
}  // namespace zelva_test
