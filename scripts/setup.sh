#!/usr/bin/env bash
# Installs the Debian packages that building and testing Sentrel needs, when they are missing.
# Idempotent: packages already present are left alone.
set -euo pipefail

packages=(cmake g++ clang libclang-rt-14-dev clang-format libgtest-dev googletest libbenchmark-dev
          mingw-w64 mingw-w64-tools wine wine64 libwine-dev libcli11-dev nlohmann-json3-dev)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all required packages are installed"
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup: missing packages: ${missing[*]}; run this script as root to install them" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -q --no-install-recommends "${missing[@]}"
echo "setup: done"
