#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's private prefix, creating the prefix on
# first use. ctest calls this as the cross-compiling emulator.
#   wine-run.sh --start   brings the prefix's server and its own processes up for a test run
#   wine-run.sh PROGRAM [ARGUMENT ...]
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

if [ "${1:-}" = --start ]; then
  # The server and the processes Wine starts on its own (services, devices, the desktop) keep the
  # output of whichever program started them open, and ctest waits for a test's output to close.
  # Started here, detached from any test's output, and kept for a minute after the last program
  # has ended, they serve the whole run.
  wineserver -p60 </dev/null >/dev/null 2>&1 || true
  wine cmd /c exit 0 </dev/null >/dev/null 2>&1
  exit 0
fi
exec wine "$@"
