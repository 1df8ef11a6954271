#!/usr/bin/env bash
# Runs the commands of vynpkt that know messages by name and compares with protoc and jq.
#
# Usage: vynpkt_types_test.sh VYNPKT PROTODIR
set -Eeuo pipefail
protos=$(realpath "$2")
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"

echo "-- list and describe"
"$vynpkt" list >names
[ "$(wc -l <names)" -eq 122 ] || fail "list: $(wc -l <names) messages"
expect 0 "" -- list --json
same "--json" names <(jq -r '.[].name' out)
jq -r '.[] | .file + " " + .name' out | sort >pairs
expect 0 "" -- list --files
same "--files" pairs <(awk '/^ / { print file " " $1; next } { file = $1 }' out | sort)
[ "$(grep -c '^[^ ]' out)" -eq "$(find "$protos" -name '*.proto' | wc -l)" ] || fail "not all files"
while read -r file name; do
    "$vynpkt" describe "$name" >out || fail "describe $name"
    [ "$(sed 's/ {.*//' out | head -n 2)" = "// $file"$'\n'"message ${name##*.}" ] ||
        fail "describe $name: $(cat out)"
    "$vynpkt" encode -t "$name" <<<'{}' >empty || fail "encode $name"
    "$vynpkt" decode -t "$name" empty | "$vynpkt" encode -t "$name" |
        protoc --decode="$name" -I "$protos" "$file" >fields || fail "decode $name"
done <pairs
echo "ok  describe, encode and decode each message"
while IFS='|' read -r name text; do
    gives <(printf '%b' "$text") describe "$name"
done <<'END'
ActionType|// cm_update_request.proto\nenum ActionType {\n  ADD = 0;\n  EDIT = 1;\n  DELETE = 2;\n  RESET = 3;\n}\n
EventMessage.Step.ecu_name|// ota_event.proto\nstring ecu_name = 1;\n
configuration|// onboarding.proto\nmap<string, string> configuration = 9;\n
END

echo "-- encode and decode"
cat >telemetry.json <<'END'
{"telemetry":[{"time":"-9223372036854775808","data":[{"id":7,"string_value":["ü/\"\n  \\",""],
 "float_array_value":[0.1,"NaN"],"double_array_value":[1e-300,100000000000000000000],
 "int_array_value":[9223372036854775807]}]}],"meta":{"sequence_no":"18446744073709551615",
 "packet_status":3}}
END
cat >telemetry.txt <<'END'
telemetry {
  time: -9223372036854775808
  data {
    id: 7
    string_value: "\303\274/\"\n  \\"
    string_value: ""
    float_array_value: 0.1
    float_array_value: nan
    double_array_value: 1e-300
    double_array_value: 1e+20
    int_array_value: 9223372036854775807
  }
}
meta {
  sequence_no {
    value: 18446744073709551615
  }
  packet_status: LIVE
}
END
telemetry() { protoc "--$1=Telemetry" -I "$protos" telemetry.proto; }
expect 0 "" -- encode -t Telemetry telemetry.json -o telemetry.bin
same "protoc finds what was encoded" telemetry.txt <(telemetry decode <telemetry.bin)
telemetry encode <telemetry.txt >protoc.bin
expect 0 "" -- decode --type Telemetry protoc.bin
[ -z "$(tail -c 1 out)" ] || fail "no newline"
cp out decoded.json
gives protoc.bin encode -t Telemetry decoded.json
for name in com.vyn.protobuf.common.ota.OtaManifestEcu ota.OtaManifestEcu OtaManifestEcu EventMessage.Step; do
    gives <(printf '\n\1e') encode -t "$name" <<<'{"ecu_name":"e"}'
done

echo "-- pack and unpack"
{
    echo '{"version":3,"message_type":32773,"device_id":"d","property_bag":{"error_code":4},"body":'
    cat telemetry.json
    echo '}'
} >envelope.json
expect 0 "" -- pack --type Telemetry envelope.json -o packet.bin
gives telemetry.bin unpack --body - packet.bin
expect 0 "" -- unpack --type Telemetry packet.bin --body body
same "--body beside --type" body telemetry.bin
[ "$(wc -l <out)" -eq 1 ] || fail "the envelope is not one line"
same "the body's JSON" <(jq -S .body out) <(jq -S . decoded.json)
cp out typed.json
"$vynpkt" unpack packet.bin >out
same "the rest" <(jq -S 'del(.body)' typed.json) <(jq -S 'del(.body)' out)
jq -c --rawfile text telemetry.json '.body = $text' typed.json >text.json
for form in typed.json text.json; do
    gives packet.bin pack --type Telemetry "$form"
done
cat typed.json text.json >lines
"$vynpkt" pack -l --type Telemetry typed.json >record
same "a record" <(tail -c "$(stat -c %s packet.bin)" record) packet.bin
gives <(cat record record) pack -l --type Telemetry lines
printf 'float_array_value: -0' | protoc --encode=DataItem -I "$protos" telemetry.proto >zero.bin
"$vynpkt" pack --body zero.bin - <<<'{"version":3,"message_type":32768}' >zero.packet
expect 0 "" -- unpack --type DataItem zero.packet
cp out zero.json
gives zero.packet pack --type DataItem zero.json  # the sign of zero
jq -c '.body.meta.vin = "v" * 30000' typed.json >long.json
expect 0 "" -- pack -z --type Telemetry long.json -o long.zst
expect 0 "" -- unpack --type Telemetry long.zst
same "a long body" <(jq -S . long.json) <(jq -S . out)

echo "All as expected."
