// SPDX-License-Identifier: Apache-2.0
/*
 * Host stand-in for Android's <cutils/properties.h>: the same C API, served
 * by the process-wide property store of libhostplatform.
 */
#pragma once

#include <sys/cdefs.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Largest value, terminating NUL included, that property_get hands out. */
#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

/*
 * Copies the value of |key| into |value| (at most PROPERTY_VALUE_MAX - 1 bytes
 * and a NUL). An unset or empty property yields |default_value| instead
 * (truncated the same way), or "" when that is null. Returns the length of
 * what was copied.
 */
int property_get(const char* key, char* value, const char* default_value);

/*
 * Sets |key| to |value|; an empty value clears the property. Returns 0, or -1
 * when the key is empty or the value is PROPERTY_VALUE_MAX bytes or longer for
 * a name outside "ro.", as the device's property service refuses those.
 */
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
