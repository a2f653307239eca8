#!/usr/bin/env bash
# Installs the Debian packages that lint.sh made with dpkg and uses them as a
# user would, from a folder outside the sources: runs `kt version`, builds an
# example with pkg-config and with find_package(kt), and runs both. Then purges
# the packages and checks that nothing of them is left. Needs root; refuses to
# run when any of the packages is already installed, so that it never removes
# what it did not install.
# Usage: installed.sh PACKAGE_DIR CONSUMER_PROJECT EXAMPLE_SOURCE
set -euo pipefail
debs=$(realpath "$1") consumer=$(realpath "$2") example=$(realpath "$3")
names=(libkt0 libkt-dev kt-tools)

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }
for name in "${names[@]}"; do
  if installed "$name"; then
    echo "$name is installed already: remove it first"
    exit 1
  fi
done

work=$(mktemp -d)
remove() {
  dpkg --purge "${names[@]}" >/dev/null
  rm -rf "$work"
}
trap remove EXIT
dpkg -i "$debs"/libkt0_*.deb "$debs"/libkt-dev_*.deb "$debs"/kt-tools_*.deb >/dev/null
cd "$work"

kt version | grep '^lib\.kt-0\.1: '
# shellcheck disable=SC2046
c++ -std=c++17 "$example" -o pc-consumer $(pkg-config --cflags --libs kt)
./pc-consumer >/dev/null
cmake -S "$consumer" -B cmake -DKT_EXAMPLE="$example" >/dev/null
cmake --build cmake >/dev/null
./cmake/consumer >/dev/null
echo "installed: kt, a pkg-config build and a find_package(kt) build work"

trap - EXIT
remove
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
for name in "${names[@]}"; do
  ! installed "$name" || { echo "$name is still installed"; exit 1; }
done
for path in /usr/bin/kt "/usr/lib/$multiarch/libkt.so.0" "/usr/lib/$multiarch/pkgconfig/kt.pc" \
            /usr/include/kt /usr/share/doc/libkt0; do
  [ ! -e "$path" ] || { echo "$path is left after the purge"; exit 1; }
done
! ldconfig -p | grep -q 'libkt\.so' || { echo "the linker cache still lists libkt"; exit 1; }
echo "removed: nothing of the packages is left"
