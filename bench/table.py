#!/usr/bin/env python3
"""Prints the peer benchmarks as tables, one per program: a row per work and
size, the speed of every contender, libkt's ratio to the best peer and the
ratio that libkt aims for. With --scalar DIR, the same programs' results of
a build with KT_KERNELS=scalar (read from DIR, same file names) add libkt's
figures on its portable kernels alone, with their own ratio and target.

Reads the JSON files that Google Benchmark writes with --benchmark_out. The
benchmarks are named BM_<work>_<contender>[/<size>]; with repetitions the
median is used. A row whose benchmarks count bytes is compared by bytes per
second, one whose benchmarks count items by items per second (both rates
over the time each benchmark chose to measure: real or CPU time), any other
row by calls per second (the inverse of the real time per call), so a ratio
above 1 always means that libkt is faster.
"""
import json
import os
import sys

# Contenders that are libkt itself, never counted as peers. "Kt" is the one
# that the ratio is taken of.
OWN = {"Kt": "libkt", "KtAvx2": "libkt AVX2", "KtPlain": "libkt plain",
       "KtScalar": "libkt scalar"}
PEER_NAMES = {
    "Absl": "abseil", "OpenSSL": "OpenSSL", "Boost": "Boost", "BoostUrl": "Boost.URL",
    "Curl": "curl", "Poco": "Poco", "Uriparser": "uriparser", "Snprintf": "snprintf",
    "Fmt": "fmt", "StdString": "std::string", "Raw": "system calls",
}

MiB = 1 << 20
# (work, size or None for every size) -> (the least ratio libkt aims for, and
# the one peer it is measured against, or None for the best of them).
TARGETS = {
    ("Base64Encode", MiB): (5.0, None),
    ("Base64Decode", MiB): (5.0, None),
    ("HexEncode", MiB): (8.0, None),
    ("HexDecode", MiB): (4.0, None),
    ("PercentEncode", MiB): (5.0, None),
    ("PercentDecode", MiB): (5.0, None),
    ("PercentEncode", 60): (2.0, None),
    ("PercentDecode", 60): (2.0, None),
    ("UrlHost", None): (3.0, None),
    ("UrlAll", None): (1.0, None),
    ("Format", None): (1 / 1.1, "Snprintf"),
    ("Append", None): (1.0, None),
    ("LoopbackBulk", None): (0.98, None),
    ("ConnectAccept", None): (0.95, None),
}

# The same for the build with the scalar kernels alone: what every CPU
# without the vector sets gets.
SCALAR_TARGETS = {
    ("Base64Encode", MiB): 1.0,
    ("Base64Decode", MiB): 1.0,
    ("HexEncode", MiB): 1.0,
    ("HexDecode", MiB): 1.0,
    ("PercentEncode", MiB): 2.0,
    ("PercentDecode", MiB): 2.0,
    ("PercentEncode", 60): 1.0,
    ("PercentDecode", 60): 1.0,
    ("UrlHost", None): 2.0,
    ("UrlAll", None): 1.0,
}


def size_text(size):
    if size is None:
        return ""
    for unit, scale in (("MiB", MiB), ("KiB", 1 << 10)):
        if size >= scale and size % scale == 0:
            return f"{size // scale} {unit}"
    return f"{size} B"


NS_PER_UNIT = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def speed_of(bench):
    """Returns (speed, cell text): bytes per second where the benchmark
    counts bytes, items per second where it counts items (shown as the time
    per item), else calls per second."""
    if "bytes_per_second" in bench:
        rate = bench["bytes_per_second"]
        return rate, f"{rate / 1e9:.2f} GB/s"
    if "items_per_second" in bench:
        ns = 1e9 / bench["items_per_second"]
    else:
        ns = bench["real_time"] * NS_PER_UNIT[bench.get("time_unit", "ns")]
    text = f"{ns:.0f} ns" if ns < 1e5 else f"{ns / 1e6:.2f} ms"
    return 1e9 / ns, text


