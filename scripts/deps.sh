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
  graphviz
  qemu-system-x86 busybox-static xz-utils
)
# The aarch64 preset: the cross compiler, the emulator that runs its tests, and the
# arm64 builds of the libraries (multiarch, installed beside the host's).
CROSS_PACKAGES=(
  g++-aarch64-linux-gnu qemu-user
  libc6:arm64 libsamplerate0-dev:arm64 libtinyxml2-dev:arm64 libsndfile1-dev:arm64
  libgtest-dev:arm64 libgmock-dev:arm64 libbenchmark-dev:arm64 libwebrtc-audio-processing-dev:arm64
)
PACKAGES+=("${CROSS_PACKAGES[@]}")
# --list: print the packages, one a line, for a caller that installs them itself.
if [ "${1:-}" = --list ]; then
  printf '%s\n' "${PACKAGES[@]}"
  exit 0
fi
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
dpkg --print-foreign-architectures | grep -qx arm64 || dpkg --add-architecture arm64
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}"
