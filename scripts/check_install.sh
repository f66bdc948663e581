#!/usr/bin/env bash
# Installs a built tree into a fresh prefix and uses it as an outsider would:
# the consumer program built once with find_package(Meridian) and once with
# pkg-config, both run on a demo model set written by the installed tool,
# the SONAME checked, and the installed Python package imported.
#   MERIDIAN_BUILD_DIR  the build to install (default: build)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"
work="$build/install-check"
prefix="$work/prefix"
rm -rf "$work"
mkdir -p "$work"

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir="$(dirname "$(find "$prefix" -name 'libmeridian.so' | head -1)")"

soname="$(objdump -p "$libdir/libmeridian.so" | awk '$1 == "SONAME" { print $2 }')"
major="$(sed -n 's/#define MERIDIAN_VERSION_MAJOR //p' "$prefix/include/meridian/version.h")"
[ "$soname" = "libmeridian.so.$major" ] || { echo "SONAME is '$soname'"; exit 1; }
echo "SONAME $soname"

"$prefix/bin/meridian" demo --out "$work/model" >/dev/null

cmake -S "$root/tests/consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
echo "find_package build:"
"$work/cmake-build/meridian_consumer" "$work/model"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046  # the flags are meant to split
cc -std=c99 -Wall -Wextra -Werror -o "$work/pkg-config-consumer" \
  "$root/tests/consumer/consumer.c" $(pkg-config --cflags --libs meridian) -lm
echo "pkg-config build ($(pkg-config --modversion meridian)):"
LD_LIBRARY_PATH="$libdir" "$work/pkg-config-consumer" "$work/model"

python_dir="$(find "$prefix" -type d -name dist-packages | head -1)"
PYTHONPATH="$python_dir" /usr/bin/python3 -c \
  'import meridian; print("python package uses", meridian.library_path())'
