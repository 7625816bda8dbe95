#!/usr/bin/env bash
# Makes the demonstration's 4-channel input: raw signed 16-bit little-endian PCM at
# 16000 Hz, 4 seconds. Channel 0: speech (espeak-ng); 1: 440 Hz tone; 2: the speech at
# half level; 3: 1000 Hz tone. Without espeak-ng the speech channels carry a sweep.
set -euo pipefail
if [ $# -ne 1 ]; then
  echo "usage: $0 OUTPUT.pcm" >&2
  exit 2
fi
out=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fmt=(-r 16000 -c 1 -b 16 -e signed-integer)
if command -v espeak-ng >/dev/null 2>&1; then
  espeak-ng -s 150 -w "$tmp/say.wav" "Hello from audiomw. One frame period at a time, from file to sound card."
  sox "$tmp/say.wav" "${fmt[@]}" "$tmp/speech.wav" norm -3 pad 0.2 trim 0 4
else
  sox -n "${fmt[@]}" "$tmp/speech.wav" synth 4 sine 200-3000 vol 0.5
fi
sox "$tmp/speech.wav" "$tmp/quiet.wav" vol 0.5
sox -n "${fmt[@]}" "$tmp/tone440.wav" synth 4 sine 440 vol 0.25
sox -n "${fmt[@]}" "$tmp/tone1k.wav" synth 4 sine 1000 vol 0.125
sox -M "$tmp/speech.wav" "$tmp/tone440.wav" "$tmp/quiet.wav" "$tmp/tone1k.wav" \
  -t raw -e signed-integer -b 16 -L "$tmp/input.pcm"
# Moved into place only when complete, so a failed run leaves no half-made input behind.
mv "$tmp/input.pcm" "$out"
