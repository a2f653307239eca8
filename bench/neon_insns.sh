#!/usr/bin/env bash
# Speed on paper where no ARM machine is at hand: the guest instructions that
# each kernel of the scalar and NEON sets executes per input byte on about
# 1 MiB of input, counted under qemu-aarch64. qemu logs every block of code
# it translates, with its instructions, and every run of a block
# (-d in_asm,exec,nochain); a kernel's count is that of kernel_run doing one
# run less that of it doing none, which leaves out the start-up and the
# making of the input.
#
# Usage: bench/neon_insns.sh [BUILD_DIR]     (default build/insns-aarch64)
# Needs the aarch64 cross g++ and qemu-user (see cmake/toolchains/).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/insns-aarch64}
toolchain=()
kernels=(hex_encode hex_decode base64_encode base64_decode url_encode url_decode url_encoded_size
         find_delimiters)

# (The toolchain file is read on the first configuration only.)
[ -f "$build/CMakeCache.txt" ] || toolchain=(--toolchain cmake/toolchains/aarch64-linux-gnu.cmake)
cmake -S . -B "$build" "${toolchain[@]}" -DCMAKE_BUILD_TYPE=Release -DKT_BUILD_TESTS=OFF \
  -DKT_BUILD_BENCH=OFF -DKT_BUILD_EXAMPLES=OFF -DKT_BUILD_FUZZ=OFF >/dev/null
cmake --build "$build" -j2 --target kt_internal >/dev/null
lib=$(realpath "$build/lib")
aarch64-linux-gnu-g++ -std=c++17 -O2 -Iinclude -Ilib/kt -Ibench bench/kernel_run.cpp \
  "$lib/libkt_internal.a" -L"$lib" -lktcore -Wl,-rpath,"$lib" -o "$build/kernel_run"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkfifo "$tmp/log"

# The guest instructions of `kernel_run SET KERNEL RUNS`: the size of each
# block, by its address, times the runs of that block.
count() {
  qemu-aarch64 -L /usr/aarch64-linux-gnu -d in_asm,exec,nochain -D "$tmp/log" \
    "$build/kernel_run" "$@" >"$tmp/size" &
  awk '
    /^IN:/ { block = 1; n = 0; pc = ""; next }
    block && /^0x/ {
      if (pc == "") { pc = $1; sub(/^0x0*/, "", pc); sub(/:$/, "", pc) }
      n++
      next
    }
    block { size[pc] = n; block = 0 }
    /^Trace/ { split($0, f, "/"); pc = f[2]; sub(/^0*/, "", pc); total += size[pc] }
    END { printf "%.0f\n", total }' "$tmp/log"
  wait $!
}

# Instructions per input byte of a run of KERNEL of SET, where a run of none
# takes NONE.
per_byte() {
  local one
  one=$(count "$1" "$2" 1)
  awk -v d=$((one - $3)) -v n="$(cat "$tmp/size")" 'BEGIN { printf "%.3f", d / n }'
}

printf '%-18s %8s %8s %8s\n' kernel scalar neon ratio
for k in "${kernels[@]}"; do
  none=$(count scalar "$k" 0)
  scalar=$(per_byte scalar "$k" "$none")
  neon=$(per_byte neon "$k" "$none")
  printf '%-18s %8s %8s %8s\n' "$k" "$scalar" "$neon" \
    "$(awk -v s="$scalar" -v v="$neon" 'BEGIN { printf "%.3f", v / s }')"
done
