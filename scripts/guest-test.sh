#!/usr/bin/env bash
# Runs the guest tests: libtinyalsa's kernel backend and audiomw on the kernel's
# snd-aloop loopback card, inside a qemu guest (software emulation) that boots
# Debian's kernel (tests/guest). Installs what it needs when run as root, fetches the
# kernel into build/guest-kernel, builds the guest programs in the default preset
# and runs the ctest entry labelled guest.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
start=$(date +%s)
bash tests/guest/fetch_kernel.sh build/guest-kernel
cmake --preset default >/dev/null
cmake --build --preset default --target guest_pcm_test guest_audiomw_test
# A missing kernel is a failure here, not a skipped test.
AUDIOMW_GUEST_REQUIRED=1 ctest --preset default -L guest --no-tests=error
# What ran inside the guest, program by program.
tr -d '\r' < build/default/tests/guest/rig/guest.log | grep -E '^guest: |^\[  (PASSED|SKIPPED|FAILED) +\] [0-9]+ tests?' || true
echo "guest tests finished in $(( $(date +%s) - start )) s"
