#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages libzelvaextproperty0, libzelvaextproperty-dev and
# extprop-sim with dpkg-buildpackage from a scratch copy of the working tree
# (the files git tracks or would track), so that neither the package build nor
# the .deb files, which dpkg-buildpackage writes beside the source directory,
# land in the repository; then runs lintian on them.
#   scripts/build-debs.sh [OUTDIR]      the .deb files go to OUTDIR, default build-deb/
# Exits non-zero when the build fails or lintian reports an error.
set -euo pipefail
cd "$(dirname "$0")/.."
out="$(realpath -m "${1:-build-deb}")"

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
src="$scratch/zelvaextproperty"
mkdir -p "$src" "$out"
git ls-files -z --cached --others --exclude-standard |
  tar --null --files-from=- --create --file=- | tar --extract --file=- --directory="$src"

(cd "$src" && dpkg-buildpackage -us -uc -b -j"${JOBS:-2}")
rm -f "$out"/*.deb "$out"/*.ddeb "$out"/*.changes "$out"/*.buildinfo
mv "$scratch"/*.deb "$scratch"/*.changes "$scratch"/*.buildinfo "$out"/
mv "$scratch"/*.ddeb "$out"/ 2>/dev/null || true

changes=("$out"/*.changes)
lintian --fail-on error "${changes[@]}"
ls -1 "$out"/*.deb
