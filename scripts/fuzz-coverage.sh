#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets with clang source-based coverage in build-cov/, replays each
# target's committed corpus (fuzz/corpus/<target>/, or the directories given) once, and prints
# line and function coverage per library file, all targets together.
#   scripts/fuzz-coverage.sh                 the committed corpora
#   scripts/fuzz-coverage.sh CORPUS_ROOT     CORPUS_ROOT/<target>/ instead
# Leaves the merged profile in build-cov/coverage/fuzz.profdata.
set -euo pipefail
cd "$(dirname "$0")/.."
corpus_root="${1:-$PWD/fuzz/corpus}"
corpus_root="$(cd "$corpus_root" && pwd)"
build="$PWD/build-cov"
llvm_profdata="$(command -v llvm-profdata-14 || command -v llvm-profdata)"
llvm_cov="$(command -v llvm-cov-14 || command -v llvm-cov)"

CC=clang CXX=clang++ cmake -S . -B "$build" -DZELVA_BUILD_FUZZERS=ON -DZELVA_COVERAGE=ON \
  -DZELVA_SANITIZE= -DZELVA_BUILD_TESTS=OFF -DZELVA_BUILD_TOOLS=OFF -DZELVA_BUILD_BENCH=OFF \
  >/dev/null
mapfile -t targets < <(sed -n 's/^zelva_fuzzer(\([A-Za-z0-9_]*\).*/\1/p' fuzz/CMakeLists.txt)
cmake --build "$build" -j 2 --target "${targets[@]}" >/dev/null

profiles="$build/coverage"
rm -rf "$profiles"
mkdir -p "$profiles"
objects=()
for target in "${targets[@]}"; do
  [ -d "$corpus_root/$target" ] || { echo "$target: no corpus in $corpus_root" >&2; continue; }
  # -runs=0 runs every input of the corpus once. The corpus and the profile are in the working
  # directory, the one place of the host that stays reachable from inside a device root.
  cp -R "$corpus_root/$target" "$profiles/corpus-$target"
  (cd "$profiles" && LLVM_PROFILE_FILE="$profiles/$target-%p.profraw" \
      "$build/bin/$target" -runs=0 "corpus-$target" >"$profiles/$target.log" 2>&1) ||
    { echo "$target: replay failed (see $profiles/$target.log)" >&2; exit 1; }
  objects+=(-object "$build/bin/$target")
done
"$llvm_profdata" merge -sparse "$profiles"/*.profraw -o "$profiles/fuzz.profdata"
# The first -object is the binary itself: drop its leading "-object".
"$llvm_cov" report "${objects[@]:1}" -instr-profile="$profiles/fuzz.profdata" \
  "$PWD/system/core_common/extproperty" | sed "s|$PWD/system/core_common/extproperty/||"
