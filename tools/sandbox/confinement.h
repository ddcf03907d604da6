// SPDX-License-Identifier: Apache-2.0
// The child's confinement: namespaces, the root's mounts, pivot_root, and the
// privileges it keeps.
#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "sandbox.h"

namespace sandbox {

// Where a step failed, and whether the machine refused it (namespaces not
// allowed, no overlay) rather than the tree or the options being wrong.
struct SetupError {
    std::string message;
    bool refused = false;
};

// Moves the calling process into a new mount namespace, inside a new user
// namespace mapping it to root when it isn't root, and when |isolate| also
// new PID (for its next child), network, IPC and UTS namespaces, and, for
// root, a user namespace mapping every id to itself.
bool UnshareNamespaces(bool isolate, SetupError* error);

// Mounts the root of |layout| on its mount point: the overlay of its layers,
// or the copied tree bound there.
bool MountRoot(const RootLayout& layout, SetupError* error);

// Prepares |mounts| below the mounted root, then makes it "/" (the old root
// detached) with the working directory at "/". With |proc|, a /proc of the
// caller's PID namespace is mounted in the root first, hidden until RevealProc.
bool EnterRoot(const RootLayout& layout, const std::vector<MountSetup>& mounts, bool proc,
               SetupError* error);

// Uncovers the /proc that EnterRoot mounted, for LeakSanitizer.
bool RevealProc();

// Sets no_new_privs and bounds every capability set to what the library's
// operations need: mount, chown, and reading and writing files the process
// doesn't own.
bool DropPrivileges(SetupError* error);

}  // namespace sandbox
