#!/bin/bash
# Installs audiomw from a build tree and builds applications against the installed
# files only. Steps (one ctest test each):
#   install      install every component into a staging prefix, move it to PREFIX (the
#                installed files must not care where they are) and check the layout
#   component    install the component "audiomw" alone: no platform stand-in comes along
#   pkg-config   build app/consumer.cpp with the compiler and `pkg-config --cflags --libs`
#   find-package build app/ as a CMake project with find_package(audiomw)
# The applications run with LD_LIBRARY_PATH unset: they find the libraries through the
# RUNPATH they were linked with and the $ORIGIN of the installed libraries.
# Environment: AUDIOMW_BUILD (build tree), AUDIOMW_SOURCE, AUDIOMW_LIBDIR (relative libdir),
# AUDIOMW_CXX (compiler), AUDIOMW_CXXFLAGS (e.g. the sanitizer of the build), SCRATCH;
# for a cross build AUDIOMW_TOOLCHAIN (CMake toolchain file), AUDIOMW_PKG_CONFIG (the
# target's pkg-config) and AUDIOMW_EMULATOR (runs the target's programs).
set -euo pipefail
step=$1
prefix=$SCRATCH/prefix
libdir=$prefix/$AUDIOMW_LIBDIR
here=$(cd "$(dirname "$0")" && pwd)
pkg_config=${AUDIOMW_PKG_CONFIG:-pkg-config}
read -r -a emulator <<<"${AUDIOMW_EMULATOR:-}"
unset LD_LIBRARY_PATH

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

expect_files() {
  local root=$1 want=$2
  shift 2
  for f in "$@"; do
    if [ "$want" = present ] && [ ! -e "$root/$f" ]; then fail "$f missing under $root"; fi
    if [ "$want" = absent ] && [ -e "$root/$f" ]; then fail "$f installed under $root"; fi
  done
}

LIBS=(libaudiomw.so libaudiomw-host.so libtinyalsa.so libaudiomw-voice.so)
MAIN_FILES=("$AUDIOMW_LIBDIR/libaudiomw.so" include/audiomw/audio_ai.h include/audiomw/audio_astream.h
  include/audiomw/audio_ext.h include/audiomw/util.h include/audiomw/qx_audio_alg.h
  "$AUDIOMW_LIBDIR/pkgconfig/audiomw.pc" "$AUDIOMW_LIBDIR/cmake/audiomw/audiomwConfig.cmake"
  "$AUDIOMW_LIBDIR/cmake/audiomw/audiomwConfigVersion.cmake" "$AUDIOMW_LIBDIR/cmake/audiomw/audiomwTargets.cmake")
PLATFORM_FILES=("$AUDIOMW_LIBDIR/libaudiomw-host.so" "$AUDIOMW_LIBDIR/libtinyalsa.so"
  "$AUDIOMW_LIBDIR/libaudiomw-voice.so" include/tinyalsa/pcm.h include/tinyalsa/asoundlib.h
  include/tinyalsa/vcard.h include/audiomw/host_test.h "$AUDIOMW_LIBDIR/pkgconfig/audiomw-host.pc"
  "$AUDIOMW_LIBDIR/pkgconfig/tinyalsa.pc" "$AUDIOMW_LIBDIR/pkgconfig/audiomw-voice.pc"
  "$AUDIOMW_LIBDIR/cmake/audiomw/audiomw-hostTargets.cmake"
  "$AUDIOMW_LIBDIR/cmake/audiomw/audiomw-tinyalsaTargets.cmake"
  "$AUDIOMW_LIBDIR/cmake/audiomw/audiomw-voiceTargets.cmake")

# Each installed library looks for its neighbours through $ORIGIN only.
check_runpath() {
  for lib in "${LIBS[@]}"; do
    local rp
    rp=$(readelf -d "$libdir/$lib" | sed -n 's/.*(R\(UN\)\{0,1\}PATH).*\[\(.*\)\]/\2/p')
    [[ $rp == \$ORIGIN* ]] || fail "$lib: run path '$rp' does not start with \$ORIGIN"
    [[ $rp != *"$AUDIOMW_BUILD"* ]] || fail "$lib: run path '$rp' names the build tree"
  done
}

# The program's audiomw and tinyalsa libraries come from the prefix: its own loader
# (the ELF interpreter) lists what it would load.
check_resolved() {
  local prog=$1 out interp
  interp=$(readelf -l "$prog" | sed -n 's/.*program interpreter: \(.*\)\]/\1/p')
  out=$("${emulator[@]}" "$interp" --list "$prog")
  for lib in "${LIBS[@]}"; do
    local where
    where=$(echo "$out" | awk -v l="$lib" '$1 == l { print $3 }')
    [ -n "$where" ] || fail "$prog does not load $lib"
    [ "$(realpath "$where")" = "$(realpath "$libdir/$lib")" ] || fail "$prog loads $lib from $where"
  done
}

run_consumer() {
  local prog=$1 work=$2
  rm -rf "$work" && mkdir -p "$work"
  check_resolved "$prog"
  "${emulator[@]}" "$prog" "$work" || fail "$prog exited with $?"
}

case $step in
  install)
    rm -rf "$SCRATCH/stage" "$prefix"
    cmake --install "$AUDIOMW_BUILD" --prefix "$SCRATCH/stage" >/dev/null
    mv "$SCRATCH/stage" "$prefix"
    expect_files "$prefix" present "${MAIN_FILES[@]}" "${PLATFORM_FILES[@]}"
    check_runpath
    if grep -rlI -e "$AUDIOMW_BUILD" -e "$AUDIOMW_SOURCE" -e "$SCRATCH/stage" "$prefix"; then
      fail "installed files above name the build tree, the sources or the staging prefix"
    fi
    ;;
  component)
    only=$SCRATCH/only-audiomw
    rm -rf "$only"
    cmake --install "$AUDIOMW_BUILD" --prefix "$only" --component audiomw >/dev/null
    expect_files "$only" present "${MAIN_FILES[@]}"
    expect_files "$only" absent "${PLATFORM_FILES[@]}"
    ;;
  pkg-config)
    out=$SCRATCH/pkg-config
    rm -rf "$out" && mkdir -p "$out"
    export PKG_CONFIG_PATH=$libdir/pkgconfig
    # shellcheck disable=SC2046,SC2086
    "$AUDIOMW_CXX" -std=c++17 -Wall -Wextra -Werror $AUDIOMW_CXXFLAGS "$here/app/consumer.cpp" -o "$out/consumer" \
      $("$pkg_config" --cflags --libs audiomw) -Wl,-rpath,"$("$pkg_config" --variable=libdir audiomw)"
    run_consumer "$out/consumer" "$out/work"
    ;;
  find-package)
    out=$SCRATCH/find-package
    rm -rf "$out"
    compiler=(-DCMAKE_CXX_COMPILER="$AUDIOMW_CXX")
    [ -z "${AUDIOMW_TOOLCHAIN:-}" ] || compiler=(-DCMAKE_TOOLCHAIN_FILE="$AUDIOMW_TOOLCHAIN")
    cmake -S "$here/app" -B "$out" -DCMAKE_PREFIX_PATH="$prefix" "${compiler[@]}" \
      -DCMAKE_CXX_FLAGS="$AUDIOMW_CXXFLAGS" >/dev/null
    cmake --build "$out" >/dev/null
    run_consumer "$out/consumer" "$out/work"
    ;;
  *)
    fail "unknown step $step"
    ;;
esac
echo "$step: ok"
