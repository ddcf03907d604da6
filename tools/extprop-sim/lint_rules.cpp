// SPDX-License-Identifier: Apache-2.0
#include "lint_rules.h"

#include <iterator>

namespace extprop_sim {

using namespace lint_rule;

const LintRule kLintRules[] = {
        {kPropertyContexts, true, "the property contexts can't be read: no context is checked"},
        {kSymlinkLoop, true, "a partition, file or import resolves through a symbolic link loop"},
        {kFinalSymlink, true, "a property file is a symbolic link, which the parser doesn't follow"},
        {kNotRegularFile, true, "a property file is a directory, FIFO, socket or device node"},
        {kUnreadableFile, true, "a property file the library reads can't be opened for reading"},
        {kIllegalName, true, "a property name init or the library refuses as illegal"},
        {kRefusedByInit, true,
         "a property init would refuse: illegal value, no SELinux context, wrong type"},
        {kImportNotExpandable, true, "an import's ${name} can't be expanded: it is skipped"},
        {kImportNotFound, true, "an import names no file in the tree: it is skipped"},
        {kImportCycle, true, "an import closes a cycle: the parser recurses without end"},
        {kUnknownBrand, false, "the brand is none the library knows: no brand directory is read"},
        {kMissingRegion, false, "no SKU region: no my_product/cust/<region> directory is read"},
        {kUnknownSet, false, "a property set directory no key selects: it is never loaded"},
        {kDirectoryInSet, false, "a directory inside a property set: it is never read"},
        {kNotPropFile, false, "a file in a property set without .prop: it is never loaded"},
        {kMapTargetSelectsNothing, false,
         "a map file entry whose target key has no property set nor build.<key>.prop"},
        {kFailedRead, true, "a read the library made at boot failed on a path that is there"},
        {kUnreadFile, false,
         "a property file under a partition that the boot never read and no other key would"},
};
const size_t kLintRuleCount = std::size(kLintRules);

const LintRule* FindLintRule(const std::string& id) {
    for (const LintRule& rule : kLintRules) {
        if (id == rule.id) return &rule;
    }
    return nullptr;
}

}  // namespace extprop_sim
