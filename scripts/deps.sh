#!/usr/bin/env bash
# Installs the Debian packages audiomw needs to build, test and run its demonstration.
# As root it runs apt-get; otherwise it prints the command to run.
set -euo pipefail
PACKAGES=(
  build-essential cmake ninja-build pkg-config
  libsamplerate0-dev libtinyxml2-dev libsndfile1-dev libspeexdsp-dev libwebrtc-audio-processing-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  espeak-ng sox
  qemu-system-x86 busybox-static xz-utils
)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "audiomw needs: sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}"
