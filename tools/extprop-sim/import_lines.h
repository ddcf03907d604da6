// SPDX-License-Identifier: Apache-2.0
// The import lines of a property file, split as the library's parser splits
// them, for the commands that report on imports without following them.
#pragma once

#include <string>
#include <vector>

namespace extprop_sim {

struct Import {
    std::string name;    // the file name, ${} unexpanded
    std::string filter;  // the nested filter, when |filtered|
    bool filtered;
};

std::vector<Import> ImportLines(const std::string& text);

}  // namespace extprop_sim
