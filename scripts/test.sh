#!/usr/bin/env bash
# Sets up (packages, build) and runs the whole test suite. Extra arguments
# go to CMake.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"
bash "$root/scripts/setup.sh" "$@"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
