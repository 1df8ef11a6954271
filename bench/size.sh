#!/usr/bin/env bash
# What the library costs a service before its first call, beside a plain link of the same sources.
#
# Usage: size.sh BUILD   with vyn_proto, vyn_proto_plain and vyn_load built
set -euo pipefail
build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
strip -o "$scratch/library" "$build/lib/libvyn_proto.so.1"
strip -o "$scratch/plain" "$build/lib/libvyn_proto_plain.so"

symbols() { nm -D --defined-only "$1" | wc -l; }
relocations() { readelf -rW "$1" | grep -c ' R_' || true; }
section() { size -A "$1" | awk -v name="$2" '$1 == name { print $2 }'; }
row() { # row NAME LIBRARY PLAIN GOAL
    awk -v name="$1" -v library="$2" -v plain="$3" -v goal="$4" 'BEGIN {
        printf "%-34s %10s %10s %8.2f %8s\n", name, library, plain, library / plain, goal }'
}

read -r -d '' library_load library_memory library_time plain_load plain_memory plain_time < <(
    "$build/bin/vyn_load" "$scratch/library" "$scratch/plain" | tr '\n' ' '
) || true
printf '%-34s %10s %10s %8s %8s\n' '' library plain ratio goal
row 'time to load, us' "$library_load" "$plain_load" 0.50
row 'private memory, KB' "$library_memory" "$plain_memory" 0.75
row 'stripped, bytes' "$(stat -c %s "$scratch/library")" "$(stat -c %s "$scratch/plain")" 0.67
row 'serializing each message, us' "$library_time" "$plain_time" 1.10
row 'exported symbols' "$(symbols "$scratch/library")" "$(symbols "$scratch/plain")" ''
row 'relocations' "$(relocations "$scratch/library")" "$(relocations "$scratch/plain")" ''
for name in .text .rodata .eh_frame .dynsym .dynstr .rela.dyn .data.rel.ro .data .bss; do
    row "section $name, bytes" "$(section "$scratch/library" $name)" \
        "$(section "$scratch/plain" $name)" ''
done
