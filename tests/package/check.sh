#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then builds an example out of
# tree against it twice, with find_package(kt) and with pkg-config, and runs
# both builds without LD_LIBRARY_PATH. Also reads the build identification
# the way its users do, with dlsym.
# Usage: check.sh BUILD_DIR PACKAGE_DIR EXAMPLE_SOURCE LIBDIR (lib, or lib/<multiarch>)
# The consumers are built as the build under test was, from its test's
# environment: KT_CXX (the compiler), KT_CXX_FLAGS, KT_CXX_STANDARD and
# KT_TOOLCHAIN (a toolchain file, or empty); KT_EMULATOR (words, or empty)
# runs what they build.
set -euo pipefail
build=$1 package=$2 example=$3 lib=$4
cxx=${KT_CXX:-c++} flags=${KT_CXX_FLAGS:-} standard=${KT_CXX_STANDARD:-17}
read -r -a emulator <<<"${KT_EMULATOR:-}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in include/kt/kt.h include/kt/url.h include/ktbase/refcount.h $lib/cmake/kt/ktConfig.cmake \
         $lib/pkgconfig/kt.pc $lib/libkt.so.0 $lib/libktcore.so.0 bin/kt share/man/man1/kt.1.gz; do
  [ -e "$work/prefix/$f" ] || { echo "missing from the install: $f"; exit 1; }
done

cmake -S "$package" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DKT_EXAMPLE="$example" \
      -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_CXX_STANDARD="$standard" \
      ${KT_TOOLCHAIN:+-DCMAKE_TOOLCHAIN_FILE="$KT_TOOLCHAIN"} >/dev/null
cmake --build "$work/cmake" >/dev/null
env -u LD_LIBRARY_PATH "${emulator[@]}" "$work/cmake/consumer"

export PKG_CONFIG_PATH="$work/prefix/$lib/pkgconfig"
# shellcheck disable=SC2046,SC2086
"$cxx" $flags -std=c++"$standard" -Wl,--as-needed "$example" -o "$work/pc-consumer" $(pkg-config --cflags --libs kt)
env -u LD_LIBRARY_PATH "${emulator[@]}" "$work/pc-consumer"

cat >"$work/rev.cpp" <<'CPP'
#include <dlfcn.h>
#include <cstdio>
#include <cstring>
int main(int, char** argv) {
    void* library = dlopen(argv[1], RTLD_NOW);
    auto rev = library ? static_cast<const char**>(dlsym(library, "__rev__lib_kt__kt__")) : nullptr;
    if (!rev || std::strncmp(*rev, "lib.kt-0.1: ", 12) != 0) return 1;
    std::puts(*rev);
    return 0;
}
CPP
# shellcheck disable=SC2086
"$cxx" $flags -std=c++"$standard" "$work/rev.cpp" -o "$work/rev" -ldl
"${emulator[@]}" "$work/rev" "$work/prefix/$lib/libkt.so.0"
env -u LD_LIBRARY_PATH "${emulator[@]}" "$work/prefix/bin/kt" version
