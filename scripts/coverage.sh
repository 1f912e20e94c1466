#!/usr/bin/env bash
# Line and branch coverage of the portable core (src/search, src/text, src/policy, src/module/log) by the
# native tests, with clang's source-based coverage. Builds in build/coverage; the report is
# printed and the per-line view is left in build/coverage/html.
#   scripts/coverage.sh [-jN]
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${1:--j2}
dir=build/coverage

# Debian names the LLVM tools after their version when the plain names are missing.
tool() { command -v "$1" || command -v "$1-14" || { echo "coverage: $1 not found" >&2; exit 1; }; }
profdata=$(tool llvm-profdata)
cov=$(tool llvm-cov)

# No ccache here: its relative paths would give one source several names in the report.
flags="-fprofile-instr-generate -fcoverage-mapping"
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" -DSENTREL_BENCH=OFF \
  >/dev/null
cmake --build "$dir" "$jobs" --target core_tests tools_tests

rm -f "$dir"/*.profraw
for program in core_tests tools_tests; do
  LLVM_PROFILE_FILE="$PWD/$dir/$program.profraw" "$dir/tests/$program" --gtest_brief=1 >/dev/null
done
"$profdata" merge -sparse "$dir"/*.profraw -o "$dir/tests.profdata"

core=("$PWD/src/search" "$PWD/src/text" "$PWD/src/policy" "$PWD/src/module/log")
objects=("$dir/tests/core_tests" -object "$dir/tests/tools_tests")
"$cov" report "${objects[@]}" -instr-profile="$dir/tests.profdata" "${core[@]}"
"$cov" show "${objects[@]}" -instr-profile="$dir/tests.profdata" -format=html \
  -output-dir="$dir/html" "${core[@]}"
