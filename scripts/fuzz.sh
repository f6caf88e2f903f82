#!/usr/bin/env bash
# Builds the tar reader and pax parser fuzz targets with clang's libFuzzer
# under AddressSanitizer and UndefinedBehaviorSanitizer and runs each for a
# bounded time (seconds, default 60). Any finding fails the run.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
out="$here/build-fuzz"
mkdir -p "$out"
flags=(-g -O1 -std=c++17 -fPIC -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined
  -I"$here/src/core" $(pkg-config --cflags Qt5Core))
libs=($(pkg-config --libs Qt5Core))
common=("$here/src/core/packages/microtar.cpp" "$here/src/core/packages/paxglobal.cpp")
for target in tar pax; do
  clang++ "${flags[@]}" "$here/tests/fuzz/fuzz_$target.cpp" "${common[@]}" "${libs[@]}" -o "$out/fuzz_$target"
done
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
for target in tar pax; do
  corpus="$out/corpus_$target"
  mkdir -p "$corpus"
  echo "== fuzz_$target for ${seconds}s"
  "$out/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
    "$corpus" "$here/tests/fuzz/corpus/$target" 2>&1 | tee "$out/fuzz_$target.log" | grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|==[0-9]+==ERROR|SUMMARY)' || true
  test "${PIPESTATUS[0]}" -eq 0
done
