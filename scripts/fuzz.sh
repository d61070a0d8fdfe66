#!/usr/bin/env bash
# Runs every fuzz target (fuzz/, built by the "fuzz" preset into build-fuzz/)
# for a bounded time, two at a time, each from its seed corpus fuzz/corpus/<target>.
# New inputs go to build-fuzz/corpus/<target>, findings to build-fuzz/crashes/.
# Exits non-zero when a target finds a crash, a leak, a timeout or runs out of memory.
#
#   bash scripts/fuzz.sh [SECONDS]    seconds per target, 60 unless given
set -uo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
targets=(packbits psd_writer fixture png)
mkdir -p build-fuzz/crashes

run() {  # run TARGET: one bounded run, its log in build-fuzz/fuzz-TARGET.log
  local t=$1 dict=()
  mkdir -p "build-fuzz/corpus/$t"
  [ -f "fuzz/$t.dict" ] && dict=(-dict="fuzz/$t.dict")
  "build-fuzz/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -malloc_limit_mb=1024 \
    -print_final_stats=1 "${dict[@]}" -artifact_prefix="build-fuzz/crashes/$t-" \
    "build-fuzz/corpus/$t" "fuzz/corpus/$t" >"build-fuzz/fuzz-$t.log" 2>&1
}

failed=0
for ((i = 0; i < ${#targets[@]}; i += 2)); do
  pair=("${targets[@]:i:2}")
  pids=()
  for t in "${pair[@]}"; do run "$t" & pids+=($!); done
  for k in "${!pair[@]}"; do
    t="${pair[$k]}"
    if wait "${pids[$k]}"; then
      runs="$(grep -o 'stat::number_of_executed_units: [0-9]*' "build-fuzz/fuzz-$t.log" | grep -o '[0-9]*$')"
      echo "fuzz_$t: ${runs:-?} inputs in ${seconds} s, nothing found"
    else
      failed=1
      echo "fuzz_$t: FOUND A PROBLEM (build-fuzz/fuzz-$t.log):" >&2
      grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "build-fuzz/fuzz-$t.log" | head -5 >&2
      echo "  Once fixed, add the input to fuzz/corpus/$t/ as crash-<what>." >&2
    fi
  done
done
exit "$failed"
