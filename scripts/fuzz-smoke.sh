#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets (clang, ASan+UBSan) in build-fuzz/ and runs each one for a short
# while on a scratch copy of its seed corpus (the repository is never written to).
#   scripts/fuzz-smoke.sh [SECONDS]     seconds per target, default 45
# Prints each target's execution count; exits non-zero when a target crashes, leaks, times out
# or reports a sanitizer error.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-45}"
build="$PWD/build-fuzz"

CC=clang CXX=clang++ cmake -S . -B "$build" -DZELVA_BUILD_FUZZERS=ON \
  -DZELVA_SANITIZE=address,undefined -DZELVA_BUILD_TESTS=OFF -DZELVA_BUILD_TOOLS=OFF \
  -DZELVA_BUILD_BENCH=OFF >/dev/null
# The targets are the zelva_fuzzer(<name> ...) lines of fuzz/CMakeLists.txt.
mapfile -t targets < <(sed -n 's/^zelva_fuzzer(\([A-Za-z0-9_]*\).*/\1/p' fuzz/CMakeLists.txt)
cmake --build "$build" -j 2 --target "${targets[@]}"

scratch="$(mktemp -d)"
# The targets' device roots go here (not below their working directory, which each target
# keeps reachable inside its root), so that anything they leave behind is seen and removed.
roots="$(mktemp -d)"
trap 'rm -rf "$scratch" "$roots"' EXIT
export TMPDIR="$roots"
export ASAN_OPTIONS="detect_leaks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

# Runs one target; prints its line and returns non-zero on a finding.
run_target() {
  local target="$1" corpus="$scratch/corpus-$1" log="$scratch/$1.log" rc=0
  mkdir -p "$corpus"
  if [ -d "fuzz/corpus/$target" ]; then cp -R "fuzz/corpus/$target/." "$corpus/"; fi
  (cd "$scratch" && "$build/bin/$target" -max_total_time="$seconds" -timeout=25 \
      -print_final_stats=1 -artifact_prefix="$scratch/$target-" "$corpus") >"$log" 2>&1 || rc=$?
  local execs
  execs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
  if [ "$rc" -ne 0 ] || grep -qE 'ERROR: [A-Za-z]*Sanitizer|runtime error:|ERROR: libFuzzer' "$log"; then
    echo "$target: FAILED (exit $rc) after ${execs:-?} executions"
    grep -E -A 30 'FINDING|ERROR|runtime error' "$log" | head -n 60 || tail -n 40 "$log"
    return 1
  fi
  echo "$target: ${execs:-?} executions in ${seconds}s"
}

# As many targets at once as there are cores.
failed=0
pids=()
for target in "${targets[@]}"; do
  run_target "$target" &
  pids+=($!)
  if [ "${#pids[@]}" -ge "$(nproc)" ]; then
    wait "${pids[0]}" || failed=1
    pids=("${pids[@]:1}")
  fi
done
for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
# A device root is removed by its watcher right after its target ends.
for _ in $(seq 50); do [ -z "$(ls -A "$TMPDIR")" ] && break; sleep 0.1; done
if [ -n "$(ls -A "$TMPDIR")" ]; then
  echo "left behind by the targets:"; ls -la "$TMPDIR"
  failed=1
fi
exit "$failed"
