#!/usr/bin/env bash
# Builds the benchmarks (default preset) and runs them, printing one table per program.
# Each row carries its ratio against a baseline measured in the same run (memcpy of the
# same bytes, or a bare libsamplerate call). Extra arguments go to every program, e.g.
#   bash scripts/bench.sh --benchmark_filter=Node
# With aarch64 as the first argument the programs are cross-built in the aarch64 preset
# and run under qemu-aarch64: emulated figures, which show that the arm64 kernels run
# and how their ratios compare, not the timings of a board.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
preset=default
launcher=()
if [ "${1:-}" = aarch64 ]; then
  shift
  preset=aarch64
  launcher=(qemu-aarch64 -L /)
fi
cmake --preset "$preset" -DAUDIOMW_BUILD_BENCH=ON >/dev/null
cmake --build --preset "$preset" --target bench_convert bench_astream bench_ao bench_ai bench_alg
for program in bench_convert bench_astream bench_ao bench_ai bench_alg; do
  echo "=== $program ($preset) ==="
  "${launcher[@]}" build/$preset/bin/$program --benchmark_counters_tabular=true "$@" 2>/dev/null
done