def read_program(path):
    """Returns {(work, size): {contender: (speed, text)}} for one program."""
    with open(path) as stream:
        benchmarks = json.load(stream)["benchmarks"]
    has_medians = any(b.get("aggregate_name") == "median" for b in benchmarks)
    rows = {}
    for bench in benchmarks:
        if has_medians and bench.get("aggregate_name") != "median":
            continue
        if bench.get("error_occurred"):
            continue
        # Past the name come the arguments (the size) and the run's
        # settings, such as "iterations:3000" or "process_time".
        name, *arguments = bench["run_name"].split("/")
        sizes = [int(a) for a in arguments if a.isdigit()]
        size = sizes[0] if sizes else None
        work, _, contender = name.removeprefix("BM_").rpartition("_")
        rows.setdefault((work, size), {})[contender] = speed_of(bench)
    return rows


def target_of(work, size):
    return TARGETS.get((work, size)) or TARGETS.get((work, None))


def scalar_target_of(work, size):
    return SCALAR_TARGETS.get((work, size)) or SCALAR_TARGETS.get((work, None))


def ratio_cells(row, contender, peers, target):
    """The ratio of `contender` to the best of `peers`, and whether it meets
    `target`, as table cells."""
    if not peers or contender not in row:
        return ["-", "", ""]
    best = max(peers, key=peers.get)
    ratio = row[contender][0] / peers[best]
    if target is None:
        return [f"{ratio:.2f}x", "", ""]
    return [f"{ratio:.2f}x", f">= {target:.2f}x", "met" if ratio >= target else "MISSED"]


def print_table(title, rows, with_scalar):
    present = {c for row in rows.values() for c in row}
    contenders = [c for c in OWN if c in present] + sorted(present - OWN.keys())
    header = ["work", "size"] + [OWN.get(c) or PEER_NAMES.get(c, c) for c in contenders]
    header += ["best peer", "libkt / best", "target", ""]
    if with_scalar:
        header += ["scalar / best", "target", ""]
    lines = []
    missed = 0
    for (work, size), row in sorted(rows.items(), key=lambda item: (item[0][0], item[0][1] or 0)):
        cells = [work, size_text(size)] + [row[c][1] if c in row else "-" for c in contenders]
        peers = {c: v[0] for c, v in row.items() if c not in OWN}
        target = target_of(work, size)
        if target and target[1] in peers:
            peers = {target[1]: peers[target[1]]}
        cells += [PEER_NAMES.get(max(peers, key=peers.get), "-") if peers else "-"]
        cells += ratio_cells(row, "Kt", peers, target[0] if target else None)
        if with_scalar:
            cells += ratio_cells(row, "KtScalar", peers, scalar_target_of(work, size))
        missed += cells.count("MISSED")
        lines.append(cells)
    print(f"\n{title}\n")
    widths = [max(len(r[i]) for r in [header] + lines) for i in range(len(header))]
    for cells in [header, ["-" * w for w in widths]] + lines:
        print("| " + " | ".join(c.ljust(w) for c, w in zip(cells, widths)) + " |")
    return missed


def main(arguments):
    scalar_dir = None
    if arguments[:1] == ["--scalar"]:
        scalar_dir, arguments = arguments[1], arguments[2:]
    if not arguments:
        sys.exit("usage: table.py [--scalar DIR] <benchmark JSON file>...")
    missed = 0
    for path in arguments:
        # A program whose benchmarks a filter left out writes nothing.
        if os.path.getsize(path) == 0:
            continue
        rows = read_program(path)
        scalar_path = scalar_dir and os.path.join(scalar_dir, os.path.basename(path))
        if scalar_path and os.path.isfile(scalar_path) and os.path.getsize(scalar_path) > 0:
            # Only libkt's own row of that build is new: its peers ran above.
            for key, row in read_program(scalar_path).items():
                if "Kt" in row:
                    rows.setdefault(key, {})["KtScalar"] = row["Kt"]
        title = os.path.splitext(os.path.basename(path))[0]
        missed += print_table(title, rows, scalar_dir is not None)
    print(f"\n{missed} target(s) missed" if missed else "\nevery target met")


if __name__ == "__main__":
    main(sys.argv[1:])
