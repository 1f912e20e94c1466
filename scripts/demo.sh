#!/usr/bin/env bash
# The main job on Linux: sets up what is missing, builds the sentrel tool, and decides a handful
# of URLs against a bundled example policy, then explains one decision.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "== installing what is missing"
bash scripts/setup.sh

echo "== building the sentrel tool (build/native)"
# The same settings as scripts/test.sh, which builds the same tree.
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=Release -DSENTREL_WERROR=ON >/dev/null
cmake --build build/native -j"$(nproc 2>/dev/null || echo 2)" --target sentrel >/dev/null

sentrel=build/native/tools/sentrel
policy=examples/policies/school-whitelist.xml

echo "== deciding URLs against $policy"
"$sentrel" check --policy "$policy" \
  "https://www.encyclopedia.example/wiki/Photosynthesis" \
  "http://learn.example.org/maths/fractions?level=2" \
  "http://learn.example.org/music/" \
  "http://portal.school.example:8443/timetable" \
  "http://games.example/" \
  "about:blank"

echo "== why is http://learn.example.org/music/ denied?"
"$sentrel" explain --policy "$policy" "http://learn.example.org/music/"
