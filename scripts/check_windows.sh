#!/usr/bin/env bash
# Cross-builds meridian.dll and meridian_api.dll (the modern interface) for
# 64-bit Windows with Debian's mingw-w64, then checks the legacy DLL's export
# table against
# cmake/meridian.def (and the .def file's names against the ELF version
# script cmake/meridian.map). The checker itself is first tried on a small probe DLL
# with an alias, so an alias that lands on its own address would be caught.
#   MERIDIAN_WINDOWS_BUILD_DIR  build directory (default: build-windows)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_WINDOWS_BUILD_DIR:-$root/build-windows}"
triple=x86_64-w64-mingw32
check="/usr/bin/python3 $root/scripts/check_dll_exports.py --objdump $triple-objdump"

probe="$build/export-probe"
mkdir -p "$probe"
cat >"$probe/probe.c" <<'EOF'
__declspec(dllexport) int probe_one(void) { return 1; }
__declspec(dllexport) int probe_two(void) { return 2; }
EOF
printf 'LIBRARY probe\nEXPORTS\n    probe_one\n    probe_two\n    probe_alias = probe_one\n' \
  >"$probe/probe.def"
printf 'LIBRARY probe\nEXPORTS\n    probe_one\n    probe_two = probe_one\n    probe_alias = probe_one\n' \
  >"$probe/wrong.def"
$triple-gcc -shared -O2 -o "$probe/probe.dll" "$probe/probe.c" "$probe/probe.def"
$check "$probe/probe.dll" "$probe/probe.def"
if $check "$probe/probe.dll" "$probe/wrong.def" >/dev/null; then
  echo "the export check accepted two distinct functions as one entry point"
  exit 1
fi

cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE=Release ${MERIDIAN_CMAKE_ARGS:-} >/dev/null
cmake --build "$build" -j"$(nproc)"
# All 24 exports, the alias pair at one address.
$check "$build/bin/meridian.dll" "$root/cmake/meridian.def" --map "$root/cmake/meridian.map"
# The modern interface's DLL exports its meridian_* names and nothing else
# (none of the legacy table).
modern_exports="$($triple-objdump -p "$build/bin/meridian_api.dll" |
  awk '/\[Ordinal\/Name Pointer\] Table/ { table = 1; next } table && NF == 0 { table = 0 }
       table { print $NF }')"
[ -n "$modern_exports" ] || { echo "meridian_api.dll exports nothing"; exit 1; }
if grep -v '^meridian_' <<<"$modern_exports"; then
  echo "meridian_api.dll exports names outside meridian_*"
  exit 1
fi
echo "meridian_api.dll: $(wc -l <<<"$modern_exports") meridian_* exports"
# Nothing to ship beside the DLLs but the system's own.
for dll in meridian.dll meridian_api.dll; do
  $triple-objdump -p "$build/bin/$dll" | awk -v dll="$dll" '/DLL Name:/ { print dll " imports " $3 }'
done
