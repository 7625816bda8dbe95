#!/usr/bin/env bash
# Checks the dynamic symbols of libaudiomw.so:
#   exported: the demangled list of defined dynamic symbols equals the checked-in list;
#   imported: the undefined dynamic symbols, less those of the C and C++ runtime (libc,
#             libm, pthread, libstdc++, libgcc: versioned GLIBC_*, GLIBCXX_*, CXXABI_*,
#             GCC_*), the unversioned toolchain hooks (__gmon_start__, _ITM_*) and, in
#             a sanitizer build, what the sanitizer runtime defines, equal the
#             checked-in list, and none of them is defined by the library itself.
# Usage: check_symbols.sh NM LIB exported|imported LIST
set -euo pipefail
nm_tool=$1 lib=$2 mode=$3 list=$4
expected=$(grep -v '^#' "$list" | sed '/^$/d' | LC_ALL=C sort -u)
case "$mode" in
exported)
  actual=$("$nm_tool" -D --defined-only -C -j "$lib" | LC_ALL=C sort -u)
  if [ "$expected" != "$actual" ]; then
    echo "exported symbols differ from $list (< expected, > actual):"
    diff <(echo "$expected") <(echo "$actual") || true
    exit 1
  fi
  echo "$(echo "$actual" | wc -l) exported symbols match"
  ;;
imported)
  runtime='@+(GLIBC|GLIBCXX|CXXABI|GCC)_'
  hooks='^(__gmon_start__|_ITM_[A-Za-z]+|__(asan|tsan|ubsan|lsan|sanitizer)_.*)$'
  actual=$("$nm_tool" -D --undefined-only -C -j "$lib" | grep -Ev "$runtime" | sed 's/@.*//' |
    grep -Ev "$hooks" | LC_ALL=C sort -u)
  # A sanitizer runtime intercepts C and C++ runtime functions: linked against it, the
  # library imports them unversioned. Those the runtime defines are not the library's own.
  if "$nm_tool" -D --undefined-only -j "$lib" | grep -Eq '^__(asan|tsan)_init'; then
    for rt in $(ldd "$lib" | awk '/lib(asan|tsan|ubsan)\.so/ { print $3 }'); do
      actual=$(comm -23 <(echo "$actual") <("$nm_tool" -D --defined-only -C -j "$rt" | sed 's/@.*//' |
        LC_ALL=C sort -u))
    done
    # UndefinedBehaviorSanitizer's check of dynamic types refers to the type information
    # of every polymorphic class the library calls into (tinyxml2's nodes among them).
    actual=$(echo "$actual" | grep -v '^typeinfo for ' || true)
  fi
  defined=$("$nm_tool" -D --defined-only -C -j "$lib" | LC_ALL=C sort -u)
  carried=$(comm -12 <(echo "$expected") <(echo "$defined"))
  if [ "$expected" != "$actual" ] || [ -n "$carried" ]; then
    echo "imported symbols differ from $list (< listed, > imported):"
    diff <(echo "$expected") <(echo "$actual") || true
    [ -n "$carried" ] && printf 'defined in the library itself:\n%s\n' "$carried"
    exit 1
  fi
  echo "$(echo "$actual" | wc -l) platform symbols imported, as listed"
  ;;
*)
  echo "unknown mode $mode" >&2
  exit 2
  ;;
esac
