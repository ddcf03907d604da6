// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "lint.h"
#include "tree_path.h"
#include "utils.h"

namespace extprop_sim {
namespace {

constexpr char kImport[] = "import ";

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string TrimFront(const std::string& text) {
    return text.substr(std::find_if_not(text.begin(), text.end(), IsSpace) - text.begin());
}

// An import line as the parser splits it: the file name, and the nested
// filter when the line has one.
struct Import {
    std::string name;
    std::string filter;
    bool filtered;
};

std::vector<Import> ImportLines(const std::string& text) {
    std::vector<Import> imports;
    for (std::string line : android::base::Split(text, "\n")) {
        line = TrimFront(line.substr(0, strnlen(line.c_str(), line.size())));  // NUL ends it
        while (line.size() > 1 && IsSpace(line.back())) line.pop_back();
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

void LintImports(LintContext* ctx, const std::string& path) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text, false)) return;
    for (const Import& import : ImportLines(text)) {
        auto expanded = ExpandProps(import.name);
        if (!expanded.ok()) {
            ctx->Error(path, "import '" + import.name + "' can't be expanded (" +
                                     expanded.error().message() + "): it is skipped");
            continue;
        }
        const std::string target =
                HostPath(ctx->tree, (*expanded)[0] == '/' ? *expanded : "/" + *expanded, false);
        struct stat st;
        if (target.empty() || lstat(target.c_str(), &st) != 0) {
            ctx->Error(path, "import '" + *expanded + "' names no file in the tree: it is skipped");
        } else if (std::count(ctx->loading.begin(), ctx->loading.end(), target) != 0) {
            ctx->Error(path, "import '" + *expanded +
                                     "' closes a cycle: the parser recurses without end");
        } else {
            LintPropertyFile(ctx, target, import.filtered ? import.filter.c_str() : nullptr);
        }
    }
}

}  // namespace

void LintContext::Error(const std::string& path, const std::string& problem) {
    lines.push_back(path + ": error: " + problem);
    ++errors;
}

void LintContext::Warning(const std::string& path, const std::string& problem) {
    lines.push_back(path + ": warning: " + problem);
    ++warnings;
}

void LintPropertyFile(LintContext* ctx, const std::string& path, const char* filter) {
    if (filter != nullptr && *filter == '\0') filter = nullptr;  // an empty filter is none
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return;
    if (!ctx->checked.insert(path + "\n" + (filter != nullptr ? filter : "")).second) return;
    if (S_ISLNK(st.st_mode)) {
        return ctx->Error(path,
                          "symbolic link: the parser doesn't follow it, the file is never read");
    }
    if (!S_ISREG(st.st_mode)) return ctx->Error(path, "not a regular file");
    if (access(path.c_str(), R_OK) != 0) {
        return ctx->Error(path, std::string("not readable: ") + strerror(errno));
    }
    // Under a filter the parser neither follows imports nor keeps other
    // names; "*" keeps every name without following imports.
    PropertyMap props;
    load_properties_from_file_without_se(path.c_str(), filter != nullptr ? filter : "*", &props);
    for (const auto& [name, value] : props) {
        if (filter == nullptr && android::base::StartsWith(name, kImport)) continue;
        if (!IsLegalPropertyName(name)) {
            ctx->Error(path, "illegal property name '" + name + "'");
        } else if (auto legal = IsLegalPropertyValue(name, value); !legal.ok()) {
            ctx->Error(path, "illegal value of '" + name + "': " + legal.error().message());
        }
    }
    if (filter != nullptr) return;
    ctx->loading.push_back(path);
    LintImports(ctx, path);
    ctx->loading.pop_back();
}

}  // namespace extprop_sim
