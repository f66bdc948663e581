#!/usr/bin/env bash
# The whole test suite once under valgrind's memcheck, in its own build
# (build-valgrind/, RelWithDebInfo): any memcheck error or definite leak, in
# a test program or in the `meridian` tool it starts, fails the test. Every
# test runs; the soak test runs fewer cycles here (MERIDIAN_SOAK_CYCLES,
# default 300 instead of 10,000, and MERIDIAN_SOAK_BLENDSHAPE_CYCLES,
# default 4 instead of 40): the cycles and handle checks stay, its memory
# bounds are for the plain allocator and are skipped under valgrind anyway.
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
MERIDIAN_SOAK_BLENDSHAPE_CYCLES="${MERIDIAN_SOAK_BLENDSHAPE_CYCLES:-4}" \
  ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 1800
