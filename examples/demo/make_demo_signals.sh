#!/usr/bin/env bash
# Makes the demonstration's signals, 16000 Hz, 16-bit, 5 seconds, into DIR:
#   capture_ref.wav   the loudspeaker signal (a 300 Hz tone with a slow 600 Hz beat)
#   capture_mics.wav  four microphones: speech (espeak-ng; a sweep without it) at
#                     falling levels plus the loudspeaker signal echoed 5, 7, 9 and
#                     11 ms late at a quarter level
#   line_in.pcm       raw stereo: left the speech, right a 660 Hz tone
set -euo pipefail
if [ $# -ne 1 ]; then
  echo "usage: $0 DIR" >&2
  exit 2
fi
out=$1
mkdir -p "$out"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fmt=(-r 16000 -c 1 -b 16 -e signed-integer)
if command -v espeak-ng >/dev/null 2>&1; then
  espeak-ng -s 150 -w "$tmp/say.wav" "Hello from audiomw. Four microphones, one reference, and a line in."
  sox "$tmp/say.wav" "${fmt[@]}" "$tmp/speech.wav" norm -6 pad 0.2 trim 0 5
else
  sox -n "${fmt[@]}" "$tmp/speech.wav" synth 5 sine 200-3000 vol 0.4
fi
sox -n "${fmt[@]}" "$tmp/ref.wav" synth 5 sine 300 synth 5 sine amod 1 vol 0.3
for m in 0 1 2 3; do
  delay=$(awk "BEGIN { print (5 + 2 * $m) / 1000 }")
  level=$(awk "BEGIN { print 1 - 0.15 * $m }")
  sox "$tmp/ref.wav" "$tmp/echo$m.wav" vol 0.25 delay "$delay" trim 0 5
  sox "$tmp/speech.wav" "$tmp/talk$m.wav" vol "$level"
  sox -m "$tmp/talk$m.wav" "$tmp/echo$m.wav" "$tmp/mic$m.wav"
done
sox -M "$tmp"/mic0.wav "$tmp"/mic1.wav "$tmp"/mic2.wav "$tmp"/mic3.wav "$tmp/mics.wav"
sox -n "${fmt[@]}" "$tmp/tone.wav" synth 5 sine 660 vol 0.2
sox -M "$tmp/speech.wav" "$tmp/tone.wav" -t raw -e signed-integer -b 16 -L "$tmp/line_in.pcm"
# Moved into place only when complete, so a failed run leaves nothing half made.
mv "$tmp/ref.wav" "$out/capture_ref.wav"
mv "$tmp/mics.wav" "$out/capture_mics.wav"
mv "$tmp/line_in.pcm" "$out/line_in.pcm"
