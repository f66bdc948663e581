#!/usr/bin/env bash
# Installs a built tree into a fresh prefix and uses it as an outsider would:
# the consumer program built once with find_package(Meridian) and once with
# pkg-config, both run on a demo model set and a demo capture written by the
# installed tool (the frame selection through the installed landmark
# provider), the modern consumer built both ways on the same model set, the
# SONAMEs and the modern library's exports checked, and the installed Python
# package imported, and the documentation and manual pages are in place.
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

major="$(sed -n 's/#define MERIDIAN_VERSION_MAJOR //p' "$prefix/include/meridian/version.h")"
for library in meridian meridian_api; do
  soname="$(objdump -p "$libdir/lib$library.so" | awk '$1 == "SONAME" { print $2 }')"
  [ "$soname" = "lib$library.so.$major" ] || { echo "SONAME is '$soname'"; exit 1; }
  echo "SONAME $soname"
done
# The modern library exports its own names only, none of the legacy table.
if nm -D --defined-only "$libdir/libmeridian_api.so" | awk '{ print $3 }' | grep -v '^meridian_'; then
  echo "libmeridian_api exports names outside meridian_*"
  exit 1
fi

[ -f "$libdir/libcv_face.so" ] || { echo "no landmark provider in $libdir"; exit 1; }
"$prefix/bin/meridian" demo --out "$work/model" >/dev/null
"$prefix/bin/meridian" rgbd-demo --out "$work/capture" >/dev/null
# The demo capture's four frames are known: the blurred one of each bucket.
expect_choice() {
  grep -q '^rgbd: final 1, chosen ids 1 5 10 14$' "$1" || { echo "wrong frame choice"; exit 1; }
}

cmake -S "$root/tests/consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
echo "find_package build:"
"$work/cmake-build/meridian_consumer" "$work/model" --capture "$work/capture" </dev/null \
  | tee "$work/find_package.out"
expect_choice "$work/find_package.out"
echo "find_package build of the modern consumer:"
"$work/cmake-build/meridian_modern_consumer" "$work/model"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046  # the flags are meant to split
cc -std=c99 -Wall -Wextra -Werror -o "$work/pkg-config-consumer" \
  "$root/tests/consumer/consumer.c" $(pkg-config --cflags --libs meridian) -lm
echo "pkg-config build ($(pkg-config --modversion meridian)):"
mkdir -p "$work/outputs"
LD_LIBRARY_PATH="$libdir" "$work/pkg-config-consumer" "$work/model" --out "$work/outputs" \
  --capture "$work/capture" </dev/null | tee "$work/pkg-config.out"
expect_choice "$work/pkg-config.out"
cc -std=c99 -Wall -Wextra -Werror -o "$work/pkg-config-modern-consumer" \
  "$root/tests/consumer/modern_consumer.c" $(pkg-config --cflags --libs meridian_api) -lm
echo "pkg-config build of the modern consumer:"
LD_LIBRARY_PATH="$libdir" "$work/pkg-config-modern-consumer" "$work/model"

# The documentation: the pages, the README, both references (when the
# meridian_docs target was built) and the manual pages.
for file in share/doc/meridian/README.md share/doc/meridian/docs/cli.md share/doc/meridian/docs/install.md \
            share/man/man1/meridian.1 share/man/man1/meridian-batch.1; do
  [ -f "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done
if [ -d "$build/docs/c/html" ]; then
  for file in share/doc/meridian/c/index.html share/doc/meridian/python/meridian.html; do
    [ -f "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
  done
fi

python_dir="$(find "$prefix" -type d -name dist-packages | head -1)"
PYTHONPATH="$python_dir" /usr/bin/python3 -c '
import sys, meridian
from meridian import rgbd
print("python package uses", meridian.library_path())
problem = rgbd.provider_problem(sys.argv[1])
print("its landmark provider:", problem or "loads")
sys.exit(problem is not None)' "$work/model"
