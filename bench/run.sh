#!/bin/sh
# Races libkt against the packaged peer libraries: installs the peers that are
# missing (Debian packages), builds the benchmarks in Release, runs every
# bench/peers_*_bench program and prints one table with libkt's ratio to the
# best peer on every row. Extra arguments go to each benchmark program, for
# instance --benchmark_filter=Base64.
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

results=build/bench/results
mkdir -p "$results"
rm -f "$results"/*.json
for program in $programs; do
  echo "running $program" >&2
  # The median of five short runs, shuffled among the other benchmarks so
  # that a spell of load elsewhere on the machine does not hit one row only.
  "build/bench/bin/$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
    --benchmark_enable_random_interleaving=true --benchmark_min_time=0.1 \
    --benchmark_out="$results/$program.json" --benchmark_out_format=json "$@" \
    >"$results/$program.txt"
done
python3 bench/table.py "$results"/*.json
