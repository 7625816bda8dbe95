#!/usr/bin/env bash
# Builds audiomw and runs its demonstration from examples/demo/audiomw_demo.xml with
# `audiomw run` on virtual sound cards whose playback lands in WAV files: a switch of
# the stream halfway, a line-in change, a printed summary, a pipeline drawing and a
# check of every file. Installs the dependencies first when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target audiomw-cli check_demo_run audiomw_demo_signals
out=build/default/demo-output
echo
bash examples/demo/run_demo.sh build/default/bin build/default/examples/demo/signals "$out"
echo
echo "The demonstration's WAV files, dumps, pipeline drawing and library log are in $(cd "$out" && pwd)"
