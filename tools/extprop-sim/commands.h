// SPDX-License-Identifier: Apache-2.0
// The simulator's subcommands. Each returns the process exit status:
// 0 success, 1 findings (lint errors, differing trees, a property that plays
// no part in the boot), 2 a usage or setup error (one line on stderr).
#pragma once

#include <string>
#include <vector>

namespace extprop_sim {

using Args = std::vector<std::string>;

constexpr int kExitOk = 0;
constexpr int kExitFindings = 1;
constexpr int kExitError = 2;

int ParseCommand(const Args& args);
int BootCommand(const Args& args);
int ExplainCommand(const Args& args);
int DiffCommand(const Args& args);
int LintCommand(const Args& args);

// Prints "extprop-sim: <message>" on stderr and returns kExitError.
int Fail(const std::string& message);

}  // namespace extprop_sim
