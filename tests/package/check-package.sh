#!/usr/bin/env bash
# Usage: check-package.sh BUILD_DIR CONSUMER_DIR
set -euo pipefail
build=$1
consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" > /dev/null
test -f "$work/prefix/include/qrnimg/qrnimg.h"

echo "== find_package"
cmake -S "$consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/cmake" > /dev/null
"$work/cmake/consumer"

echo "== pkg-config"
libdir=$(find "$work/prefix" -name qrnimg.pc -printf '%h\n' | head -n 1)
flags=$(PKG_CONFIG_PATH="$libdir" pkg-config --cflags --libs qrnimg)
# shellcheck disable=SC2086
g++ "$consumer/main.cpp" $flags -o "$work/consumer-pc"
"$work/consumer-pc"
