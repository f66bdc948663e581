#!/usr/bin/env bash
# The whole test suite once under valgrind's memcheck, in its own build
# (build-valgrind/, RelWithDebInfo): any memcheck error or definite leak, in
# a test program or in the `meridian` tool it starts, fails the test. Tests
# labelled "slow" are left out (ctest -LE slow); the soak test runs
# MERIDIAN_SOAK_CYCLES cycles here (default 300) instead of 10,000.
#   MERIDIAN_VALGRIND_BUILD_DIR  build directory (default: build-valgrind)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_VALGRIND_BUILD_DIR:-$root/build-valgrind}"
wrapper="valgrind;--tool=memcheck;-q;--error-exitcode=99;--leak-check=full"
wrapper+=";--errors-for-leak-kinds=definite,indirect;--trace-children=yes"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMERIDIAN_BUILD_BENCH=OFF \
  -DMERIDIAN_TEST_WRAPPER="$wrapper" >/dev/null
cmake --build "$build" -j"$(nproc)"
MERIDIAN_SOAK_CYCLES="${MERIDIAN_SOAK_CYCLES:-300}" \
  ctest --test-dir "$build" -LE slow --output-on-failure -j"$(nproc)" --timeout 1800
