#!/usr/bin/env python3
"""Prints the peer benchmarks as one table: a row per work and size, the
throughput of every contender, and libkt's ratio to the best peer.

Reads the JSON files that Google Benchmark writes with --benchmark_out. The
benchmarks are named BM_<work>_<contender>/<size>; with repetitions the
median is used.
"""
import json
import sys

# Contenders that are libkt itself, never counted as peers.
OWN = {"Kt": "libkt", "KtPlain": "libkt plain"}
PEER_NAMES = {"Absl": "abseil", "OpenSSL": "OpenSSL", "Boost": "Boost"}


def size_text(size):
    for unit, scale in (("MiB", 1 << 20), ("KiB", 1 << 10)):
        if size >= scale and size % scale == 0:
            return f"{size // scale} {unit}"
    return f"{size} B"


def read_rates(paths):
    """Returns {(work, size): {contender: bytes per second}}."""
    rates = {}
    for path in paths:
        with open(path) as stream:
            benchmarks = json.load(stream)["benchmarks"]
        has_medians = any(b.get("aggregate_name") == "median" for b in benchmarks)
        for bench in benchmarks:
            if has_medians and bench.get("aggregate_name") != "median":
                continue
            name, _, size = bench["run_name"].partition("/")
            work, _, contender = name.removeprefix("BM_").rpartition("_")
            rates.setdefault((work, int(size)), {})[contender] = bench["bytes_per_second"]
    return rates


def main(paths):
    rates = read_rates(paths)
    present = {c for row in rates.values() for c in row}
    contenders = [c for c in OWN if c in present] + sorted(present - OWN.keys())
    names = [OWN.get(c) or PEER_NAMES.get(c, c) for c in contenders]
    header = ["work", "size"] + [f"{n} GB/s" for n in names] + ["best peer", "libkt / best"]
    rows = []
    for (work, size), row in sorted(rates.items()):
        peers = {c: r for c, r in row.items() if c not in OWN}
        cells = [work, size_text(size)]
        cells += [f"{row[c] / 1e9:.2f}" if c in row else "-" for c in contenders]
        if peers and "Kt" in row:
            best = max(peers, key=peers.get)
            cells += [PEER_NAMES.get(best, best), f"{row['Kt'] / peers[best]:.1f}x"]
        else:
            cells += ["-", "-"]
        rows.append(cells)
    widths = [max(len(r[i]) for r in [header] + rows) for i in range(len(header))]
    for cells in [header, ["-" * w for w in widths]] + rows:
        print("| " + " | ".join(c.ljust(w) for c, w in zip(cells, widths)) + " |")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: table.py <benchmark JSON file>...")
    main(sys.argv[1:])
