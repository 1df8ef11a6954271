#!/usr/bin/env bash
# exports.sh LIBRARY LIST: the C functions that the library exports are those of the list, and
# nothing of the C++ library or of protobuf leaks out of it.
set -euo pipefail
library=$1 list=$2

symbols=$(nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $3); print $3 }')
if ! diff <(grep -v '^_\|^descriptor_table_' <<<"$symbols" | LC_ALL=C sort) "$list"; then
    echo "exports: '<' is exported but not listed, '>' listed but not exported" >&2
    exit 1
fi
# Arena::CreateMaybeMessage<T> is generated code of ours, inside a name of theirs.
leaked=$(grep -E '^_Z(T[VIS])?(N|NK)?(S[tabiods]|6google|3vyn)' <<<"$symbols" |
    grep -v '^_ZN6google8protobuf5Arena18CreateMaybeMessageI' | c++filt || true)
if [ -n "$leaked" ]; then
    printf 'exports: leaked\n%s\n' "$leaked" >&2
    exit 1
fi
# Of every message class the table of its functions and its default instance, of every enum its
# check.
count() {
    local found
    found=$(grep -cE "$1" <<<"$symbols") || true
    [ "$found" -eq "$2" ] || {
        echo "exports: $found of $2 like $1" >&2
        exit 1
    }
}
count '^_ZTV' 123
count '_default_instance_E?$' 123
count '^_Z[0-9]+[A-Za-z_]+_IsValidi$' 5
count '^_Z[0-9]+[A-Za-z_]+_descriptorv$' 5
for class in _ZTV6Header _ZTV19Header_Property_bag _Header_default_instance_ \
    _ZTV50DeviceProvisionRequest_ConfigurationEntry_DoNotUse; do
    grep -qx "$class" <<<"$symbols" || {
        echo "exports: $class is missing" >&2
        exit 1
    }
done
