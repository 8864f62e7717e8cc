#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are missing.
# Usage: install-deps.sh [build|bench]  (bench adds OpenCV and Google Benchmark)
set -euo pipefail

packages=(g++ cmake ninja-build make pkg-config libgtest-dev libgmock-dev
          libcfitsio-dev libtiff-dev libpng-dev)
if [ "${1:-build}" = bench ]; then
  packages+=(libbenchmark-dev libopencv-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "Missing packages. Install them with:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
