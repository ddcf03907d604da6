// SPDX-License-Identifier: Apache-2.0
// What the library really opens, tests and lists during a boot: the
// simulator defines open, openat, access and opendir itself (exported, so the
// dlopened library binds to them, the way a host can interpose mount), passes
// every call on to the C library, and, while recording, keeps the calls made
// from the library's own code.
#pragma once

#include <string>
#include <vector>

namespace extprop_sim {

struct LibraryAccess {
    std::string call;  // "open", "openat", "access", "opendir"
    std::string path;  // as the library gave it
    bool writes;       // opened for writing
    int error;         // the call's errno, 0 when it succeeded
};

// From now on, keeps the calls made by code of the shared object that
// |library_symbol| lies in.
void RecordLibraryAccess(const void* library_symbol);

// The calls kept since the last take, in order.
std::vector<LibraryAccess> TakeLibraryAccesses();

}  // namespace extprop_sim
