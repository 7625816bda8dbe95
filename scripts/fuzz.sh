#!/usr/bin/env bash
# Builds the libFuzzer harnesses (preset `fuzz`) and runs each one for a bounded time
# on a working copy of its seed corpus, then prints the executions per harness. A crash
# stops the script with the harness's report; the input lands in build/fuzz/artifacts/.
# Usage: scripts/fuzz.sh [seconds per harness, default 50]
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
seconds=${1:-50}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
out=build/fuzz
mkdir -p "$out/artifacts"
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
total=0
for harness in fuzz_ai_config fuzz_ao_config fuzz_astream_config fuzz_number_list; do
  if [ "$harness" = fuzz_number_list ]; then
    seeds=fuzz/corpus/number_list
    extra=(-max_len=4096)
  else
    seeds=fuzz/corpus/config
    extra=(-dict=fuzz/config.dict -max_len=32768)
  fi
  corpus=$out/corpus-run/$harness
  mkdir -p "$corpus"
  cp -n "$seeds"/* "$corpus"/
  log=$out/$harness.log
  if ! "$out/bin/$harness" "${extra[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$out/artifacts/$harness-" "$corpus" >"$log" 2>&1; then
    echo "$harness failed:"
    tail -60 "$log"
    exit 1
  fi
  runs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
  total=$((total + runs))
  echo "$harness: $runs executions in $seconds s, corpus $(ls "$corpus" | wc -l) inputs"
done
echo "fuzzing: $total executions in total"
