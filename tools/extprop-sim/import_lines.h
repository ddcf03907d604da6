// SPDX-License-Identifier: Apache-2.0
// The lines of a property file, split and trimmed as the library's parser
// splits them, for the commands that report on a file's imports without
// following them, and on the line that defines a property.
#pragma once

#include <string>
#include <vector>

namespace extprop_sim {

struct Import {
    std::string name;    // the file name, ${} unexpanded
    std::string filter;  // the nested filter, when |filtered|
    bool filtered;
    size_t line;  // from 1
};

std::vector<Import> ImportLines(const std::string& text);

// The number (from 1) of the last line of |text| that sets |name|, the one
// whose value the parser keeps; 0 when none does.
size_t DefinitionLine(const std::string& text, const std::string& name);

}  // namespace extprop_sim
