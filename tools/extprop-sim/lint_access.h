// SPDX-License-Identifier: Apache-2.0
// lint from what a boot really does: the tree booted with the library's file
// calls recorded (access_record.h), so that lint can report the files no boot
// reads and the reads that fail.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "commands.h"
#include "lint.h"
#include "lint_report.h"

namespace extprop_sim {

struct BootAccesses {
    std::set<std::string> reached;      // device paths the library opened, tested or listed,
                                        // each as given and resolved inside the device root
    std::vector<LintFinding> failures;  // reads of a path that exists which failed
};

// Boots the tree as `boot` would with lint's --props and contexts. Returns
// false with the reason when the boot couldn't run.
bool RecordBootAccesses(const LintArgs& args, BootAccesses* accesses, std::string* error);

// Inside the device root: the property files under the partitions (/my_*)
// that the boot never reached and that no other switch key could select (a
// property set or an etc/build.<key>.prop: the static checks cover those).
void LintUnreadFiles(LintContext* ctx, const std::set<std::string>& reached);

}  // namespace extprop_sim
