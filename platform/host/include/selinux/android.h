// SPDX-License-Identifier: Apache-2.0
/*
 * Host stand-in for libselinux's <selinux/android.h>: the host has no SELinux
 * policy, so relabelling succeeds without changing anything.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define SELINUX_ANDROID_RESTORECON_NOCHANGE 1
#define SELINUX_ANDROID_RESTORECON_VERBOSE 2
#define SELINUX_ANDROID_RESTORECON_RECURSE 4

/* Relabels nothing on the host and returns 0. */
int selinux_android_restorecon(const char* file, unsigned int flags);

#ifdef __cplusplus
}
#endif
