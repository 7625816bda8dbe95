#!/usr/bin/env bash
# Builds audiomw and runs its demonstration: a 4-channel recording through a stream of
# split, mixin, swap, merge, dump and output nodes to two virtual sound cards whose
# playback lands in WAV files, with a printed summary. Installs the dependencies first
# when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target audiomw_demo
out=build/default/demo-output
echo
build/default/bin/audiomw_demo --out "$out"
echo "The demonstration's WAV files, dump and logs are in $(cd "$out" && pwd)"
