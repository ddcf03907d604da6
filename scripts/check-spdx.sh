#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Lists the source files that lack the line "SPDX-License-Identifier: Apache-2.0"
# and exits 1 when there are any.
#   scripts/check-spdx.sh          list them
#   scripts/check-spdx.sh --fix    add the line to each, in the file's comment
#                                  syntax, as its first line (after a #! line)
# Source files are the files git tracks or would track (not ignored), by name;
# the device trees under examples/ and the fuzz corpora are data, not source.
set -euo pipefail
cd "$(dirname "$0")/.."

fix=false
case "${1:-}" in
  "") ;;
  --fix) fix=true ;;
  *) echo "check-spdx.sh: unknown argument '$1'" >&2; exit 2 ;;
esac

identifier="SPDX-License-Identifier: Apache-2.0"

# The license line for a file in its comment syntax; empty for files that are
# not source.
license_line() {
  case "$1" in
    examples/* | fuzz/corpus/*) ;;
    *.cpp | *.cc | *.c | *.h | *.hpp | *.h.in | Android.bp | */Android.bp | TEST_MAPPING | */TEST_MAPPING)
      echo "// $identifier" ;;
    *.map) echo "/* $identifier */" ;;
    *.sh | *.py | *.cmake | *.cmake.in | *.pc.in | CMakeLists.txt | */CMakeLists.txt | \
      *.bash-completion | .ci/run | debian/rules)
      echo "# $identifier" ;;
  esac
}

missing=0
while IFS= read -r -d '' file; do
  [ -f "$file" ] || continue
  line="$(license_line "$file")"
  [ -n "$line" ] || continue
  if head -n 5 "$file" | grep -qF "$identifier"; then continue; fi
  missing=$((missing + 1))
  echo "$file"
  if $fix; then
    if head -n 1 "$file" | grep -q '^#!'; then
      sed -i "1a $line" "$file"
    else
      sed -i "1i $line" "$file"
    fi
  fi
done < <(git ls-files -z --cached --others --exclude-standard)

if [ "$missing" -gt 0 ] && ! $fix; then
  echo "$missing file(s) without \"$identifier\" (scripts/check-spdx.sh --fix adds it)" >&2
  exit 1
fi
