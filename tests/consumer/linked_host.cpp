// SPDX-License-Identifier: Apache-2.0
// A host linked against the installed library, calling the factory directly.
#include <unistd.h>

#include "host_checks.h"

int main() {
    const int failures = RunHostChecks(&QRAV_FETCH_IInitExtensionProperty);
    printf("linked: %d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
