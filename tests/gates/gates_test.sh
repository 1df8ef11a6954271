#!/usr/bin/env bash
# gates_test.sh PROTODIR INCLUDE LIST LIBRARY: each gate passes what was released, and names a change
# that breaks what is in the field.
set -euo pipefail
gates=$(dirname "$(realpath "${BASH_SOURCE[0]}")") released=$gates/../../released
protos=$(realpath "$1") include=$(realpath "$2") list=$(realpath "$3") library=$(realpath "$4")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

schema() {
    protoc --include_imports -I . --descriptor_set_out=set ./*.proto
    "$gates/gates.sh" check "$released/schema.txt" schema set
}
exports() { "$gates/gates.sh" check exports.txt exports "$library"; }
abi() { "$gates/gates.sh" check "$released/abi.xml" abi . exports.txt; }
state() { cc -x c -c logger.h -o object && "$gates/gates.sh" check "$gates/state.txt" state object; }

# What the gate must say of a change to a file. It passes what is released.
while IFS='|' read -r gate words file change; do
    rm -f ./*
    cp "$protos"/* "$include"/*.h .
    cp "$list" exports.txt
    sed -i "$change" "$file"
    status=0
    "$gate" >said 2>&1 || status=$?
    if [ -z "$words" ]; then [ "$status" -eq 0 ]; else
        [ "$status" -ne 0 ] && grep -qF -- "$words" said
    fi || { echo "FAILED $gate, $change: status $status, not '$words'"; cat said; exit 1; } >&2
    echo "ok  $gate: ${words:-passes}"
done <<'ROWS'
schema||enums.proto|s/HISTORY/HISTORY/
schema|< Header.ttl 9 optional int64|vyn_header_v3.proto|/ ttl = /d
schema|> Header.life 90 repeated uint64 json=TTL|vyn_header_v3.proto|s/int64 ttl = 9/repeated uint64 life = 90 [json_name = "TTL"]/
schema|< AppUsage.status 1 optional string|heartbeat.proto|s/message AppUsage /message Usage /;s/repeated AppUsage/repeated Usage/
schema|< PacketStatus.LIVE 3 value|enums.proto|s/LIVE = 3/LIVE = 7/
schema|< Input.int_value 2 optional int64 oneof|command_req.proto|/oneof value/,/}/{/oneof\|}/d}
exports||exports.txt|s/memscpy/memscpy/
exports|> memscpy|exports.txt|/^memscpy$/d
exports|< more|exports.txt|s/^memscpy$/&\nmore/
state|> shared|logger.h|$achar shared[9];
abi||vyn_header.h|s/Time to live/How long it lives/
abi|type of 'int64_t ttl' changed|vyn_header.h|s/int64_t ttl;/int32_t ttl;/
abi|abi_memscpy|exports.txt|/^memscpy$/d
abi|abi_calculate_checksum|proto_helper.h|/calculate_checksum(/s/uint8_t/uint16_t/
abi|VYN_NOT_A_HEADER|proto_helper.h|s/VYN_NOT_A_HEADER = 8/VYN_NOT_A_HEADER = 18/
ROWS
