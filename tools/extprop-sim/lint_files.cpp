// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "import_lines.h"
#include "lint.h"
#include "tree_path.h"
#include "utils.h"

namespace extprop_sim {
namespace {

constexpr char kImport[] = "import ";

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
        // The parser looks the expanded name up as it stands: an empty one names
        // nothing. HostPath gives "" for a path that loops.
        const std::string target =
                expanded->empty() ? ""
                                  : HostPath(ctx->tree,
                                             (*expanded)[0] == '/' ? *expanded : "/" + *expanded,
                                             false);
        struct stat st;
        if (!expanded->empty() && target.empty()) {
            ctx->Error(path, "import '" + *expanded + "': " + strerror(ELOOP));
        } else if (target.empty() || lstat(target.c_str(), &st) != 0) {
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
    findings.push_back({true, path, problem});
}

void LintContext::Warning(const std::string& path, const std::string& problem) {
    findings.push_back({false, path, problem});
}

void LintPropertyFile(LintContext* ctx, const std::string& path, const char* filter) {
    if (filter != nullptr && *filter == '\0') filter = nullptr;  // an empty filter is none
    struct stat st;
    // A loop on the way is what the library meets at boot too; a missing file
    // is not a finding.
    const bool present = lstat(path.c_str(), &st) == 0;
    if (!present && errno != ELOOP) return;
    if (!ctx->checked.insert(path + "\n" + (filter != nullptr ? filter : "")).second) return;
    if (!present) return ctx->Error(path, strerror(ELOOP));
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
        // The file alone: whether another file set an "ro." name first is
        // for a boot to tell.
        InitRules rules = ctx->rules;
        if (!ctx->handed_to_init) rules.contexts = nullptr;
        const auto refusal = InitRefusal(rules, name, value, std::nullopt);
        if (!refusal) continue;
        if (!ctx->rules.legal.name(name)) {
            ctx->Error(path, "illegal property name '" + name + "'");
        } else {
            ctx->Error(path, "init refuses " + name + "=" + value + ": " + *refusal);
        }
    }
    if (filter != nullptr) return;
    ctx->loading.push_back(path);
    LintImports(ctx, path);
    ctx->loading.pop_back();
}

}  // namespace extprop_sim
