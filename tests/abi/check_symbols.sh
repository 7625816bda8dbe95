#!/usr/bin/env bash
# Checks the dynamic symbols of libaudiomw.so:
#   exported: the demangled list of defined dynamic symbols equals the checked-in list;
#   imported: every listed platform symbol is an undefined dynamic symbol (the library
#             calls the platform libraries and does not carry their code).
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
  undefined=$("$nm_tool" -D --undefined-only -C -j "$lib" | sed 's/@.*//' | LC_ALL=C sort -u)
  defined=$("$nm_tool" -D --defined-only -C -j "$lib" | LC_ALL=C sort -u)
  missing=$(comm -23 <(echo "$expected") <(echo "$undefined"))
  carried=$(comm -12 <(echo "$expected") <(echo "$defined"))
  if [ -n "$missing" ] || [ -n "$carried" ]; then
    [ -n "$missing" ] && printf 'not imported:\n%s\n' "$missing"
    [ -n "$carried" ] && printf 'defined in the library itself:\n%s\n' "$carried"
    exit 1
  fi
  echo "$(echo "$expected" | wc -l) platform symbols imported"
  ;;
*)
  echo "unknown mode $mode" >&2
  exit 2
  ;;
esac
