// SPDX-License-Identifier: Apache-2.0
// The sandbox child's side: the processes that enter the root, run the
// function and report back over |fd|.
#pragma once

#include <sys/types.h>

#include "sandbox.h"

namespace sandbox {

// Runs in the process forked by the parent |parent|: dies with it, takes new
// namespaces, and in them runs |fn| in the root of |layout|, sending what
// happens as records on |fd|. Never returns.
[[noreturn]] void RunChild(int fd, pid_t parent, const RootLayout& layout, const Options& options,
                           const Function& fn);

// In sanitizer builds: starts the symbolizer while the machine's files are
// still reachable, so that reports from inside a root name functions and lines.
void PrepareSanitizerReports();

}  // namespace sandbox
