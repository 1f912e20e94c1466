#!/usr/bin/env bash
# Builds the portable core and its tests with clang under ASan+UBSan, runs the tests, and runs
# each libFuzzer target for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc 2>/dev/null || echo 2)
fuzz_seconds=${SENTREL_FUZZ_SECONDS:-60}

echo "== sanitizer build (build/sanitize, clang)"
cmake -S . -B build/sanitize -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Debug -DSENTREL_SANITIZE=ON -DSENTREL_FUZZ=ON \
  -DSENTREL_WERROR=ON >/dev/null
cmake --build build/sanitize -j"$jobs"

echo "== tests under ASan+UBSan"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize --output-on-failure -j"$jobs"

for fuzzer in build/sanitize/fuzz/fuzz_*; do
  [ -x "$fuzzer" ] || continue
  name=$(basename "$fuzzer")
  corpus=build/sanitize/fuzz/corpus-$name
  mkdir -p "$corpus"
  options=(-max_total_time="$fuzz_seconds" -rss_limit_mb=2048 -print_final_stats=1)
  [ -f fuzz/"$name".dict ] && options+=(-dict=fuzz/"$name".dict)
  inputs=("$corpus")
  [ -d fuzz/seeds/"$name" ] && inputs+=(fuzz/seeds/"$name")
  echo "== $name for ${fuzz_seconds}s"
  "$fuzzer" "${options[@]}" "${inputs[@]}" 2>&1 | tail -n 12
done
