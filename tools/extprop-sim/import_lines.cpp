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

// Each line's text as the parser reads it: trailing whitespace cut from its
// bytes as they stand, then a NUL ends the text (a blank before it stays),
// and leading whitespace cut.
std::vector<std::string> ParsedLines(const std::string& text) {
    std::vector<std::string> lines = android::base::Split(text, "\n");
    for (std::string& line : lines) {
        while (!line.empty() && IsSpace(line.back())) line.pop_back();
        line = TrimFront(line.substr(0, strnlen(line.c_str(), line.size())));
    }
    return lines;
}

}  // namespace

std::vector<Import> ImportLines(const std::string& text) {
    std::vector<Import> imports;
    const std::vector<std::string> lines = ParsedLines(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (!android::base::StartsWith(lines[i], kImport)) continue;
        const std::string rest = TrimFront(lines[i].substr(strlen(kImport)));
        const size_t blank = rest.find(' ');  // only a blank ends the name
        if (blank == std::string::npos) {
            imports.push_back({rest, "", false, i + 1});
        } else {
            imports.push_back(
                    {rest.substr(0, blank), TrimFront(rest.substr(blank + 1)), true, i + 1});
        }
    }
    return imports;
}

size_t DefinitionLine(const std::string& text, const std::string& name) {
    const std::vector<std::string> lines = ParsedLines(text);
    for (size_t i = lines.size(); i-- > 0;) {
        const std::string& line = lines[i];
        const size_t equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
        std::string defined = line.substr(0, equals);
        while (!defined.empty() && IsSpace(defined.back())) defined.pop_back();
        if (defined == name) return i + 1;
    }
    return 0;
}

}  // namespace extprop_sim
