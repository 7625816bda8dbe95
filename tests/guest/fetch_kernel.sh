#!/usr/bin/env bash
# Fetches the kernel of Debian's linux-image-amd64 and the modules of the snd-aloop
# loopback card into DIR, without installing anything:
#   DIR/vmlinux           the uncompressed kernel (booted directly through its PVH entry)
#   DIR/bzImage           the kernel as packaged (booted when vmlinux cannot be made)
#   DIR/modules/*.ko      snd-aloop and what it depends on, uncompressed
#   DIR/modules.order     the modules in loading order
#   DIR/release           the package the files came from
# Usage: fetch_kernel.sh DIR
set -euo pipefail
dir=${1:?usage: fetch_kernel.sh DIR}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)

image_package() {
  apt-cache depends linux-image-amd64 2>/dev/null | awk '/Depends: linux-image-[0-9]/ {print $2; exit}'
}
pkg=$(image_package)
if [ -z "$pkg" ] && [ "$(id -u)" -eq 0 ]; then
  apt-get update >/dev/null
  pkg=$(image_package)
fi
[ -n "$pkg" ] || { echo "fetch_kernel: apt knows no linux-image-amd64 (run apt-get update)" >&2; exit 1; }
if [ -f "$dir/release" ] && [ "$(cat "$dir/release")" = "$pkg" ] && [ -f "$dir/modules.order" ]; then
  exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && apt-get download "$pkg" >/dev/null 2>&1) || { echo "fetch_kernel: cannot download $pkg" >&2; exit 1; }
mkdir "$work/x"
dpkg-deb --fsys-tarfile "$work"/*.deb | tar -x -C "$work/x" --wildcards './boot/vmlinuz-*' './lib/modules/*/kernel/sound/*'
rm -rf "$dir/modules" "$dir/vmlinux" "$dir/bzImage" "$dir/modules.order" "$dir/release"
mkdir "$dir/modules"
cp "$work"/x/boot/vmlinuz-* "$dir/bzImage"

# The uncompressed kernel sits xz-compressed inside the bzImage.
offset=$(LC_ALL=C grep -obUaP '\xfd\x37\x7a\x58\x5a\x00' "$dir/bzImage" | head -1 | cut -d: -f1 || true)
if [ -n "$offset" ]; then
  tail -c +$((offset + 1)) "$dir/bzImage" | xz -dc 2>/dev/null > "$dir/vmlinux.tmp" || true
  if [ -s "$dir/vmlinux.tmp" ] && [ "$(head -c 4 "$dir/vmlinux.tmp" | od -An -tx1 | tr -d ' ')" = 7f454c46 ]; then
    mv "$dir/vmlinux.tmp" "$dir/vmlinux"
  else
    rm -f "$dir/vmlinux.tmp"
  fi
fi

# snd-aloop and its dependencies (the package has no modules.dep: depmod writes it on
# installation), each uncompressed, in loading order.
declare -A seen=()
order=()
module_file() {
  find "$work/x/lib/modules" -name "$1.ko" -o -name "$1.ko.xz" -o -name "$1.ko.zst" | head -1
}
add_module() {
  local name=$1 file deps dep
  [ -n "${seen[$name]:-}" ] && return 0
  seen[$name]=1
  file=$(module_file "$name")
  [ -n "$file" ] || { echo "fetch_kernel: module $name not in $pkg" >&2; exit 1; }
  case "$file" in
    *.xz) xz -dc "$file" > "$dir/modules/$name.ko" ;;
    *.zst) zstd -qdc "$file" > "$dir/modules/$name.ko" ;;
    *) cp "$file" "$dir/modules/$name.ko" ;;
  esac
  deps=$(tr '\0' '\n' < "$dir/modules/$name.ko" | grep -a '^depends=' | head -1 | cut -d= -f2)
  for dep in ${deps//,/ }; do
    add_module "$dep"
  done
  order+=("$name")
}
add_module snd-aloop
printf '%s\n' "${order[@]}" > "$dir/modules.order"
echo "$pkg" > "$dir/release"
echo "fetch_kernel: $pkg: $( [ -f "$dir/vmlinux" ] && echo vmlinux || echo bzImage ), modules: ${order[*]}"
