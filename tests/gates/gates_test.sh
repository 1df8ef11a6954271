#!/usr/bin/env bash
# gates_test.sh PROTODIR INCLUDE LIST LIBRARY: each gate passes what was released, and fails with
# the right name after a change that breaks what is in the field.
set -euo pipefail
gates=$(dirname "$(realpath "${BASH_SOURCE[0]}")") released=$gates/../../released
protos=$(realpath "$1") include=$(realpath "$2") list=$(realpath "$3") library=$(realpath "$4")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

schema() {
    protoc --include_imports -I changed --descriptor_set_out=set changed/*.proto
    "$gates/schema.py" set "$released/schema.txt"
}
exports() { "$gates/../consumer/exports.sh" "$library" list; }
abi() { "$gates/abi.sh" changed list "$released/abi.xml"; }
state() { cc -x c -c changed/logger.h -o object && "$gates/state.sh" object; }

# check GATE WORDS FILE SED: the words are what the gate must say of the change; none: it passes.
check() {
    local gate=$1 words=$2 file=$3 status=0 expected=1 from=$include
    [ -n "$words" ] || expected=0
    [ "$gate" != schema ] || from=$protos
    rm -rf changed
    cp -r "$from" changed
    cp "$list" list
    sed -i "$4" "$file"
    "$gate" >said 2>&1 || status=1
    if [ "$status" -ne "$expected" ] || { [ -n "$words" ] && ! grep -qF -- "$words" said; }; then
        echo "FAILED $gate, $4: status $status, not '$words'" >&2
        cat said >&2
        exit 1
    fi
    echo "ok  $gate: ${words:-passes}"
}
while IFS='|' read -r gate words file change; do
    check "$gate" "$words" "$file" "$change"
done <<'ROWS'
schema||changed/enums.proto|s/HISTORY/HISTORY/
schema|Header.ttl: renamed to time_to_live|changed/vyn_header_v3.proto|s/ ttl = / time_to_live = /
schema|Header.ttl: renumbered from 9 to 90|changed/vyn_header_v3.proto|s/ ttl = 9;/ ttl = 90;/
schema|Header.ttl: changed from "optional int64" to "optional uint64"|changed/vyn_header_v3.proto|s/int64 ttl/uint64 ttl/
schema|Header.ttl: changed from "optional int64" to "repeated int64"|changed/vyn_header_v3.proto|s/int64 ttl/repeated int64 ttl/
schema|Header.ttl: lost|changed/vyn_header_v3.proto|/ ttl = /d
schema|Header.more: new|changed/vyn_header_v3.proto|s/.* ttl = /int64 more = 99; &/
schema|AppUsage.status: lost|changed/heartbeat.proto|s/message AppUsage /message Usage /;s/repeated AppUsage/repeated Usage/
schema|PacketStatus.LIVE: renumbered from 3 to 7|changed/enums.proto|s/LIVE = 3/LIVE = 7/
schema|Input.int_value: changed|changed/command_req.proto|/oneof value/,/}/{/oneof\|}/d}
exports||list|
exports|< memscpy|list|/^memscpy$/d
exports|> more|list|s/^memscpy$/&\nmore/
state|> shared|changed/logger.h|$achar shared[9];
abi||changed/vyn_header.h|s/Time to live/How long it lives/
abi|type of 'int64_t ttl' changed|changed/vyn_header.h|s/int64_t ttl;/int32_t ttl;/
abi|abi_memscpy|list|/^memscpy$/d
abi|abi_calculate_checksum|changed/proto_helper.h|/calculate_checksum(/s/uint8_t/uint16_t/
abi|VYN_NOT_A_HEADER|changed/proto_helper.h|s/VYN_NOT_A_HEADER = 8/VYN_NOT_A_HEADER = 18/
ROWS
