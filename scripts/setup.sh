#!/usr/bin/env bash
# Installs the Debian packages Meridian needs (only those missing), then
# configures and builds. Extra arguments go to CMake.
#   MERIDIAN_BUILD_DIR  build directory (default: build)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"

packages=(build-essential cmake libeigen3-dev libopencv-dev libcli11-dev
          libgtest-dev googletest libbenchmark-dev libtinyobjloader-dev
          libdlib-dev libdlib-data libopenexr-dev python3-numpy python3-skimage)
# The CI stages beyond the test suite (.ci/run sets MERIDIAN_CI_PACKAGES=1):
# Python tests, install check, Windows cross-build, fuzzing, valgrind.
if [ "${MERIDIAN_CI_PACKAGES:-0}" = 1 ]; then
  packages+=(python3 python3-pytest pkgconf g++-mingw-w64-x86-64 clang-14
             libclang-rt-14-dev valgrind)
fi
missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release "$@"
cmake --build "$build" -j"$(nproc)"
