#!/usr/bin/env bash
# Builds the fuzz preset and runs one libFuzzer target for a bounded time on
# its committed seed corpus (fuzz/<area>/corpus/<target>/) and dictionary
# (fuzz/<area>/<target>.dict, where there is one), keeping what it
# finds in build-fuzz/corpus/<target>/ so the committed seeds stay small.
#   fuzz/run.sh <target> [seconds, default 600]
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
exec build-fuzz/bin/"$target" -max_total_time="$seconds" -print_final_stats=1 ${dict:+-dict="$dict"} \
  "$work" ${seeds:+"$seeds"}
