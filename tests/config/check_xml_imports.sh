#!/usr/bin/env bash
# The tinyxml2 functions libaudiomw.so imports must be exactly the tinyxml2 lines of the
# imported-symbol list: the loaders walk the document with those and nothing else (the
# document itself is deleted through its virtual destructor).
# Usage: check_xml_imports.sh NM LIB IMPORTED_LIST
set -euo pipefail
nm_tool=$1 lib=$2 list=$3
allowed=$(grep '^tinyxml2::' "$list" | LC_ALL=C sort -u)
used=$("$nm_tool" -D --undefined-only -C -j "$lib" | sed 's/@.*//' | grep '^tinyxml2::' | LC_ALL=C sort -u || true)
if [ "$allowed" != "$used" ]; then
  echo "tinyxml2 imports differ from $list (< allowed, > imported):"
  diff <(echo "$allowed") <(echo "$used") || true
  exit 1
fi
echo "$(echo "$used" | wc -l) tinyxml2 functions imported, as listed"
