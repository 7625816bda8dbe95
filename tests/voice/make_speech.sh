#!/usr/bin/env bash
# Makes the speech the voice-library tests use: 16 kHz mono raw 16-bit PCM, far-end and
# near-end talkers with different voices. Usage: make_speech.sh OUTDIR
set -euo pipefail
out=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
espeak-ng -s 150 -v en-us -w "$tmp/far.wav" \
  "The quick brown fox jumps over the lazy dog. Please turn the volume down in the kitchen, and call me when the music stops playing. Seven eight nine ten."
espeak-ng -s 140 -v en-gb+f3 -w "$tmp/near.wav" \
  "Hey device, what is the weather like tomorrow morning in the city? I would like to know before I leave the house."
# -D: no dither, so the files are the same on every build.
sox -D "$tmp/far.wav" -r 16000 -c 1 -b 16 -e signed-integer "$out/far.raw"
sox -D "$tmp/near.wav" -r 16000 -c 1 -b 16 -e signed-integer "$out/near.raw"
