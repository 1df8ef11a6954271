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

# The median of a figure that vyn_load printed.
median() { # median NAME FIELD
    sort -g -k "$2,$2" "$scratch/$1.costs" |
        awk -v field="$2" '{ all[NR] = $field } END { print all[int((NR + 1) / 2)] }'
}
cost_row() { row "$1" "$(median library "$2")" "$(median plain "$2")" "$3"; }

for ((round = 0; round < 51; ++round)); do
    for name in library plain; do
        "$build/bin/vyn_load" "$scratch/$name" >>"$scratch/$name.costs"
    done
done
printf '%-34s %10s %10s %8s %8s\n' '' library plain ratio goal
cost_row 'time to load, us' 1 0.50
cost_row 'private memory, KB' 2 0.75
row 'stripped, bytes' "$(stat -c %s "$scratch/library")" "$(stat -c %s "$scratch/plain")" 0.67
cost_row 'serializing each message, us' 3 1.10
row 'exported symbols' "$(symbols "$scratch/library")" "$(symbols "$scratch/plain")" ''
row 'relocations' "$(relocations "$scratch/library")" "$(relocations "$scratch/plain")" ''
for name in .text .rodata .eh_frame .dynsym .dynstr .rela.dyn .data.rel.ro .data .bss; do
    row "section $name, bytes" "$(section "$scratch/library" $name)" \
        "$(section "$scratch/plain" $name)" ''
done
