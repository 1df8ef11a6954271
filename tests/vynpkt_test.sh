#!/usr/bin/env bash
# Runs vynpkt as people do, beyond what the demo shows, and compares with protoc, zstd, jq and
# sha256sum.
#
# Usage: vynpkt_test.sh VYNPKT PROTODIR SAMPLEDIR
set -Eeuo pipefail
protos=$(realpath "$2")
samples=$(realpath "$3")
. "$(dirname "${BASH_SOURCE[0]}")/support/broker.sh"
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"

fields() { protoc --decode=Header -I "$protos" vyn_header_v3.proto; }

echo "-- pack and unpack"
expect 0 "" -- pack "$samples/binary.json" -o binary.bin
expect 0 "" -- pack "$samples/text.json" -o text.bin
expect 0 "" -- pack -z "$samples/text.json" -o text.zst
same "-z: zstd finds the packet in it" <(zstd -dcq text.zst) text.bin
zstd -lv text.zst >listing 2>&1
grep -qF "($(stat -c %s text.bin) B)" listing || fail "-z: no size in the frame"
gives text.bin pack --body <(jq -j .body "$samples/text.json") "$samples/text.json"

expect 0 "" -- pack "$samples/text.json" --new-id --now --status abnormal
fields <out >fields.txt
grep -qE '^message_id: "[0-9a-f-]{36}"$' fields.txt || fail "--new-id"
grep -q '^packet_status: ABNORMAL$' fields.txt || fail "--status"
age=$(($(date +%s%3N) - $(sed -n 's/^time: //p' fields.txt)))
[ "$age" -ge 0 ] && [ "$age" -le 60000 ] || fail "--now: $age ms ago"

echo "-- bodies of any length"
printf '{"message_type":32773,"property_bag":{"checksum":"c0ffee"}}' >head.json
for length in 0 18430 30000; do
    head -c "$length" /dev/urandom >body
    expect 0 "" -- pack --body body head.json -o long.bin
    gives body unpack --body - long.bin
done
fields <long.bin | grep -a 'checksum: "c0ffee"' >line || fail "--body: no checksum"
expect 1 "(code 13)" -- unpack --body new long.bin
[ ! -e new ] || fail "a body without its envelope"
"$vynpkt" pack --body <(head -c 18430 body) head.json -o long.bin
expect 4 "18429 bytes" -- unpack --body new long.bin
same "the body that the envelope lacks" <(head -c 18430 body) new

echo "-- list and describe"
"$vynpkt" list >names
[ "$(wc -l <names)" -eq "$(cat "$protos"/*.proto | grep -cE '^ *message ')" ] || fail "not all messages"
expect 0 "" -- list --json
same "--json" names <(jq -r '.[].name' out)
jq -r '.[] | .file + " " + .name' out | sort >pairs
expect 0 "" -- list --files
same "--files" pairs <(awk '/^ / { print file " " $1; next } { file = $1 }' out | sort)
types=0
while read -r file name; do
    "$vynpkt" describe -r "$name" >out || fail "describe $name"
    [ "$(sed 's/ {.*//;2q' out)" = "// $file"$'\n'"message ${name##*.}" ] ||
        fail "describe $name: $(cat out)"
    cat out >>described
    sed -nE "s/^  [^ ].* (\w+) = [0-9]+;.*/$name \1/p; /^}/q" out >>fields
    "$vynpkt" describe --example "$name" >"$name" && "$vynpkt" encode -t "$name" "$name" >body ||
        fail "the example of $name"
    echo "$((++types)) $name # of $file" >>types.txt
    echo "{\"version\":3,\"message_type\":$((32768 + types)),\"property_bag\":{\"checksum\":\"c\"}}" |
        "$vynpkt" pack --body body -o $types.packet --status $((types % 5))
    "$vynpkt" decode -t "$name" body >>all.json
