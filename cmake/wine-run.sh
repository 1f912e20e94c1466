#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's private prefix, creating the prefix on
# first use. ctest calls this as the cross-compiling emulator.
set -euo pipefail

prefix=${SENTREL_WINEPREFIX:-}
if [ -z "$prefix" ]; then
  # The build tree is the nearest ancestor of the current directory holding CMakeCache.txt.
  dir=$PWD
  while [ "$dir" != / ] && [ ! -f "$dir/CMakeCache.txt" ]; do dir=$(dirname "$dir"); done
  [ -f "$dir/CMakeCache.txt" ] || { echo "wine-run: no build tree above $PWD" >&2; exit 2; }
  prefix=$dir/wineprefix
fi

export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  # Two ctest jobs may arrive here together: one creates the prefix, the other waits for it.
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    wine wineboot --init >/dev/null 2>&1 || true
    wineserver -w
  fi
  flock -u 9
fi
exec wine "$@"
