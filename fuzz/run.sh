#!/usr/bin/env bash
# Builds the fuzz preset and runs one libFuzzer target for a bounded time on
# its committed seed corpus (fuzz/<area>/corpus/<target>/) and dictionary
# (fuzz/<area>/<target>.dict, where there is one), keeping what it
# finds in build-fuzz/corpus/<target>/ so the committed seeds stay small.
#   fuzz/run.sh <target> [seconds, default 600]
#
# Memory is bounded on purpose: ASan keeps every freed block in a quarantine
# of 256 MB by default (to catch a use after free), so a fuzzer that frees a
# few kilobytes per input (libFuzzer's copy of each input, the target's
# buffers) grows by megabytes a second without a leak to report. A smaller
# quarantine (ASAN_OPTIONS, unless the caller sets it) keeps the runs of a
# shared machine small, and -rss_limit_mb/-malloc_limit_mb make any growth
# past PELARIX_FUZZ_RSS_MB (default 1024) an out-of-memory report with its
# allocation stack instead of a silent climb.
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?usage: fuzz/run.sh <target> [seconds]}
seconds=${2:-600}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "$target"
seeds=$(ls -d fuzz/*/corpus/"$target" 2>/dev/null | head -n 1 || true)
dict=$(ls fuzz/*/"$target".dict 2>/dev/null | head -n 1 || true)
work=build-fuzz/corpus/$target
mkdir -p "$work"
rss=${PELARIX_FUZZ_RSS_MB:-1024}
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=32}
exec build-fuzz/bin/"$target" -max_total_time="$seconds" -print_final_stats=1 \
  -rss_limit_mb="$rss" -malloc_limit_mb="$rss" ${dict:+-dict="$dict"} \
  "$work" ${seeds:+"$seeds"}
