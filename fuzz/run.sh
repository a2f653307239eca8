#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a bounded time.
# Usage: fuzz/run.sh [SECONDS_PER_TARGET] [TARGET...]   (default 30, all)
# A crash fails the run; its input is copied into fuzz/corpus/<target>/ so
# that it stays as a regression case.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 >/dev/null
targets=("$@")
if ((${#targets[@]} == 0)); then
  for f in fuzz/*_fuzz.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
status=0
for t in "${targets[@]}"; do
  work=build/fuzz/work/$t
  mkdir -p "$work/corpus" "$work/artifacts"
  dict=()
  [[ $t == url* || $t == uri* || $t == kvmap* ]] && dict=(-dict=fuzz/url.dict)
  log=$work/log.txt
  if build/fuzz/bin/$t "$work/corpus" "fuzz/corpus/$t" "${dict[@]}" \
       -max_total_time="$seconds" -rss_limit_mb=4096 -max_len=4096 -print_final_stats=1 \
       -artifact_prefix="$work/artifacts/" >"$log" 2>&1; then
    runs=$(grep -m1 'stat::number_of_executed_units' "$log" | awk '{print $2}')
    echo "fuzz: $t: ${runs:-?} executions in ${seconds}s, no crash"
  else
    status=1
    echo "fuzz: $t: CRASH"
    tail -n 30 "$log"
    for a in "$work"/artifacts/*; do
      [ -e "$a" ] && cp "$a" "fuzz/corpus/$t/regression-$(basename "$a")" && echo "fuzz: kept $a"
    done
  fi
done
exit $status
