#!/usr/bin/env bash
# Installs the build tree into a scratch prefix, then builds an example out of
# tree against it twice, with find_package(kt) and with pkg-config, and runs
# both builds without LD_LIBRARY_PATH. Also reads the build identification
# the way its users do, with dlsym.
# Usage: check.sh BUILD_DIR PACKAGE_DIR EXAMPLE_SOURCE LIBDIR (lib, or lib/<multiarch>)
set -euo pipefail
build=$1 package=$2 example=$3 lib=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in include/kt/kt.h include/kt/url.h include/ktbase/refcount.h $lib/cmake/kt/ktConfig.cmake \
         $lib/pkgconfig/kt.pc $lib/libkt.so.0 $lib/libktcore.so.0 bin/kt share/man/man1/kt.1.gz; do
  [ -e "$work/prefix/$f" ] || { echo "missing from the install: $f"; exit 1; }
done

cmake -S "$package" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DKT_EXAMPLE="$example" >/dev/null
cmake --build "$work/cmake" >/dev/null
env -u LD_LIBRARY_PATH "$work/cmake/consumer"

export PKG_CONFIG_PATH="$work/prefix/$lib/pkgconfig"
# shellcheck disable=SC2046
c++ -std=c++17 -Wl,--as-needed "$example" -o "$work/pc-consumer" $(pkg-config --cflags --libs kt)
env -u LD_LIBRARY_PATH "$work/pc-consumer"

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
c++ -std=c++17 "$work/rev.cpp" -o "$work/rev" -ldl
"$work/rev" "$work/prefix/$lib/libkt.so.0"
env -u LD_LIBRARY_PATH "$work/prefix/bin/kt" version
