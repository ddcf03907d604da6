// SPDX-License-Identifier: Apache-2.0
#include "import_lines.h"

#include <algorithm>
#include <cstring>

#include <android-base/strings.h>

namespace extprop_sim {
namespace {

constexpr char kImport[] = "import ";

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string TrimFront(const std::string& text) {
    return text.substr(std::find_if_not(text.begin(), text.end(), IsSpace) - text.begin());
}

}  // namespace

std::vector<Import> ImportLines(const std::string& text) {
    std::vector<Import> imports;
    for (std::string line : android::base::Split(text, "\n")) {
        // As the parser reads a line: trailing whitespace cut from its bytes as
        // they stand, then a NUL ends the text (a blank before it stays).
        while (!line.empty() && IsSpace(line.back())) line.pop_back();
        line = TrimFront(line.substr(0, strnlen(line.c_str(), line.size())));
        if (!android::base::StartsWith(line, kImport)) continue;
        const std::string rest = TrimFront(line.substr(strlen(kImport)));
        const size_t blank = rest.find(' ');  // only a blank ends the name
        if (blank == std::string::npos) {
            imports.push_back({rest, "", false});
        } else {
            imports.push_back({rest.substr(0, blank), TrimFront(rest.substr(blank + 1)), true});
        }
    }
    return imports;
}

}  // namespace extprop_sim
