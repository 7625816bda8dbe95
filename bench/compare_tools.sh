#!/bin/bash
# CPU time per hour of audio for the demonstration's job, done three ways in one run:
#   audiomw  bench/remix_job.cpp: a file input, split/mixin/swap/merge nodes and two
#            outputs on free-running virtual cards (stereo and mono, 48 kHz only) that
#            discard what they get; the outputs resample (zero-order hold) and rematrix
#   convert  the same program with --convert-only: audiomw's two rate conversions alone,
#            the part of audiomw's time that its zero-order-hold converter fixes
#   sox      one pass: remix to (in1, (in0+in3)/2, in2), `rate -q 48000`
#   gst      gst-launch-1.0: rawaudioparse ! tee, two branches of audioconvert with a mix
#            matrix and audioresample to 48 kHz (default quality) into fakesinks
# on the same generated input: 4 channels at 16 kHz, MINUTES long (default 5). Each tool
# runs REPEAT times (default 3); the table shows the smallest user+system CPU time of the
# whole process, per hour of audio, and its ratio to audiomw's. Then audiomw's CPU load in
# real time (cards paced by the clock) over the first 20 s of the input.
#
#   bash bench/compare_tools.sh [MINUTES] [REPEAT]
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-5}
repeat=${2:-3}

need=()
command -v sox >/dev/null || need+=(sox)
command -v gst-launch-1.0 >/dev/null || need+=(gstreamer1.0-tools)
for element in rawaudioparse audioconvert audioresample; do
  if ! command -v gst-inspect-1.0 >/dev/null || ! gst-inspect-1.0 "$element" >/dev/null 2>&1; then
    need+=(gstreamer1.0-plugins-base)
    break
  fi
done
if [ ${#need[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "compare_tools.sh needs: sudo apt-get install -y --no-install-recommends ${need[*]}" >&2
    exit 1
  fi
  apt-get -o DPkg::Lock::Timeout=900 install -y --no-install-recommends "${need[@]}" >/dev/null
fi

cmake --preset default >/dev/null
cmake --build --preset default --target audiomw_remix_job >/dev/null
job=$PWD/build/default/bin/audiomw_remix_job
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/rt"

seconds=$((minutes * 60))
raw=(-t raw -r 16000 -c 4 -b 16 -e signed)
sox -n "${raw[@]}" "$work/input.pcm" synth "$seconds" sine 300 sine 440 pinknoise sine 1000 vol 0.5
echo "input: $minutes min, 4 channels, 16000 Hz, $(stat -c %s "$work/input.pcm") bytes; best of $repeat runs"

# Prints the user+system CPU seconds of one run of the command.
cpu_seconds() {
  local TIMEFORMAT='%U %S' t
  t=$({ time "$@" >/dev/null 2>"$work/err"; } 2>&1) || {
    cat "$work/err" >&2
    return 1
  }
  awk '{ printf "%.3f\n", $1 + $2 }' <<<"$t"
}

best_of() {
  local best="" t
  for _ in $(seq "$repeat"); do
    t=$(cpu_seconds "$@")
    if [ -z "$best" ] || awk -v a="$t" -v b="$best" 'BEGIN { exit !(a < b) }'; then best=$t; fi
  done
  echo "$best"
}

run_sox() {
  sox "${raw[@]}" "$work/input.pcm" -t raw /dev/null remix 2 1v0.5,4v0.5 3 rate -q 48000
}

run_gst() {
  gst-launch-1.0 -q filesrc location="$work/input.pcm" \
    ! rawaudioparse use-sink-caps=false format=pcm pcm-format=s16le sample-rate=16000 num-channels=4 ! tee name=t \
    t. ! queue ! audioconvert mix-matrix="<<(float)0,(float)1,(float)0,(float)0>,<(float)0.5,(float)0,(float)0,(float)0.5>>" \
    ! audio/x-raw,channels=2 ! audioresample ! audio/x-raw,rate=48000 ! fakesink sync=false \
    t. ! queue ! audioconvert mix-matrix="<<(float)0,(float)0,(float)1,(float)0>>" \
    ! audio/x-raw,channels=1 ! audioresample ! audio/x-raw,rate=48000 ! fakesink sync=false
}

# audiomw's run ends a few periods after the file (the stream runs on over the file
# input's filler until the program sees the last period played): its CPU time is taken
# per hour of the audio the stereo card actually took.
best=""
audio=""
for _ in $(seq "$repeat"); do
  TIMEFORMAT='%U %S'
  t=$({ time "$job" "$work" >"$work/job.out" 2>"$work/err"; } 2>&1) || {
    cat "$work/err" >&2
    exit 1
  }
  t=$(awk '{ printf "%.3f\n", $1 + $2 }' <<<"$t")
  if [ -z "$best" ] || awk -v a="$t" -v b="$best" 'BEGIN { exit !(a < b) }'; then
    best=$t
    audio=$(sed -n 's/.*audio_s=\([0-9.]*\).*/\1/p' "$work/job.out")
  fi
done
am_cpu=$best
# The floor: the two outputs' rate conversions alone, as the resampler is built (one
# libsamplerate zero-order-hold call per period, with its float conversions both ways).
conv_cpu=""
for _ in $(seq "$repeat"); do
  t=$("$job" "$work" --convert-only | sed -n 's/.*cpu_s=\([0-9.]*\).*/\1/p')
  if [ -z "$conv_cpu" ] || awk -v a="$t" -v b="$conv_cpu" 'BEGIN { exit !(a < b) }'; then conv_cpu=$t; fi
done
sox_cpu=$(best_of run_sox)
gst_cpu=$(best_of run_gst)

per_hour() { awk -v c="$1" -v s="$2" 'BEGIN { printf "%.2f", c * 3600 / s }'; }
am_h=$(per_hour "$am_cpu" "$audio")
sox_h=$(per_hour "$sox_cpu" "$seconds")
gst_h=$(per_hour "$gst_cpu" "$seconds")
conv_h=$(per_hour "$conv_cpu" "$seconds")
printf '\n| %-8s | %13s | %12s | %18s | %20s |\n' tool "CPU s (run)" "audio s" "CPU s / audio hour" "CPU / audiomw CPU"
printf '|%s|%s|%s|%s|%s|\n' ---------- --------------- -------------- -------------------- ----------------------
for row in "audiomw $am_cpu $audio $am_h" "convert $conv_cpu $seconds $conv_h" "sox $sox_cpu $seconds $sox_h" \
  "gst $gst_cpu $seconds $gst_h"; do
  read -r name cpu secs h <<<"$row"
  printf '| %-8s | %13s | %12s | %18s | %20s |\n' "$name" "$cpu" "$secs" "$h" \
    "$(awk -v a="$h" -v b="$am_h" 'BEGIN { printf "%.2f", a / b }')"
done

# Real time: the first 20 s of the input, cards paced by the clock.
head -c $((20 * 16000 * 4 * 2)) "$work/input.pcm" >"$work/rt/input.pcm"
"$job" "$work/rt" --realtime >"$work/rt.out"
load=$(sed -n 's/.*load_pct=\([0-9.]*\).*/\1/p' "$work/rt.out")
wall=$(sed -n 's/.*wall_s=\([0-9.]*\).*/\1/p' "$work/rt.out")
echo
echo "audiomw in real time: ${load}% of one core over ${wall} s (20 s of input, cards paced by the clock)"
