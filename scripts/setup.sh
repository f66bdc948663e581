#!/usr/bin/env bash
# Installs the Debian packages Meridian needs (only those missing), then
# configures and builds. Extra arguments go to CMake.
#   MERIDIAN_BUILD_DIR  build directory (default: build)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"

packages=(build-essential cmake libeigen3-dev libopencv-dev libcli11-dev
          libgtest-dev googletest libbenchmark-dev libtinyobjloader-dev
          libdlib-dev libdlib-data libopenexr-dev libtinygltf-dev python3-numpy python3-skimage)
# The CI stages beyond the test suite (.ci/run sets MERIDIAN_CI_PACKAGES=1):
# Python tests, install check, docs check, Windows cross-build, fuzzing, valgrind.
if [ "${MERIDIAN_CI_PACKAGES:-0}" = 1 ]; then
  packages+=(python3 python3-pytest python3-dask python3-distributed python3-tqdm pkgconf doxygen
             g++-mingw-w64-x86-64 libstb-dev wine64 libtinyexr-dev libz-mingw-w64-dev
             nlohmann-json3-dev
             clang-14 libclang-rt-14-dev valgrind)
  # node runs the glTF validator of the export test; a node from elsewhere
  # (with its own npm) is kept.
  command -v node >/dev/null 2>&1 || packages+=(nodejs npm)
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

# The Khronos glTF validator (npm), into the folder the export test reads
# (.ci/run names it); skipped when it is already there.
validator="${MERIDIAN_GLTF_VALIDATOR_DIR:-}"
if [ -n "$validator" ] && [ ! -f "$validator/node_modules/gltf-validator/package.json" ]; then
  echo "installing gltf-validator into $validator"
  npm install --silent --no-audit --no-fund --prefix "$validator" gltf-validator@2.0.0-dev.3.10
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release "$@"
cmake --build "$build" -j"$(nproc)"
