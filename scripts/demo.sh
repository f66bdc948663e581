#!/usr/bin/env bash
# Sets up (packages, build), writes the demo model set and runs every task
# of the library on its sample head. Results go to out/.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"
bash "$root/scripts/setup.sh"
meridian="$build/bin/meridian"
model="$root/demo-model"
out="$root/out"
mkdir -p "$out"

"$meridian" demo --out "$model"
"$meridian" swap --model "$model" --in "$model/sample_head.obj" --out "$out/head_ue4.obj"
"$meridian" tbn --model "$model" --in "$model/sample_head.obj" --out "$out/frames.ply" \
  --preview "$out/normals.png"
"$meridian" rgbd-demo --out "$out/capture"
"$meridian" rgbd-select --landmarks /usr/share/dlib --capture "$out/capture" \
  --contact-sheet "$out/rgbd_choice.png"
"$meridian" eyes --model "$model" --in "$model/sample_head.obj" --out-dir "$out/eyes"
"$meridian" blendshapes --model "$model" --in "$model/sample_head.obj" --out-dir "$out/blendshapes"
# Last: the sample head as one glTF 2.0 asset, and a picture of it read back.
"$meridian" export --model "$model" --in "$model/sample_head.obj" --out "$out/head.glb" \
  --preview "$out/head.png"
