#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what a fresh Debian bookworm machine lacks to build, test, fuzz and
# benchmark the project. Safe to run again.
set -euo pipefail

packages=(
  build-essential cmake          # compilers, make, CMake 3.25
  binutils                       # nm, for the exported-symbol check
  android-libbase-dev android-liblog-dev libfmt-dev  # Android's base library and logger
  android-libselinux-dev         # the simulator's property-contexts check (libselinux's backend)
  libcli11-dev nlohmann-json3-dev  # extprop-sim's command line and --json documents
  libgtest-dev libgmock-dev      # the test suite
  python3-jsonschema             # the test suite's check of the --json documents
  libbenchmark-dev               # bench/
  clang libclang-rt-14-dev       # libFuzzer targets
  python3                        # bench/ tree generator
  util-linux procps              # setpriv and pgrep, for the unprivileged sandbox tests
  help2man man-db                # extprop-sim's man page: generated, then read in CI
  pkg-config                     # the consumer test's pkg-config half
  debhelper dpkg-dev fakeroot lintian  # the Debian packages (scripts/build-debs.sh)
  bash-completion                # CI's check of the installed completion
  chromium                       # renders boot --html pages in the browser test
)

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${packages[@]}"
