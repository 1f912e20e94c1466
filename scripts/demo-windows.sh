#!/usr/bin/env bash
# The main job on Windows, under Wine: builds Sentrel64.dll, the example client and the sentrel
# tool with mingw-w64, registers the component in a private Wine prefix, and runs the example
# client in two processes: one waits for a policy change, the other publishes a policy; the first
# receives the change event and decides URLs under the new policy. Last, the sentrel tool asks the
# registered component.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/demo-windows
jobs=$(nproc 2>/dev/null || echo 2)

echo "== installing what is missing"
bash scripts/setup.sh

echo "== building Sentrel64.dll, the example client and the sentrel tool ($build, mingw-w64)"
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSENTREL_WERROR=ON >/dev/null
cmake --build "$build" -j"$jobs" --target Sentrel64 sentrel_client sentrel >/dev/null

# Every Windows program runs under Wine in the demo's own prefix, created on first use; its server
# runs until the demo ends.
export SENTREL_WINEPREFIX=$PWD/$build/wineprefix
wine_run() { cmake/wine-run.sh "$@"; }
echo "== starting Wine in $SENTREL_WINEPREFIX"
wine_run --start
# The Windows path of a file: Wine's drive Z: is the root of the file system.
windows_path() { realpath "$1" | sed 's|/|\\|g; s|^|Z:|'; }
# Shows a program's output, CR LF line ends and all, under a label.
label() { tr -d '\r' | sed "s/^/  $1 | /"; }

dll=$(windows_path "$build/src/module/Sentrel64.dll")
client=$(windows_path "$build/examples/client/sentrel_client.exe")
tool=$(windows_path "$build/tools/sentrel.exe")
policy=$(windows_path examples/policies/school-whitelist.xml)
urls=("https://www.encyclopedia.example/wiki/Photosynthesis" "http://learn.example.org/maths/"
      "http://learn.example.org/music/" "http://games.example/" "about:blank")

# Wine's COM reads the classes of the machine only (not HKEY_CURRENT_USER\Software\Classes), so
# in this private prefix the component is registered machine-wide; on Windows
# "regsvr32 /n /i:user Sentrel64.dll" registers it for the current user alone.
echo "== registering $dll"
wine_run regsvr32 /s "$dll"
wine_run reg query 'HKCR\Sentrel.WebFilterManager\CLSID' | tr -d '\r' | grep -i reg_sz |
  sed 's/^ */  Sentrel.WebFilterManager -> CLSID /; s/(Default) *REG_SZ *//'

watcher_log=$(mktemp)
trap 'rm -f "$watcher_log"' EXIT

echo "== process 1 (watcher): decides URLs, then waits for a policy change"
wine_run "$client" watch --timeout 30 "${urls[@]}" >"$watcher_log" 2>&1 &
watcher=$!
for _ in $(seq 300); do
  grep -q "waiting for a policy change" "$watcher_log" && break
  kill -0 "$watcher" 2>/dev/null || break
  sleep 0.1
done

echo "== process 2 (publisher): sets $policy"
wine_run "$client" publish "$policy" policy 3 2>&1 | label publisher

status=0
wait "$watcher" || status=$?
label watcher <"$watcher_log"
if [ "$status" -ne 0 ]; then
  echo "the watcher ended with status $status" >&2
  exit "$status"
fi

echo "== the sentrel tool asks the registered component (check --com)"
wine_run "$tool" check --com --policy "$(windows_path examples/policies/office-blacklist.xml)" \
  "http://games.example/" "https://www.video.example/watch/1" "http://news.example/" |
  label "sentrel --com"

WINEPREFIX=$SENTREL_WINEPREFIX wineserver -k 2>/dev/null || true
