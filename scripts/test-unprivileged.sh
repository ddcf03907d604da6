#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the sandbox's boundary and signal tests of an existing build as an unprivileged user
# (nobody), as a device engineer runs the simulator, and checks that they leave no process,
# mount or scratch directory behind.
#   scripts/test-unprivileged.sh [BUILD_DIR]      default build/
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
tests="$build/bin/zelva_tests"
user=nobody
group="$(id -gn "$user")"
as_user() { setpriv --reuid="$user" --regid="$group" --clear-groups "$@"; }

if ! as_user test -x "$tests" -a -r "$PWD/examples"; then
  echo "test-unprivileged.sh: $user cannot reach $tests (a parent directory is closed to others)" >&2
  exit 1
fi
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
chown "$user:$group" "$scratch"
mounts_before="$(wc -l </proc/self/mountinfo)"

(cd "$scratch" && as_user env TMPDIR="$scratch" HOME="$scratch" \
  "$tests" --gtest_filter='SandboxBoundaryTest.*:SandboxTest.*:Stops/SignalTest.*')

# Processes of the user that are still alive (zombies wait only for the machine's init to
# reap them), given a few seconds to go.
alive() { ps -u "$user" -o stat=,pid=,args= | awk '$1 !~ /^Z/' | grep -E 'zelva_tests|extprop-sim' || true; }
for _ in $(seq 50); do
  if [ -z "$(alive)" ] && [ -z "$(ls -A "$scratch")" ]; then break; fi
  sleep 0.1
done
left=0
if [ -n "$(ls -A "$scratch")" ]; then echo "left in TMPDIR:" >&2; ls -la "$scratch" >&2; left=1; fi
if [ -n "$(alive)" ]; then echo "processes left:" >&2; alive >&2; left=1; fi
if [ "$(wc -l </proc/self/mountinfo)" != "$mounts_before" ]; then echo "mounts left" >&2; left=1; fi
if [ "$left" -eq 0 ]; then echo "nothing left behind: no process, mount or scratch directory"; fi
exit "$left"
