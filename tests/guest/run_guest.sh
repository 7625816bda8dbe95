#!/usr/bin/env bash
# Runs test programs inside a qemu guest (software emulation) that boots Debian's
# kernel with two snd-aloop loopback cards (0 and 1), and reports their verdict.
#   run_guest.sh KERNEL_DIR WORK_DIR PROGRAM...
# KERNEL_DIR as fetch_kernel.sh makes it; WORK_DIR receives the initramfs and the
# guest's console output (guest.log). The programs are dynamically linked: their
# shared libraries and the dynamic loader go into the initramfs with them.
# Exit: 0 all passed, 1 a failure (or no verdict within the time limit), 77 when the
# kernel has not been fetched (1 then too with AUDIOMW_GUEST_REQUIRED=1).
# AUDIOMW_GUEST_TIMEOUT bounds each qemu run in seconds (default 300); a guest that
# does not come up is booted once more, so the rig takes at most twice that.
set -euo pipefail
kernel_dir=${1:?usage: run_guest.sh KERNEL_DIR WORK_DIR PROGRAM...}
work=${2:?usage: run_guest.sh KERNEL_DIR WORK_DIR PROGRAM...}
shift 2
here=$(cd "$(dirname "$0")" && pwd)
limit=${AUDIOMW_GUEST_TIMEOUT:-300}

if [ ! -f "$kernel_dir/modules.order" ]; then
  echo "guest kernel not fetched into $kernel_dir: run scripts/guest-test.sh (or tests/guest/fetch_kernel.sh)"
  [ "${AUDIOMW_GUEST_REQUIRED:-0}" = 1 ] && exit 1
  exit 77
fi
kernel=$kernel_dir/vmlinux
[ -f "$kernel" ] || kernel=$kernel_dir/bzImage
busybox=$(command -v busybox)
if ldd "$busybox" > /dev/null 2>&1; then
  echo "run_guest: $busybox is not statically linked (install busybox-static)" >&2
  exit 1
fi

start=$(date +%s%N)
root=$work/root
rm -rf "$root"
mkdir -p "$root"/{bin,dev,proc,sys,tmp,guestlib,tests,etc/guest,lib/modules}
cp "$busybox" "$root/bin/busybox"
cp "$here/guest_init.sh" "$root/init"
chmod +x "$root/init"
cp "$kernel_dir"/modules/*.ko "$root/lib/modules/"
cp "$kernel_dir/modules.order" "$root/etc/guest/modules.order"

# Programs and every shared library they load, debug sections left out; the loader
# at the path the programs name.
: > "$root/etc/guest/programs"
for program in "$@"; do
  name=$(basename "$program")
  strip --strip-debug -o "$root/tests/$name" "$program"
  echo "$name" >> "$root/etc/guest/programs"
  ldd "$program" | awk '/=> \// {print $3} /^\t\// {print $1}' | while read -r lib; do
    case "$lib" in
      */ld-linux*)
        mkdir -p "$root$(dirname "$lib")"
        cp -L "$lib" "$root$lib" ;;
      *)
        [ -f "$root/guestlib/$(basename "$lib")" ] || strip --strip-debug -o "$root/guestlib/$(basename "$lib")" "$(readlink -f "$lib")" ;;
    esac
  done
done
(cd "$root" && find . | busybox cpio -o -H newc 2>/dev/null) > "$work/initramfs.cpio"

echo "run_guest: $(cat "$kernel_dir/release") $(basename "$kernel"), initramfs $(( $(stat -c %s "$work/initramfs.cpio") / 1048576 )) MiB, $# programs"
# An emulated machine on a busy host may miss the kernel's early timer check, hence
# no_timer_check; a boot that still fails before the card is up is tried once more.
boot() {
  timeout "$limit" nice -n 5 qemu-system-x86_64 -accel tcg -m 1024 -smp 2 -nographic -no-reboot -nic none \
    -kernel "$kernel" -initrd "$work/initramfs.cpio" \
    -append "console=ttyS0 quiet panic=-1 oops=panic no_timer_check" \
    -device isa-debug-exit,iobase=0xf4,iosize=0x04 < /dev/null > "$work/guest.log" 2>&1
}
set +e
boot
rc=$?
if [ $rc -ne 1 ] && [ $rc -ne 3 ] && ! grep -q '^guest: cards:' "$work/guest.log"; then
  echo "run_guest: the guest did not come up (qemu exit $rc); booting again"
  boot
  rc=$?
fi
set -e
# Serial output carries carriage returns and the firmware's terminal codes.
tr -d '\r' < "$work/guest.log" | sed -e 's/\x1b\[[0-9;?]*[a-zA-Z]//g' | grep -v '^$' | grep -v 'SeaBIOS\|Booting from ROM'
ms=$(( ($(date +%s%N) - start) / 1000000 ))
elapsed=$((ms / 1000)).$(printf %03d $((ms % 1000)))
verdict=$(tr -d '\r' < "$work/guest.log" | grep '^guest: all .* programs passed$' || true)
case $rc in
  1) [ -n "$verdict" ] && { echo "run_guest: passed in $elapsed s"; exit 0; } ;;
  3) echo "run_guest: guest tests failed ($elapsed s)" ;;
  124) echo "run_guest: no verdict within $limit s" ;;
  *) echo "run_guest: guest ended without a verdict (qemu exit $rc)" ;;
esac
exit 1
