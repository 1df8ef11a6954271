#!/usr/bin/env bash
# Sends two sample messages out and brings them back, in plain words, and compares what came back
# with what was sent. Fails on any difference.
#
# Usage: demo.sh BINDIR PROTODIR
#   BINDIR    where vynpkt is
#   PROTODIR  where vyn_header_v3.proto is
# Needs protoc, zstd and jq.
set -Eeuo pipefail

if [ $# -ne 2 ]; then
    sed -n 's/^# \(Usage\)/\1/p' "$0" >&2
    exit 2
fi
vynpkt=$(realpath "$1")/vynpkt
protos=$(realpath "$2")
samples=$(realpath "$(dirname "${BASH_SOURCE[0]}")")/envelopes
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "DEMO FAILED: $*" >&2
    exit 1
}
trap 'echo "DEMO FAILED: line $LINENO" >&2' ERR

size() { echo "$(stat -c %s "$1") bytes"; }
step() { printf '\n  %s\n' "$*"; }
indent() { sed 's/^/      /'; }

# The body of an envelope as bytes. In the encoding type, bits 14 and up, 2 is binary: base64.
body_of() {
    if [ "$(jq '.message_type / 16384 | floor' "$1")" -eq 2 ]; then
        jq -j .body "$1" | base64 -d
    else
        jq -j .body "$1"
    fi
}

round_trip() {
    local name=$1 title=$2
    local sent=$samples/$name.json packet=$work/$name.bin frame=$work/$name.bin.zst
    local received=$work/$name.json body=$work/$name.body

    printf '\n== %s\n' "$title"
    step "1. A service describes the message as a JSON envelope ($(size "$sent")):"
    jq -c '.body |= .[:40] + "..."' "$sent" | indent

    step "2. vynpkt pack turns it into the packet that goes over the wire:"
    "$vynpkt" pack "$sent" -o "$packet"
    echo "$(size "$packet"), as protoc reads them:" | indent
    protoc --decode=Header -I "$protos" vyn_header_v3.proto <"$packet" >"$work/fields"
    sed -E 's/^(body: .{40}).*/\1... (cut here)/' "$work/fields" | indent

    step "3. The ordinary zstd command compresses it, as the sender does:"
    zstd -q -f "$packet" -o "$frame"
    echo "$(size "$packet") become $(size "$frame")" | indent

    step "4. vynpkt unpack turns what arrives back into an envelope and a body:"
    "$vynpkt" unpack "$frame" --body "$body" -o "$received"
    echo "envelope of $(size "$received"), body of $(size "$body")" | indent

    step "5. Is it the same?"
    [ "$(jq length "$sent")" -gt 5 ] || fail "$name: the sample has lost its fields"
    diff <(jq -S . "$sent") <(jq -S . "$received") || fail "$name: the envelopes differ"
    echo "every field: yes ($(jq -r 'keys | join(", ")' "$sent"))" | indent
    [ -s "$body" ] || fail "$name: the body is empty"
    cmp <(body_of "$sent") "$body" || fail "$name: the bodies differ"
    echo "every byte of the body: yes ($(size "$body"), SHA-256 $("$vynpkt" checksum "$body" |
        cut -c 1-16)...)" | indent
}

echo "Every packet of the unit is one protobuf message, Header, which carries a body."
round_trip binary "A binary body: recorded bus frames, as base64 in JSON, as plain bytes on the wire"
round_trip text "A text body: JSON with quotes, slashes, line breaks and letters of many languages"

printf '\n== Packets that wait in a file until there is a connection\n'
step "1. vynpkt append stores both packets; vynpkt verify checks the file:"
"$vynpkt" append "$work/packets" "$work/binary.bin" "$work/text.bin"
(cd "$work" && "$vynpkt" verify packets) | indent
step "2. vynpkt show reads them back, a line each:"
"$vynpkt" show "$work/packets" >"$work/shown"
jq -c '.body |= .[:20] + "..." | {message_id, message_type, body}' "$work/shown" | indent
step "3. Are they the same?"
cmp "$work/shown" <("$vynpkt" unpack "$work/binary.bin" && "$vynpkt" unpack "$work/text.bin") ||
    fail "the packets in the file differ"
echo "yes, and in the order in which they were stored" | indent

# Bytes of a message by name, once from our JSON and once by way of protoc.
transcode() {
    local type=$1 schema=$2
    local json=$samples/../messages/$type.json bytes=$work/$type.bin
    "$vynpkt" encode -t "$type" "$json" -o "$bytes"
    "$vynpkt" decode -t "$type" "$bytes" -o "$work/$type.json"
    cmp "$bytes" <("$vynpkt" encode -t "$type" "$work/$type.json") || fail "$type: not the same back"
    cmp "$bytes" <(protoc --decode="$type" -I "$protos" "$schema" <"$bytes" |
        protoc --encode="$type" -I "$protos" "$schema") || fail "$type: protoc disagrees"
    echo "$type: $(size "$json") of JSON, $(size "$bytes") on the wire; JSON and protoc give the same back"
}
printf '\n== Messages by name: any of the %s in the catalogue, as JSON and as bytes\n' \
    "$("$vynpkt" list | wc -l)"
step "vynpkt encode and decode a telemetry batch and a trip:"
{ transcode Telemetry telemetry.proto && transcode TripData trip.proto; } | indent

printf '\nDEMO PASSED: everything came back exactly as it was sent.\n'
