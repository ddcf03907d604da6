// SPDX-License-Identifier: Apache-2.0
// docs/extprop-sim.schema.json against the documents: every command's --json conforms, and
// the schema is strict enough to turn away a document that lost a key, grew one, or holds
// a value outside its set.

#include <functional>

#include <gmock/gmock.h>

#include "json.h"
#include "simulator_run.h"

namespace zelva_test {
namespace {

using extprop_sim::Json;
using testing::IsEmpty;
using testing::Not;

TEST(JsonSchemaTest, EveryCommandsDocumentConforms) {
    std::string why;
    SKIP_WITHOUT_SANDBOX(sandbox::Available(&why) ? "" : why);
    struct Row {
        std::vector<std::string> args;
        int status;
    };
    for (const Row& row : std::vector<Row>{
                 {{"boot", "--root", "birch-cn", "--host", "aosp"}, 0},
                 {{"explain", "ro.product.model", "--root", "alder-eu"}, 0},
                 {{"explain", "no.such.property", "--root", "birch-cn"}, 1},
                 {{"diff", "--root", "alder-eu", "--root-b", "birch-cn"}, 1},
                 {{"lint", "--root", "birch-cn"}, 1},
                 {{"parse", "/my_region/build.prop", "--root", "alder-eu"}, 0},
         }) {
        std::vector<std::string> args = row.args;
        args.push_back("--json");
        const SimulatorRun run = RunSimulator(args);
        EXPECT_EQ(run.status, row.status) << testing::PrintToString(run);
        EXPECT_THAT(run.out, ConformsToTheSchema()) << row.args[0];
        const Json document = Json::parse(run.out, nullptr, false);
        EXPECT_EQ(document.value("command", ""), row.args[0]);
    }
}

// A boot document with one of everything, as the simulator writes it.
Json SmallBootDocument() {
    const auto bytes = [](Json record, const std::string& key, const char* value) {
        record[key] = value ? Json(value) : Json(nullptr);
        record[key + "_hex"] = nullptr;
        record[key + "_valid_utf8"] = value ? Json(true) : Json(nullptr);
        return record;
    };
    Json property = bytes(bytes(Json::object(), "name", "a.b"), "value", "1");
    Json entry = bytes(bytes(Json::object(), "name", "a.b"), "value", "1");
    entry["effect"] = "new";
    entry = bytes(bytes(bytes(entry, "previous", nullptr), "reason", nullptr), "final", "1");
    Json step = {{"step", 0}, {"boot", 1}, {"slot", 6}, {"operation", "loadPersistOverrideProperties"}};
    step = bytes(step, "description", "slot 6 loadPersistOverrideProperties");
    step["args"] = Json::array();
    step = bytes(step, "result", "0");
    Json batch = {
            {"step", 0}, {"slot", 6},           {"operation", "loadPersistOverrideProperties"},
            {"kind", 0}, {"filled_map", false}, {"entries", {entry}}};
    Json log = {{"step", 0}, {"severity", "info"}, {"tag", nullptr}};
    log = bytes(log, "file", "utils.cpp");
    log["line"] = 12;
    log = bytes(log, "message", "loaded");
    return {{"schema", "extprop-sim/1"},    {"command", "boot"},        {"host", "vendor"},
            {"property_contexts", nullptr}, {"seeded", Json::array()},  {"steps", {step}},
            {"batches", {batch}},           {"properties", {property}}, {"log", {log}}};
}

TEST(JsonSchemaTest, RejectsDocumentsThatLoseGrowOrBendAKey) {
    ASSERT_THAT(SmallBootDocument().dump(), ConformsToTheSchema());
    struct Row {
        std::string fault;
        std::function<void(Json&)> make;
    };
    for (const Row& row : std::vector<Row>{
                 {"another schema version", [](Json& d) { d["schema"] = "extprop-sim/2"; }},
                 {"no log", [](Json& d) { d.erase("log"); }},
                 {"an effect init has not",
                  [](Json& d) { d["batches"][0]["entries"][0]["effect"] = "set"; }},
                 {"an unknown key in an entry",
                  [](Json& d) { d["batches"][0]["entries"][0]["note"] = 1; }},
                 {"a severity libbase has not",
                  [](Json& d) { d["log"][0]["severity"] = "notice"; }},
                 {"hex that is not hex", [](Json& d) { d["properties"][0]["value_hex"] = "zz"; }},
                 {"a value without its validity",
                  [](Json& d) { d["properties"][0].erase("value_valid_utf8"); }},
                 {"a lint document's keys on boot", [](Json& d) { d["findings"] = Json::array(); }},
         }) {
        Json document = SmallBootDocument();
        row.make(document);
        EXPECT_THAT(SchemaFaults(document.dump()), Not(IsEmpty())) << row.fault;
    }
}

}  // namespace
}  // namespace zelva_test
