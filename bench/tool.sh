#!/bin/sh
# Races the kt tool against the tools people already use, on files in /tmp:
#   kt base64 / base64 -d, kt hex / hex -d against base64 and xxd -p / xxd -r -p
#   over MIB mebibytes of random bytes (default 256), read from a file and
#   written to /dev/null; and over 1,000,000 URLs read from a file, kt url get
#   host against awk -F/ '{print $3}', and kt url split --json against python's
#   urllib.parse.urlsplit printing the same fields as JSON (bench/urlsplit.py).
# Each time is the processor time (user + system) of the best of RUNS runs
# (default 3), which a busy machine disturbs less than the time on the clock;
# the runs of kt and its peer alternate, so that both meet the same load. Each
# line gives the ratio of the peer's time to kt's (above 1: kt is faster) and
# kt's largest resident size. Usage: bench/tool.sh [KT_PROGRAM] (default: a
# Release build).
set -eu
cd "$(dirname "$0")/.."
bench=$PWD/bench
mib=${MIB:-256}
runs=${RUNS:-3}
kt=${1:-}
if [ -z "$kt" ]; then
  cmake --preset bench >/dev/null
  cmake --build --preset bench -j2 --target kt_tool >/dev/null
  kt=$PWD/build/bench/bin/kt
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
head -c $((mib * 1048576)) /dev/urandom >"$work/raw"
base64 "$work/raw" >"$work/b64"
xxd -p "$work/raw" >"$work/hex"
awk 'BEGIN { srand(1); for (i = 0; i < 1000000; i++)
       printf "https://user@host%d.example.com:%d/path/%d/page.html?a=%d&b=x#top\n",
              int(rand() * 1e6), 1 + int(rand() * 65535), i, i }' >"$work/urls"

# race NAME TARGET PEER_COMMAND KT_COMMAND: runs the two shell commands in
# turn, RUNS times each, output to /dev/null, and prints the best times
# (TARGET "-": none).
race() {
  python3 - "$@" "$runs" <<'PY'
import os, sys
name, target, peer, kt, runs = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4], int(sys.argv[5])

def run(command):
    """The processor time and largest resident size of one run."""
    with open(os.devnull, "wb") as sink:
        pid = os.fork()
        if pid == 0:
            os.dup2(sink.fileno(), 1)
            os.execvp("sh", ["sh", "-c", "exec " + command])
        _, status, usage = os.wait4(pid, 0)
    if status != 0:
        sys.exit(f"{name}: '{command}' failed")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss

peer_times, kt_times = [], []
for _ in range(runs):
    peer_times.append(run(peer))
    kt_times.append(run(kt))
peer_time, kt_time, kt_rss = min(peer_times)[0], min(kt_times)[0], min(kt_times)[1]
ratio = peer_time / kt_time if kt_time > 0 else 999
if target == "-":
    goal, verdict = "(no target)", ""
else:
    goal, verdict = f"(target {target})", "ok" if ratio >= float(target) else "BELOW TARGET"
print(f"{name:<34} {peer_time:6.3f}s  kt {kt_time:6.3f}s  ratio {ratio:6.2f} {goal:<12}"
      f"  kt RSS {kt_rss / 1024:5.1f} MiB  {verdict}")
PY
}

echo "kt: $kt; $mib MiB of input; 1,000,000 URLs; best of $runs runs"
race "base64 encode vs base64" 3 "base64 $work/raw" "$kt base64 $work/raw"
race "base64 decode vs base64 -d" 3 "base64 -d $work/b64" "$kt base64 -d $work/b64"
race "hex encode vs xxd -p" 3 "xxd -p $work/raw" "$kt hex --lower $work/raw"
race "hex decode vs xxd -r -p" 3 "xxd -r -p $work/hex" "$kt hex -d $work/hex"
race "url get host vs awk -F/" 5 "awk -F/ '{print \$3}' $work/urls" "$kt url get host --url-file $work/urls"
race "url lines alone vs awk -F/" - "awk -F/ '{print \$3}' $work/urls" "$kt url get '{{' --url-file $work/urls"
race "url split --json vs urlsplit" 1 "python3 $bench/urlsplit.py $work/urls" \
  "$kt url split --json --url-file $work/urls"
