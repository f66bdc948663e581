#!/usr/bin/env bash
# Runs the Windows build under Wine beside the Linux build, on one demo model
# set and one demo capture:
#   - the C consumer (tests/consumer/consumer.c) cross-built against
#     meridian.dll, and the same program built for Linux (meridian_reference):
#     every output file byte-identical, but for the line ends of the text file
#     the debug writer writes (CRLF on Windows, in text mode);
#   - the frame selection on both with the provider double (libcv_face.dll /
#     libcv_face.so) replaying the landmarks the real provider found on the
#     capture: the same four frames chosen.
# Needs the Linux build (MERIDIAN_BUILD_DIR, default build/) and the
# cross-build of scripts/check_windows.sh (MERIDIAN_WINDOWS_BUILD_DIR,
# default build-windows/).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"
windows="${MERIDIAN_WINDOWS_BUILD_DIR:-$root/build-windows}"
triple=x86_64-w64-mingw32
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine="$(command -v wine64 || command -v wine)"

wineserver="$(dirname "$wine")/wineserver"
[ -x "$wineserver" ] || wineserver="$(command -v wineserver)"

work="$(mktemp -d)"
export WINEPREFIX="$work/wine-prefix" WINEDEBUG=-all
cleanup() {
  "$wineserver" -k >/dev/null 2>&1 || true
  "$wineserver" -w >/dev/null 2>&1 || true
  rm -rf "$work" || true
}
trap cleanup EXIT

# The Windows programs, in one folder: the provider double sits beside the
# DLL, where the library looks for it.
mkdir -p "$work/windows"
cp "$windows/bin/meridian.dll" "$work/windows/"
$triple-g++-posix -std=c++17 -O2 -shared -static -I"$root/include" \
  -o "$work/windows/libcv_face.dll" "$root/tests/provider_double/cv_face_double.cpp"
import_library="$(find "$windows" -name libmeridian.dll.a -print -quit)"
$triple-gcc -std=c99 -O2 -Wall -Wextra -Werror -I"$root/include" -I"$windows/include" \
  -o "$work/windows/consumer.exe" "$root/tests/consumer/consumer.c" "$import_library"

# The inputs, written by the Linux tool; the landmarks of the capture as the
# real provider finds them.
"$build/bin/meridian" demo --out "$work/model" >/dev/null
"$build/bin/meridian" rgbd-demo --out "$work/capture" >/dev/null
"$build/bin/meridian_record_landmarks" "$build/lib/libcv_face.so" "$work/capture" \
  >"$work/replay.txt"
export CV_FACE_DOUBLE_REPLAY="$work/replay.txt"

mkdir -p "$work/out-linux" "$work/out-windows"
LD_LIBRARY_PATH="$build/lib/provider-double" "$build/bin/meridian_reference" "$work/model" \
  --out "$work/out-linux" --capture "$work/capture" </dev/null
"$wine" "$work/windows/consumer.exe" "$work/model" --out "$work/out-windows" \
  --capture "$work/capture" </dev/null | tr -d '\r'

status=0
for linux_file in "$work/out-linux"/*; do
  name="$(basename "$linux_file")"
  windows_file="$work/out-windows/$name"
  if [ ! -f "$windows_file" ]; then
    echo "missing on Windows: $name"
    status=1
  elif [[ "$name" == *.obj ]]; then
    # Text written in text mode: CRLF on Windows.
    if ! grep -q $'\r$' "$windows_file" || ! cmp -s <(tr -d '\r' <"$windows_file") "$linux_file"; then
      echo "differs (beyond CRLF line ends): $name"
      status=1
    fi
  elif ! cmp -s "$linux_file" "$windows_file"; then
    echo "differs: $name"
    status=1
  fi
done
[ "$(ls "$work/out-linux" | wc -l)" = "$(ls "$work/out-windows" | wc -l)" ] || status=1
echo "compared: $(ls "$work/out-linux" | tr '\n' ' ')"
[ "$status" = 0 ] && echo "Windows and Linux outputs agree"
exit "$status"
