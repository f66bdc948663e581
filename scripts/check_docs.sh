#!/usr/bin/env bash
# Checks the documentation against a built tree:
#   - the README's quick start runs as written: its fenced sh and python
#     blocks, in order, in one shell started at the repository root (the
#     first block points the shell at the build and moves to a scratch
#     directory holding the demo model set);
#   - every relative link in the README and docs/ names a file that exists,
#     and every #anchor a heading of that file;
#   - the manual page of `meridian` names every command and option its
#     --help lists;
#   - the C reference builds with Doxygen without a warning, and the Python
#     reference with pydoc (the meridian_docs target).
#   MERIDIAN_BUILD_DIR  the build to use (default: build)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_BUILD_DIR:-$root/build}"
python=/usr/bin/python3

echo "--- links"
"$python" "$root/scripts/docs_links.py" "$root"

echo "--- manual page"
"$python" "$root/scripts/docs_manpage.py" "$build/bin/meridian" "$root/docs/man/meridian.1"

echo "--- README quick start"
# The quick start makes its scratch directory with mktemp; it lives here
# and goes when the check ends.
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
script="$scratch/quick_start.sh"
"$python" "$root/scripts/docs_quickstart.py" "$root/README.md" >"$script"
# The README's commands use build/; another build directory stands in for it.
if [ "$build" != "$root/build" ]; then
  sed -i "s|\$MERIDIAN_ROOT/build|$build|g" "$script"
fi
# The quick start is written for Debian's python3 (numpy, dask), which comes
# first on the path here as on a fresh machine.
(cd "$root" && PATH="/usr/bin:$PATH" TMPDIR="$scratch" env -u MERIDIAN_LIBRARY bash "$script")

echo "--- references"
command -v doxygen >/dev/null || { echo "doxygen is needed for the C reference"; exit 1; }
cmake --build "$build" --target meridian_docs
# The pages are installed: they name modules by their place in the package,
# not by where this machine keeps the sources.
if grep -l "$root/python" "$build"/docs/python/*.html; then
  echo "the Python reference names source paths of this machine (above)"
  exit 1
fi
echo "docs: ok"
