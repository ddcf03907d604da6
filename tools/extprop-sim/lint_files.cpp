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

using namespace lint_rule;

void LintImports(LintContext* ctx, const std::string& path, const std::string& text) {
    for (const Import& import : ImportLines(text)) {
        auto expanded = ExpandProps(import.name);
        if (!expanded.ok()) {
            ctx->Report(kImportNotExpandable, path,
                        "import '" + import.name + "' can't be expanded (" +
                                expanded.error().message() + "): it is skipped",
                        import.line);
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
            ctx->Report(kSymlinkLoop, path, "import '" + *expanded + "': " + strerror(ELOOP),
                        import.line);
        } else if (target.empty() || lstat(target.c_str(), &st) != 0) {
            ctx->Report(kImportNotFound, path,
                        "import '" + *expanded + "' names no file in the tree: it is skipped",
                        import.line);
        } else if (std::count(ctx->loading.begin(), ctx->loading.end(), target) != 0) {
            ctx->Report(kImportCycle, path,
                        "import '" + *expanded + "' closes a cycle: the parser recurses without end",
                        import.line);
        } else {
            LintPropertyFile(ctx, target, import.filtered ? import.filter.c_str() : nullptr);
        }
    }
}

}  // namespace

void LintContext::Report(const char* rule, const std::string& path, const std::string& problem,
                         size_t line) {
    findings.push_back({rule, path, line, problem});
}

void LintPropertyFile(LintContext* ctx, const std::string& path, const char* filter) {
    if (filter != nullptr && *filter == '\0') filter = nullptr;  // an empty filter is none
    struct stat st;
    // A loop on the way is what the library meets at boot too; a missing file
    // is not a finding.
    const bool present = lstat(path.c_str(), &st) == 0;
    if (!present && errno != ELOOP) return;
    if (!ctx->checked.insert(path + "\n" + (filter != nullptr ? filter : "")).second) return;
    if (!present) return ctx->Report(kSymlinkLoop, path, strerror(ELOOP));
    if (S_ISLNK(st.st_mode)) {
        return ctx->Report(kFinalSymlink, path,
                           "symbolic link: the parser doesn't follow it, the file is never read");
    }
    if (!S_ISREG(st.st_mode)) return ctx->Report(kNotRegularFile, path, "not a regular file");
    std::string text;
    if (access(path.c_str(), R_OK) != 0 || !android::base::ReadFileToString(path, &text, false)) {
        return ctx->Report(kUnreadableFile, path, std::string("not readable: ") + strerror(errno));
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
        const size_t line = DefinitionLine(text, name);
        if (!ctx->rules.legal.name(name)) {
            ctx->Report(kIllegalName, path, "illegal property name '" + name + "'", line);
        } else {
            ctx->Report(kRefusedByInit, path, "init refuses " + name + "=" + value + ": " + *refusal,
                        line);
        }
    }
    if (filter != nullptr) return;
    ctx->loading.push_back(path);
    LintImports(ctx, path, text);
    ctx->loading.pop_back();
}

}  // namespace extprop_sim
