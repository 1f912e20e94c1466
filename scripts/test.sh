#!/usr/bin/env bash
# Sets up the machine, builds Sentrel natively and for Windows, and runs every test: the native
# tests directly, the Windows tests under Wine in a private prefix inside the build tree.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc 2>/dev/null || echo 2)

echo "== installing what is missing"
bash scripts/setup.sh

# The native tree is built as a packager builds it, so the optimisation level that ships is the
# one tested; warnings are errors.
echo "== native build (build/native, Release)"
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=Release -DSENTREL_WERROR=ON >/dev/null
cmake --build build/native -j"$jobs"

echo "== native tests"
ctest --test-dir build/native --output-on-failure -j"$jobs" --timeout 300

echo "== Windows build (build/windows, mingw-w64)"
cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSENTREL_WERROR=ON >/dev/null
cmake --build build/windows -j"$jobs"

echo "== Windows tests under Wine"
# A hang under Wine fails its test rather than stalling the run.
ctest --test-dir build/windows --output-on-failure -j"$jobs" --timeout 300
