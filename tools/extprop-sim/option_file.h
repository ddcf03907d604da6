// SPDX-License-Identifier: Apache-2.0
// Files named on the command line (--props, --script, lint --props, parse
// FILE): whatever the user can hand over, a regular file, a FIFO, /dev/stdin,
// a process substitution or a symbolic link to any of them, read with bounds
// so that /dev/zero or a FIFO nobody writes to ends in one clear error.
#pragma once

#include <chrono>
#include <string>

#include <android-base/result.h>

namespace extprop_sim {

// More than this is not a property or script file anyone wrote.
constexpr size_t kOptionFileLimit = 16 << 20;
// How long a FIFO may stay silent before the read gives up.
constexpr std::chrono::milliseconds kFifoSilenceLimit{5000};

android::base::Result<std::string> ReadOptionFile(const std::string& path);

}  // namespace extprop_sim
