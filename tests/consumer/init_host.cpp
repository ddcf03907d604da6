// SPDX-License-Identifier: Apache-2.0
// Loads the installed library as init does: dlopen by path, look up the
// factory, call it. ZELVA_LIBRARY is the installed file, named by the CMake
// package or by zelvaextproperty.pc.
#include <dlfcn.h>
#include <unistd.h>

#include "host_checks.h"

int main() {
    void* handle = dlopen(ZELVA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fprintf(stderr, "FAILED: dlopen %s: %s\n", ZELVA_LIBRARY, dlerror());
        return 1;
    }
    auto factory = reinterpret_cast<Factory>(dlsym(handle, "QRAV_FETCH_IInitExtensionProperty"));
    if (factory == nullptr) {
        fprintf(stderr, "FAILED: no factory in %s\n", ZELVA_LIBRARY);
        return 1;
    }
    const int failures = RunHostChecks(factory);
    printf("%s: %d failed\n", ZELVA_LIBRARY, failures);
    return failures == 0 ? 0 : 1;
}
