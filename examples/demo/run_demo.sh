#!/usr/bin/env bash
# Runs the demonstration from its configuration in OUT_DIR: checks the configuration,
# runs it for 8 seconds (stream slot 0 runs "Voice", switches to "Debug" at 4 s, the
# line-in is plugged in at 6 s), draws the pipelines and checks the files produced.
#   run_demo.sh BIN_DIR SIGNAL_DIR OUT_DIR
# AUDIOMW_LAUNCHER, when set, starts the programs (an emulator for a cross build).
set -euo pipefail
read -r -a launch <<< "${AUDIOMW_LAUNCHER:-}"
if [ $# -ne 3 ]; then
  echo "usage: $0 BIN_DIR SIGNAL_DIR OUT_DIR" >&2
  exit 2
fi
bin=$(cd "$1" && pwd)
signals=$(cd "$2" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$3"
out=$(cd "$3" && pwd)
rm -rf "$out/dump" "$out/root" "$out"/*.wav "$out"/*.svg "$out"/*.dot
mkdir -p "$out/dump"
cp "$here/audiomw_demo.xml" "$here/demo_cards.txt" "$out/"
cp "$signals/capture_mics.wav" "$signals/capture_ref.wav" "$signals/line_in.pcm" "$out/"
cd "$out"

echo "== audiomw check audiomw_demo.xml"
"${launch[@]}" "$bin/audiomw" check audiomw_demo.xml
echo "no findings"
echo
echo "== audiomw run"
"${launch[@]}" "$bin/audiomw" run audiomw_demo.xml --cards demo_cards.txt --root root --log library.log --dumps \
  --stream 0=Voice --switch 4:0=Debug --line-in 6:1 --seconds 8
echo
if command -v dot >/dev/null 2>&1; then
  "${launch[@]}" "$bin/audiomw" graph audiomw_demo.xml -o pipeline.svg
else
  "${launch[@]}" "$bin/audiomw" graph audiomw_demo.xml -o pipeline.dot
  echo "(Graphviz's dot is not installed: pipeline.dot instead of pipeline.svg)"
fi
echo "== the files against what the configuration predicts"
"${launch[@]}" "$bin/check_demo_run" "$out"
