#!/usr/bin/env bash
# abi.sh INCLUDE LIST [BASELINE]: what a compiled C service relies on, that is the listed functions
# with their types and the enums, as the headers in INCLUDE declare them. Prints it as abidw's XML,
# or fails with what differs from the baseline in a way that breaks such a service or adds to it.
set -euo pipefail
include=$(realpath "$1") list=$(realpath "$2") baseline=${3:+$(realpath "$3")}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# A pointer to each function carries its whole type; the library itself holds thousands of others.
{
    printf '#include "%s"\n' json_helper.h logger.h proto_helper.h vyn_header.h
    sed 's/.*/__typeof__(\&&) const abi_& = \&&;/' "$list"
    sed -n 's/^enum \([a-z_]*\) {.*/enum \1 const abi_enum_\1 = (enum \1)0;/p' "$include"/*.h
} >probe.c
"${CC:-cc}" -g -shared -fPIC -I "$include" probe.c -o probe.so
abidw --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed --drop-undefined-syms \
    --type-id-style hash probe.so >present.xml
if [ -z "$baseline" ]; then
    cat present.xml
elif ! abidiff "$baseline" present.xml; then
    echo "abi: not as in $baseline" >&2
    exit 1
fi
