#!/usr/bin/env bash
# Prints what released services, cars and the cloud rely on:
#   gates.sh schema DESCRIPTOR_SET   the fields of all messages and the values of all enums
#   gates.sh exports LIBRARY         the C functions; also what leaks, and which classes are missing
#   gates.sh abi INCLUDE LIST        the types of the listed functions and the enums, as abidw's XML
#   gates.sh state OBJECT...         the variables that calls in several threads share
# With "check BASELINE" in front of these words it fails with what differs from the baseline.
set -euo pipefail
export LC_ALL=C
gates=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

schema() { "$gates/schema.py" "$1"; }

exports() {
    nm -D --defined-only "$1" | awk '{ sub(/@.*/, "", $3); print $3 }' >"$work/symbols"
    grep -v '^_\|^descriptor_table_' "$work/symbols" | sort
    # Arena::CreateMaybeMessage<T> is generated code of ours, inside a name of protobuf.
    grep -E '^_Z(T[VIS])?(N|NK)?(S[tabiods]|6google|3vyn)' "$work/symbols" |
        grep -v '^_ZN6google8protobuf5Arena18CreateMaybeMessageI' | c++filt | sed 's/^/leaks: /' || true
    # Of every message its table of functions and its default instance, of every enum its check.
    comm -13 <(c++filt <"$work/symbols" | sed -nE 's/::/_/g; s/_DoNotUse//; s/^_//
            s/^vtable for (.*)/\1 vtable/p; s/_(IsValid|default_instance_)/ \1/p' | tr -s _ | sort) \
        <(sed -E 's/\.[^.]* [^.]* value$/ IsValid(int)/
            s/(.*)\.[^.]* [0-9].*/\1 vtable\n\1 default_instance_/; s/\./_/g' \
            "$gates/../../released/schema.txt" | tr -s _ | sort -u) | sed 's/^/missing: /'
}

# A pointer to each function carries its whole type; the library itself holds thousands of others.
abi() {
    {
        printf '#include "%s"\n' json_helper.h logger.h proto_helper.h vyn_header.h
        sed 's/.*/__typeof__(\&&) const abi_& = \&&;/' "$2"
        sed -n 's/^enum \([a-z_]*\) {.*/enum \1 const abi_enum_\1 = (enum \1)0;/p' "$1"/*.h
    } >"$work/probe.c"
    "${CC:-cc}" -g -shared -fPIC -I "$1" "$work/probe.c" -o "$work/probe.so"
    abidw --no-show-locs --no-corpus-path --no-comp-dir-path --no-elf-needed --drop-undefined-syms \
        --type-id-style hash "$work/probe.so"
}

# The thread sanitizer does not see what json-c or libcrypto write into.
state() {
    objdump -tC "$@" | grep -E ' O \.t?(bss|data)' | grep -vF ' .data.rel.ro' |
        sed -E 's/.*\t[0-9a-f]+ +(\.hidden )?//' | grep -v '^DW\.ref\.\|^std::__ioinit$' | sort
}

check() {
    "${@:2}" >"$work/present"
    if [ "$2" = abi ]; then abidiff "$1" "$work/present"; else diff "$1" "$work/present"; fi
}
"$@"
