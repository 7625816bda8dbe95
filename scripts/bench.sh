#!/usr/bin/env bash
# Builds the benchmarks (default preset) and runs them, printing one table per program.
# Each row carries its ratio against a baseline measured in the same run (memcpy of the
# same bytes, or a bare libsamplerate call). Extra arguments go to every program, e.g.
#   bash scripts/bench.sh --benchmark_filter=Node
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target bench_convert bench_astream bench_ao bench_ai
for program in bench_convert bench_astream bench_ao bench_ai; do
  echo "=== $program ==="
  build/default/bin/$program --benchmark_counters_tabular=true "$@" 2>/dev/null
done
