#!/usr/bin/env bash
# Builds audiomw and runs the whole test suite under each preset named (default: all of
# default, asan, tsan and aarch64, the last a cross build whose tests run under
# qemu-aarch64). Installs the build dependencies first when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(default asan tsan aarch64)
for preset in "${presets[@]}"; do
  echo "=== preset $preset ==="
  start=$(date +%s)
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  # ThreadSanitizer needs a memory layout that high-entropy address randomisation
  # can break; run its tests without randomisation where setarch allows it.
  if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    setarch "$(uname -m)" -R ctest --preset "$preset"
  else
    ctest --preset "$preset"
  fi
  # Figures the tests print (the configuration soak's time per switch).
  grep -h "^time per switch" "build/$preset/Testing/Temporary/LastTest.log" || true
  echo "=== preset $preset passed in $(( $(date +%s) - start )) s ==="
done