done <pairs
"$vynpkt" append all.dat $(seq -f %g.packet $types)
comm -23 <(sort fields) <(jq -r 'keys[] as $key | "\(input_filename) \($key)"' $(<names) | sort) >lost
comm -23 <(sed -n 's|^ .*// ||p' "$protos"/*.proto | sort -u) \
    <(sed -n 's|^ .*// ||p' described | sort -u) >>lost
[ ! -s lost ] || fail "fields without an example, comments that are not shown: $(cat lost)"
for name in Telemetry Header; do "$vynpkt" describe -r "$name"; done >out
[ "$(sed -n 's/^[a-z].* \(.*\) {$/\1/p' out | paste -sd' ')" = \
    "Telemetry TelemetryData Meta DataItem PacketStatus Header PacketStatus" ] || fail "describe -r"
gives <(printf '// ota_event.proto\nstring ecu_name = 1;\n') describe EventMessage.Step.ecu_name

echo "-- bodies with names: each message, there and back"
printf '{"message_type":%d,"body":"%s"}\n' 5 text 32768 AAEC 33000 "" 32769 /w== | "$vynpkt" pack -l >>all.dat
expect 4 "not a valid" -- show --types types.txt all.dat
jq -c 'select(.message_error | not) | .message | values' out >shown.json
same "what decode says" <(jq -S . shown.json) <(jq -S . all.json)
awk '{ print NR % 122 + 1, $2 }' types.txt >wrong.txt # bodies become other messages, or do not parse
for options in "" --keep-body --enum-names --header "--header --enum-names"; do
    for file in types.txt wrong.txt; do
        # shellcheck disable=SC2086
        VYNPKT_TYPES=$file "$vynpkt" show $options all.dat >lines 2>/dev/null || [ $? -eq 4 ]
        # shellcheck disable=SC2086
        gives all.dat pack -l --types $file $([[ $options != *header* ]] || echo --header) lines
    done
done
"$vynpkt" show --header all.dat >lines
gives all.dat pack -l --header lines

echo "-- encode and decode"
cat >telemetry.json <<'END'
{"telemetry":[{"time":"-9223372036854775808","data":[{"id":7,"string_value":["ü/\"\n  \\",""],
 "float_array_value":[0.1,"NaN"],"double_array_value":[1e-300,100000000000000000000],
 "int_array_value":[9223372036854775807]}]}],"meta":{"sequence_no":18446744073709551615,
 "packet_status":3}}
END
expect 0 "" -- encode -t Telemetry telemetry.json -o telemetry.bin
expect 0 "" -- decode --type Telemetry telemetry.bin
cp out decoded.json
for number in -9223372036854775808 9223372036854775807 18446744073709551615; do
    grep -q -e "\"$number\"" out || fail "$number is another one"
done
gives telemetry.bin encode -t Telemetry decoded.json
jq -nc '{configuration: ([range(9) | {"key \(.)": "v"}] | add)}' >map.json
"$vynpkt" encode -t DeviceProvisionRequest map.json -o map
gives map encode -t DeviceProvisionRequest map.json # whatever the order in which they are kept
gives <(printf '\n\1e') encode -t ota.OtaManifestEcu <<<'{"ecu_name":"e"}'

echo "-- pack and unpack by name"
{
    echo '{"version":3,"message_type":32773,"device_id":"d","property_bag":{"error_code":4},"body":'
    cat telemetry.json
    echo '}'
} >envelope.json
expect 0 "" -- pack --type Telemetry envelope.json -o packet.bin
gives telemetry.bin unpack --body - packet.bin
expect 0 "" -- unpack --type Telemetry packet.bin
[ "$(wc -l <out)" -eq 1 ] || fail "the envelope is not one line"
same "the body's JSON" <(jq -S .body out) <(jq -S . decoded.json)
cp out typed.json
same "the rest" <(jq -S 'del(.body)' typed.json) <("$vynpkt" unpack packet.bin | jq -S 'del(.body)')
jq -c --rawfile text telemetry.json '.body = $text' typed.json >text.json
for form in typed.json text.json; do
    gives packet.bin pack --type Telemetry "$form"
done
"$vynpkt" append typed packet.bin packet.bin
gives typed pack -l --type Telemetry < <(cat typed.json text.json)
"$vynpkt" encode -t DataItem -o zero.bin <<<'{"float_array_value":["-0"]}'
"$vynpkt" pack --body zero.bin - <<<'{"version":3,"message_type":32768}' >zero.packet
expect 0 "" -- unpack --type DataItem zero.packet
cp out zero.json
gives zero.packet pack --type DataItem zero.json # the sign of zero
jq -c '.body.meta.vin = "v" * 30000' typed.json >long.json
expect 0 "" -- pack -z --type Telemetry long.json -o long.zst
expect 0 "" -- unpack --type Telemetry long.zst
same "a long body" <(jq -S . long.json) <(jq -S . out)

echo "-- lines"
jq -c . "$samples"/{binary,text}.json >lines
"$vynpkt" append records binary.bin text.bin # by the library
for _ in {1..200}; do sed 's/^/\n  \n/' lines; done >many # more than is read at once
gives <(for _ in {1..200}; do cat records; done) pack -l many
expect 4 "line 1: " -- pack -l - < <(printf '%s\n' '{"message_type":32768,"body":"*"}' '{"body":"a"}')
[ "$(stat -c %s out)" -eq 9 ] || fail "a line that lost its body is not written"

gives <(printf 'b\2"}') pack - <<<'{"body":"\"}"}'
"$vynpkt" pack -o new 2>&- <<<'{"message_type":32768,"body":"*"}' || true
same "no words in the packet" new <(printf '8\200\200\2')

echo "-- packets as lines of text"
printf "%s\n" "5 Telemetry" "0 DataItem" >types
packets=(packet.bin text.zst zero.packet)
"$vynpkt" append stored "${packets[@]}"
basenc_lines() { for packet in "${packets[@]}"; do basenc "$1" -w 0 "$packet"; echo; done; }
basenc_lines --base64 >lines.base64
basenc_lines --base16 | sed 's/../& /g; y/ABCDEF/abcdef/; s/$/\r/; G' >lines.hex
for style in "" "--types types" "--types types --enum-names --keep-body" --header; do
    for form in hex base64; do
        # shellcheck disable=SC2086
        gives <("$vynpkt" show $style stored) unpack -l "--$form" $style "lines.$form"
    done
    # shellcheck disable=SC2086
    gives <("$vynpkt" show -n 1 $style stored) unpack $style packet.bin
done
for form in hex base64; do expect 0 "" -- append again -l "--$form" - <"lines.$form"; done
same "append -l" again <(cat stored stored)
gives <("$vynpkt" unpack text.bin) unpack --hex < <(basenc --base16 -w 60 text.bin)
VYNPKT_TYPES=nowhere gives typed.json unpack --type Telemetry packet.bin
expect 4 "line 1: longer than" -- unpack -l --hex < <(head -c 70000000 /dev/zero; echo; cat lines.hex)
same "the lines behind a long one" out <("$vynpkt" show stored)
[ "$(wc -l <err)" -eq 1 ] || fail "the rest of a long line"
coproc "$vynpkt" unpack -l --base64
sed 1q lines.base64 >&"${COPROC[1]}"
read -r -t 10 <&"${COPROC[0]}" || fail "a line is held back"

echo "-- lines from which the same packets come again"
# Behind a bar: bytes as they are, for what an older protoc refuses.
while IFS="|" read -r packet bytes; do
    { protoc --encode=Header -I "$protos" vyn_header_v3.proto <<<"$packet" && printf %s "$bytes"; } |
        "$vynpkt" append odd -
done <<'END'
version: 4294967295 packet_status: LIVE property_bag {} body: "a\000\377" time: -1
property_bag { error_code: 2147483648 ack_required: 1 checksum: "\"'\\/" target: "ü" }|hM
message_type: 98309 sub_system_id: 4294967295 body: "{}"
message_type: 32773 body: "\022\002\010\005\022\002\020\007"
message_type: 32773 body: "\022\003\012\001v\172\002zz"
message_type: 32768 body: "\"\004\000\000\300\377"
message_type: 32773 body: "no message" device_id: "x"
message_type: 32769
END
cat stored >>odd
for style in "--types types" "--types types --keep-body --enum-names" --header "--header --types types --offset"; do
    # shellcheck disable=SC2046,SC2086
    { "$vynpkt" show $style odd 2>/dev/null || [ $? -eq 4 ]; } >odd.lines
    # shellcheck disable=SC2046
    gives odd pack -l $(grep -oe '--header' -e '--types types' <<<"$style") odd.lines
done
for form in --hex "--base64 -z"; do
    # shellcheck disable=SC2086
    "$vynpkt" pack -l --header --types types $form odd.lines | "$vynpkt" append -l "${form%% *}" "odd$form"
    same "pack $form" "odd$form" odd
done

echo "-- from a broker"
if ! start_broker; then
    echo "skipped: needs mosquitto and its clients"
else
    mosquitto_sub -W 20 -C 4 -F %x -t 'car/#' | "$vynpkt" unpack -l --hex --types types >shown &
    timeout 10 bash -c 'until grep -q "car/#" broker.log; do sleep 0.05; done'
    for packet in "${packets[@]}"; do mosquitto_pub -t "car/$packet" -s <"$packet"; done
    mosquitto_pub -t car/none -n
    wait $!
    same "what came" shown <("$vynpkt" show --types types stored)
fi

echo "-- zstd frames"
for content in "0 urandom" "3 urandom" "131072 urandom" "1000000 urandom" "1000000 zero"; do
    head -c "${content% *}" "/dev/${content#* }" >plain
    expect 0 "" -- compress plain -o plain.zst
    same "zstd reads $content" <(zstd -dcq plain.zst) plain
    gives plain decompress < <(zstd -qc --no-check plain)
done
for length in 1 4 5 20 -1; do
    head -c "$length" text.zst >cut.zst
    expect 1 "truncated (code 13)" -- unpack cut.zst
    expect 1 "the zstd frame is truncated" -- decompress cut.zst
done

echo "-- checksum and restamp"
odd=('a\b' '[a,b]' '{}' $'new\nline' $'carriage\rreturn')
touch "${odd[@]}"
gives <(sha256sum text.bin "${odd[@]}" - <binary.bin) checksum text.bin "${odd[@]}" - <binary.bin
expect 3 "nowhere: No such file" -- checksum nowhere text.bin
same "the readable file" out <(sha256sum text.bin)
expect 0 "" -- pack --status 3 "$samples/text.json" -o live.bin
gives live.bin restamp LIVE text.bin
expect 0 "" -- restamp live <text.zst
same "restamp, compressed" <(zstd -dcq out) live.bin

echo "-- files"
mkfifo pipe
timeout 5 cat pipe >piped &
expect 0 "" -- pack "$samples/text.json" -o pipe
wait $! || fail "a pipe was replaced"
same "through a named pipe" piped text.bin
touch kept
chmod 604 kept
ln -s kept link
expect 0 "" -- pack "$samples/text.json" -o link
same "through a link" kept text.bin
[ -L link ] || fail "the link was replaced"
[ "$(stat -c %a kept)" = 604 ] || fail "the mode changed"
mkfifo silent
exec 9<>silent
for signal in HUP QUIT TERM; do
    # -o is open while it waits for input. A shell may have started us with signals ignored.
    env --default-signal="$signal" "$vynpkt" compress silent -o unborn 9>&- &
    pid=$!
    timeout 5 bash -c 'until compgen -G ".vynpkt.*"; do sleep 0.02; done' || fail "no temporary"
    kill -"$signal" "$pid"
    wait "$pid" || true
    compgen -G '.vynpkt.*' && fail "SIG$signal: a temporary is left"
    [ ! -e unborn ] || fail "SIG$signal: a file is left"
done

echo "-- system calls that fail"
if ! head -c 4 "$vynpkt" | grep -q ELF || ! strace -qq -o trace true; then
    echo "skipped: needs strace, and a program of this machine"
else
    export ASAN_OPTIONS=detect_leaks=0 # which strace rules out
    under=(strace -qq -o trace -e inject=read,pread64:error=EINTR:when=1+2 -P "$PWD/records")
    gives records recover records
    gives <(sha256sum records) checksum records
    under=(strace -qq -o trace -e trace=close,rename)
    expect 0 "" -- list -o names
    closes=$(sed '/^rename/,$d' trace | wc -l)
    under=(strace -qq -o trace -e "inject=close:error=EIO:when=$closes")
    expect 3 "kept: Input/output error" -- list -o kept
    same "the file that was not replaced" kept text.bin
    under=(strace -qq -o trace -e inject=rename:error=EIO:when=1)
    expect 3 "unborn: Input/output error" -- unpack --body kept -o unborn packet.bin
    same "the body without its envelope" kept text.bin
    timeout 5 cat pipe >/dev/null &
    under=(strace -qq -o trace -e inject=close:error=EIO -P "$PWD/pipe")
    expect 3 "pipe: Input/output error" -- list -o pipe
fi
echo "All as expected."
