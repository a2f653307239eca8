#!/bin/sh
# Races libkt against the packaged peer libraries: installs the peers that are
# missing (Debian packages), builds the benchmarks in Release twice (with every
# kernel set, and with KT_KERNELS=scalar: the portable code alone, as CPUs
# without the vector sets run it), runs every bench/peers_*_bench program of
# both builds and prints one table per program with libkt's ratio to the best
# peer on every row, the scalar build's figures in a column of their own.
# Extra arguments go to each benchmark program, for instance
# --benchmark_filter=Base64.
set -eu
cd "$(dirname "$0")/.."

packages="libbenchmark-dev libssl-dev libabsl-dev libboost1.81-dev libboost-url1.81-dev
          libcurl4-openssl-dev liburiparser-dev libpoco-dev libfmt-dev"
missing=""
for package in $packages; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" ||
    missing="$missing $package"
done
if [ -n "$missing" ]; then
  root=""
  [ "$(id -u)" -eq 0 ] || root=sudo
  $root apt-get update
  $root apt-get install -y --no-install-recommends $missing
fi

programs=""
for source in bench/peers_*_bench.cpp; do
  programs="$programs $(basename "$source" .cpp)"
done
cmake --preset bench >/dev/null
cmake --build --preset bench -j2 --target $programs
cmake --preset bench -B build/bench-scalar -DKT_KERNELS=scalar >/dev/null
cmake --build build/bench-scalar -j2 --target $programs

results=build/bench/results
mkdir -p "$results/scalar"
rm -f "$results"/*.json "$results"/scalar/*.json
for program in $programs; do
  for build in bench bench-scalar; do
    out="$results"
    [ "$build" = bench ] || out="$results/scalar"
    echo "running $build/$program" >&2
    # The median of five short runs, shuffled among the other benchmarks so
    # that a spell of load elsewhere on the machine does not hit one row only.
    "build/$build/bin/$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
      --benchmark_enable_random_interleaving=true --benchmark_min_time=0.1 \
      --benchmark_out="$out/$program.json" --benchmark_out_format=json "$@" \
      >"$out/$program.txt"
  done
done
python3 bench/table.py --scalar "$results/scalar" "$results"/*.json
