#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer (build-fuzz/), and runs each for
# MERIDIAN_FUZZ_SECONDS (default 60), two at a time, from the seed corpus in
# fuzz/corpus/. Any finding (crash, sanitizer report, leak, timeout, memory
# above the limit) fails; its input is kept in build-fuzz/findings/<target>/
# and belongs in fuzz/regressions/<target>/ with the fix.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${MERIDIAN_FUZZ_BUILD_DIR:-$root/build-fuzz}"
seconds="${MERIDIAN_FUZZ_SECONDS:-60}"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DMERIDIAN_BUILD_FUZZERS=ON -DMERIDIAN_BUILD_TESTS=OFF -DMERIDIAN_BUILD_BENCH=OFF \
  -DMERIDIAN_BUILD_TOOLS=OFF -DMERIDIAN_WITH_OPENCV=ON >/dev/null
cmake --build "$build" --target meridian_fuzzers -j"$(nproc)"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

run_target() {
  local name="$1" corpus="$build/corpus/$1" findings="$build/findings/$1" dict=()
  mkdir -p "$corpus" "$findings"
  [ -f "$root/fuzz/$name.dict" ] && dict=(-dict="$root/fuzz/$name.dict")
  # The working corpus grows in the build tree; the seeds stay as they are.
  if "$build/bin/fuzz_$name" "$corpus" "$root/fuzz/corpus/$name" "${dict[@]}" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
      -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$findings/" \
      >"$build/fuzz-$name.log" 2>&1; then
    echo "fuzz $name: $(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' \
      "$build/fuzz-$name.log" | grep -o '[0-9]*$') runs, no finding"
  else
    echo "fuzz $name: FINDING (log: $build/fuzz-$name.log)"
    tail -40 "$build/fuzz-$name.log"
    ls "$findings"
    return 1
  fi
}
export -f run_target
export build root seconds

failed=0
xargs -P 2 -I{} bash -c 'run_target {}' <"$build/fuzz/targets.txt" || failed=1
if [ "$failed" -ne 0 ]; then
  echo "fuzzing found inputs that fail; copy them to fuzz/regressions/<target>/ with the fix"
  exit 1
fi
