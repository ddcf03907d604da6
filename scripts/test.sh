#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the project and runs the test suite.
#   scripts/test.sh                         plain build in build/
#   scripts/test.sh --sanitize address,undefined   ASan+UBSan build in build-asan/
#   scripts/test.sh --sanitize thread [--filter REGEX]   TSan build in build-tsan/
set -euo pipefail
cd "$(dirname "$0")/.."

sanitize=""
filter=""
while [ $# -gt 0 ]; do
  case "$1" in
    --sanitize) sanitize="$2"; shift 2 ;;
    --filter) filter="$2"; shift 2 ;;
    *) echo "test.sh: unknown argument '$1'" >&2; exit 2 ;;
  esac
done

case "$sanitize" in
  "") build=build ;;
  thread) build=build-tsan ;;
  *) build=build-asan ;;
esac
jobs=$(nproc)

# The plain build also compiles the benchmarks, so that they keep building.
bench=OFF
config=()
if [ -z "$sanitize" ]; then bench=ON; fi
# Sanitizer builds are unoptimised: they compile three times faster, and the
# sanitizers find the same faults.
if [ -n "$sanitize" ]; then config+=(-DCMAKE_BUILD_TYPE=Debug); fi
# The ThreadSanitizer build runs the thread suites only: it compiles only their files.
# (cota_test.cpp holds the device runner the thread suites share.)
if [ "$sanitize" = thread ]; then config+=(-DZELVA_TEST_FILES='(thread|property_store|cota)_test\.cpp$'); fi
cmake -S . -B "$build" -DZELVA_SANITIZE="$sanitize" -DZELVA_BUILD_BENCH="$bench" "${config[@]}" >/dev/null
cmake --build "$build" -j "$jobs"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
args=(--test-dir "$build" --output-on-failure -j "$jobs")
if [ -n "$filter" ]; then args+=(-R "$filter"); fi
ctest "${args[@]}"
