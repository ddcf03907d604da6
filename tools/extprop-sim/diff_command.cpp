// SPDX-License-Identifier: Apache-2.0
// diff TREE_A TREE_B: boots both trees and compares the properties they end with.

#include <cstdio>

#include "boot_options.h"
#include "commands.h"
#include "printable.h"

namespace extprop_sim {

int DiffCommand(const Args& args) {
    BootOptions a, b;
    std::string props_b, error;
    bool has_props_b = false;
    std::vector<std::string> trees;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--props-b") {
            if (i + 1 == args.size() || args[i + 1].empty()) return Fail("--props-b needs a value");
            props_b = args[++i];
            has_props_b = true;
        } else if (args[i] != "--root" && TakeBootOption(args, &i, &a, &error)) {
            if (!error.empty()) return Fail(error);
        } else if (!args[i].empty() && args[i][0] == '-') {
            return Fail("unknown option '" + args[i] + "' for diff");
        } else {
            trees.push_back(args[i]);
        }
    }
    if (trees.size() != 2) return Fail("diff needs two device trees, TREE_A and TREE_B");
    b = a;  // the same options for both boots, but for the trees and --props-b
    a.tree = trees[0];
    b.tree = trees[1];
    if (has_props_b) b.props_file = props_b;

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
    std::string out = "--- " + Printable(a.tree) + "\n+++ " + Printable(b.tree) + "\n";
    auto ia = pa.begin();
    auto ib = pb.begin();
    while (ia != pa.end() || ib != pb.end()) {
        if (ib == pb.end() || (ia != pa.end() && ia->first < ib->first)) {
            out += "- " + Printable(ia->first) + "=" + Printable(ia->second) + "\n";
            ++removed, ++ia;
        } else if (ia == pa.end() || ib->first < ia->first) {
            out += "+ " + Printable(ib->first) + "=" + Printable(ib->second) + "\n";
            ++added, ++ib;
        } else {
            if (ia->second != ib->second) {
                out += "~ " + Printable(ia->first) + ": '" + Printable(ia->second) + "' -> '" +
                       Printable(ib->second) + "'\n";
                ++changed;
            }
            ++ia, ++ib;
        }
    }
    out += std::to_string(added) + " added, " + std::to_string(removed) + " removed, " +
           std::to_string(changed) + " changed\n";
    fwrite(out.data(), 1, out.size(), stdout);
    return added + removed + changed == 0 ? kExitOk : kExitFindings;
}

}  // namespace extprop_sim
