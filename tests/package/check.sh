#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then builds and runs a
# consumer against it twice: with find_package(kt) and with pkg-config.
# Usage: check.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in include/kt/kt.h include/ktbase/refcount.h lib/cmake/kt/ktConfig.cmake lib/pkgconfig/kt.pc \
         lib/libkt.so.0 lib/libktcore.so.0 bin/kt; do
  [ -e "$work/prefix/$f" ] || { echo "missing from the install: $f"; exit 1; }
done

cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
env -u LD_LIBRARY_PATH "$work/cmake/consumer"

export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
# shellcheck disable=SC2046
c++ -std=c++17 -Wl,--as-needed "$source/consumer.cpp" -o "$work/pc-consumer" $(pkg-config --cflags --libs kt)
env -u LD_LIBRARY_PATH "$work/pc-consumer"
env -u LD_LIBRARY_PATH "$work/prefix/bin/kt" version
