#!/usr/bin/env bash
# Builds the Debian packages from the sources with the `package` preset, checks
# what they hold, then runs lintian on them: it must report no error, and no
# warning beyond the ones the README's packaging section explains (two at most).
# Exits 77 (skipped) when a Debian packaging tool is missing.
# Usage: lint.sh SOURCE_DIR WORK_DIR CXX_COMPILER
set -euo pipefail
source=$1 work=$2 cxx=$3

for tool in dpkg-deb dpkg-shlibdeps dpkg-architecture lintian file; do
  command -v "$tool" >/dev/null || { echo "$tool is not installed: skipped"; exit 77; }
done

cmake -S "$source" -B "$work" --preset package -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work" -j2 >/dev/null
rm -f "$work"/*.deb "$work"/*.ddeb
made=$(cd "$work" && cpack -G DEB 2>&1) || { echo "$made"; exit 1; }

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$work/CMakeCache.txt")
arch=$(dpkg --print-architecture)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
libs=usr/lib/$multiarch
packages=()
for name in libkt0 libkt-dev kt-tools; do
  packages+=("$work/${name}_${version}_${arch}.deb")
done

fail() { echo "$*"; exit 1; }
# has PACKAGE PATH...: each path is in the package.
has() {
  local package=$1 listing
  shift
  listing=$(dpkg-deb -c "$package" | awk '{print $6}')
  for path in "$@"; do
    grep -qxF "./$path" <<<"$listing" || fail "$(basename "$package") lacks $path"
  done
}
has "${packages[0]}" "$libs/libkt.so.$version" "$libs/libktcore.so.$version" \
    usr/share/doc/libkt0/copyright usr/share/doc/libkt0/changelog.gz
has "${packages[1]}" "$libs/pkgconfig/kt.pc" "$libs/cmake/kt/ktConfig.cmake" usr/include/kt/kt.h \
    usr/share/doc/libkt-dev/copyright usr/share/doc/libkt-dev/changelog.gz
has "${packages[2]}" usr/bin/kt usr/share/man/man1/kt.1.gz \
    usr/share/doc/kt-tools/copyright usr/share/doc/kt-tools/changelog.gz
[ "$(dpkg-deb -I "${packages[0]}" shlibs)" = "libkt 0 libkt0 (>= $version)
libktcore 0 libkt0 (>= $version)" ] || fail "libkt0's shlibs: $(dpkg-deb -I "${packages[0]}" shlibs)"
[ "$(dpkg-deb -I "${packages[0]}" triggers)" = "activate-noawait ldconfig" ] \
  || fail "libkt0's triggers: $(dpkg-deb -I "${packages[0]}" triggers)"
[ -e "$work/libkt0-dbgsym_${version}_${arch}.ddeb" ] || fail "no libkt0-dbgsym package"
[ -e "$work/kt-tools-dbgsym_${version}_${arch}.ddeb" ] || fail "no kt-tools-dbgsym package"

# The warnings the README explains: its packaging section's table, a tag a row.
# shellcheck disable=SC2016
explained=$(sed -n '/^## Debian packages/,/^## /p' "$source/README.md" \
            | sed -n 's/^| `\([a-z0-9-]*\)` |.*/\1/p')
report=$(lintian "${packages[@]}" 2>/dev/null) || true
echo "$report"
errors=$(grep -c '^E: ' <<<"$report" || true)
warnings=$(grep -c '^W: ' <<<"$report" || true)
((errors == 0)) || fail "lintian: $errors errors"
((warnings <= 2)) || fail "lintian: $warnings warnings, 2 at most"
while read -r tag; do
  grep -qxF "$tag" <<<"$explained" || fail "lintian: warning $tag is not explained in README.md"
done < <(sed -n 's/^W: [^ ]* \([^ ]*\).*/\1/p' <<<"$report" | sort -u)
echo "lintian: $errors errors, $warnings warnings"
