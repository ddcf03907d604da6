// SPDX-License-Identifier: Apache-2.0
// diff --root A --root-b B: boots both trees and compares the properties they end with.

#include <cstdio>

#include "boot_options.h"
#include "commands.h"
#include "json.h"
#include "printable.h"

namespace extprop_sim {

int DiffCommand(const DiffArgs& args) {
    if (args.boot.tree.empty() || args.root_b.empty()) {
        return Fail("diff needs two device trees, --root DIR and --root-b DIR");
    }
    BootOptions a = args.boot, b = args.boot;  // the same options for both boots
    b.tree = args.root_b;
    if (!args.props_b.empty()) b.props_file = args.props_b;
    std::string error;

    BootConfig config_a, config_b;
    if (!MakeBootConfig(a, &config_a, &error) || !MakeBootConfig(b, &config_b, &error)) {
        return Fail(error);
    }
    BootResult result_a, result_b;
    if (!BootQuietly(config_a, &result_a, &error) || !BootQuietly(config_b, &result_b, &error)) {
        return Fail(error);
    }

    const PropertyMap& pa = result_a.outcome.properties;
    const PropertyMap& pb = result_b.outcome.properties;
    size_t added = 0, removed = 0, changed = 0;
    Json differences = Json::array();
    const auto difference = [&differences](const std::string& name, const char* change,
                                           const std::string* in_a, const std::string* in_b) {
        Json json = Json::object();
        PutBytes(&json, "name", name);
        json["change"] = change;
        PutBytes(&json, "a", in_a ? std::optional(*in_a) : std::nullopt);
        PutBytes(&json, "b", in_b ? std::optional(*in_b) : std::nullopt);
        differences.push_back(std::move(json));
    };
    std::string out = "--- " + Printable(a.tree) + "\n+++ " + Printable(b.tree) + "\n";
    auto ia = pa.begin();
    auto ib = pb.begin();
    while (ia != pa.end() || ib != pb.end()) {
        if (ib == pb.end() || (ia != pa.end() && ia->first < ib->first)) {
            out += "- " + Printable(ia->first) + "=" + Printable(ia->second) + "\n";
            difference(ia->first, "removed", &ia->second, nullptr);
            ++removed, ++ia;
        } else if (ia == pa.end() || ib->first < ia->first) {
            out += "+ " + Printable(ib->first) + "=" + Printable(ib->second) + "\n";
            difference(ib->first, "added", nullptr, &ib->second);
            ++added, ++ib;
        } else {
            if (ia->second != ib->second) {
                out += "~ " + Printable(ia->first) + ": '" + Printable(ia->second) + "' -> '" +
                       Printable(ib->second) + "'\n";
                difference(ia->first, "changed", &ia->second, &ib->second);
                ++changed;
            }
            ++ia, ++ib;
        }
    }
    out += std::to_string(added) + " added, " + std::to_string(removed) + " removed, " +
           std::to_string(changed) + " changed\n";
    if (args.json) {
        Json document = JsonDocument("diff");
        document["differences"] = std::move(differences);
        document["added"] = added;
        document["removed"] = removed;
        document["changed"] = changed;
        out = JsonText(document);
    }
    fwrite(out.data(), 1, out.size(), stdout);
    return added + removed + changed == 0 ? kExitOk : kExitFindings;
}

}  // namespace extprop_sim
