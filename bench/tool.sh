#!/bin/sh
# Races the kt tool against the tools people already use, on files in /tmp:
#   kt base64 / base64 -d, kt hex / hex -d against base64 and xxd -p / xxd -r -p
#   over MIB mebibytes of random bytes (default 256), read from a file and
#   written to /dev/null, and kt url get host --url-file against awk over
#   1,000,000 URLs. Each time is the processor time (user + system) of the
#   best of three runs, which a busy machine disturbs less than the time on
#   the clock; each line gives the ratio of the peer's time to kt's (above 1:
#   kt is faster) and kt's largest resident size. Usage: bench/tool.sh [KT_PROGRAM] (default: a Release build).
set -eu
cd "$(dirname "$0")/.."
mib=${MIB:-256}
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

# Prints "SECONDS KIB" for the best of three runs of a shell command.
best() {
  for run in 1 2 3; do
    /usr/bin/time -f "%U %S %M" -o "$work/time" sh -c "exec $1" >/dev/null
    awk '{ print $1 + $2, $3 }' "$work/time"
  done | sort -n | head -n 1
}

# race NAME TARGET PEER_COMMAND KT_COMMAND
race() {
  set -- "$1" "$2" $(best "$3") $(best "$4")
  awk -v name="$1" -v target="$2" -v peer="$3" -v kt="$5" -v rss="$6" 'BEGIN {
    ratio = kt > 0 ? peer / kt : 999
    verdict = ratio >= target ? "ok" : "BELOW TARGET"
    printf "%-34s %6.2fs  kt %6.2fs  ratio %6.2f (target %s)  kt RSS %5.1f MiB  %s\n",
           name, peer, kt, ratio, target, rss / 1024, verdict }'
}

echo "kt: $kt; $mib MiB of input; 1,000,000 URLs"
race "base64 encode vs base64" 3 "base64 $work/raw" "$kt base64 $work/raw"
race "base64 decode vs base64 -d" 3 "base64 -d $work/b64" "$kt base64 -d $work/b64"
race "hex encode vs xxd -p" 3 "xxd -p $work/raw" "$kt hex --lower $work/raw"
race "hex decode vs xxd -r -p" 3 "xxd -r -p $work/hex" "$kt hex -d $work/hex"
race "url get host vs awk -F/" 1 "awk -F/ '{print \$3}' $work/urls" "$kt url get host --url-file $work/urls"
