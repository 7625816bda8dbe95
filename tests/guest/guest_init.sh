#!/bin/busybox sh
# /init of the test guest: loads two loopback cards (0 and 1), runs every test program listed in
# /etc/guest/programs, and reports on the serial console and through the
# isa-debug-exit port (0 written: all passed, 1: something failed).
/bin/busybox --install -s /bin
export PATH=/bin LD_LIBRARY_PATH=/guestlib HOME=/tmp
mount -t devtmpfs devtmpfs /dev
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t tmpfs tmpfs /tmp

report() {
  echo "guest: $1"
  printf "\\$(printf %03o "$2")" | dd of=/dev/port bs=1 seek=244 count=1 2>/dev/null
  poweroff -f
}

while read -r module; do
  case "$module" in
    snd-aloop) insmod "/lib/modules/$module.ko" index=0,1 enable=1,1 pcm_substreams=1,1 ;;
    *) insmod "/lib/modules/$module.ko" ;;
  esac || report "cannot load $module" 1
done < /etc/guest/modules.order
for node in pcmC0D0p pcmC0D1c pcmC1D0p pcmC1D1c; do
  [ -c "/dev/snd/$node" ] || report "no loopback PCM node $node" 1
done
echo "guest: cards:"
cat /proc/asound/cards

failed=0
programs=0
while read -r program; do
  programs=$((programs + 1))
  echo "guest: running $program"
  timeout 150 "/tests/$program" --gtest_color=no < /dev/null
  rc=$?
  echo "guest: $program exit $rc"
  [ $rc -eq 0 ] || failed=$((failed + 1))
done < /etc/guest/programs
if [ $failed -eq 0 ]; then
  report "all $programs programs passed" 0
fi
report "$failed of $programs programs failed" 1
