#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a built tree into a temporary prefix, builds this directory's
# consumer project against it (CMake package and pkg-config) and runs its
# hosts, then runs the installed extprop-sim; all without LD_LIBRARY_PATH.
#   tests/consumer/run.sh BUILD_DIR LIBDIR BINDIR DATADIR
# LIBDIR, BINDIR, DATADIR: the build's install directories, relative to the prefix.
set -euo pipefail
build="$1" libdir="$2" bindir="$3" datadir="$4"
here="$(cd "$(dirname "$0")" && pwd)"
unset LD_LIBRARY_PATH

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" PKG_CONFIG_LIBDIR="" \
  cmake -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build" -j 2 >/dev/null
# Their stderr holds the library's log; shown only when a host fails.
for host in init_host_cmake linked_host_cmake init_host_pkgconfig linked_host_pkgconfig; do
  "$work/build/$host" 2>"$work/$host.log" || { echo "$host failed:"; cat "$work/$host.log"; exit 1; }
done

# The installed simulator finds its library by itself, wherever the prefix is.
sim="$prefix/$bindir/extprop-sim"
"$sim" --version
examples="$prefix/$datadir/extprop-sim/examples"
"$sim" parse "$examples/alder-eu/my_region/build.prop" >/dev/null
if unshare --mount true 2>/dev/null || unshare --user --map-root-user --mount true 2>/dev/null; then
  "$sim" boot --root "$examples/alder-eu" --props "$examples/alder-eu.props" >/dev/null 2>&1 ||
    { echo "installed extprop-sim boot failed:"; "$sim" boot --root "$examples/alder-eu" \
        --props "$examples/alder-eu.props" 2>&1 | tail -n 5; exit 1; }
  echo "installed extprop-sim boots $examples/alder-eu"
elif [ "${CI:-}" = true ]; then
  echo "no mount namespace for the installed extprop-sim boot"; exit 1
else
  echo "skipped the installed extprop-sim boot: no mount namespace"
fi
