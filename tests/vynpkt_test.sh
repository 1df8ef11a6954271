#!/usr/bin/env bash
# Runs vynpkt as people do and compares with protoc, zstd, jq and sha256sum. Prints a line for each
# case and ends at the first that is not as expected.
#
# Usage: vynpkt_test.sh VYNPKT PROTODIR SAMPLEDIR
set -Eeuo pipefail
protos=$(realpath "$2")
samples=$(realpath "$3")
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"

fields() { protoc --decode=Header -I "$protos" vyn_header_v3.proto; }
packet() { protoc --encode=Header -I "$protos" vyn_header_v3.proto; }

echo "-- pack and unpack"
cat >all.txt <<'END'
message_id: "id-1"
correlation_id: "id-0"
version: 3
system_id: "s"
sub_system_id: 7
device_id: "d"
message_type: 16389
target_id: "t"
ttl: 9
time: 1718000000456
property_bag {
  error_code: 17
}
body: "a\"/\\\n\303\274"
END
cat >all.json <<'END'
{"message_id":"id-1","correlation_id":"id-0","version":3,"system_id":"s","sub_system_id":7,
 "device_id":"d","message_type":16389,"target_id":"t","ttl":9,"time":1718000000456,
 "property_bag":{"error_code":17},"body":"a\"/\\\nü"}
END
expect 0 "" -- pack all.json
fields <out >fields.txt
same "protoc finds what was packed" all.txt fields.txt
packet <all.txt >all.bin
expect 0 "" -- unpack all.bin
same "the envelope of what protoc packed" <(jq -S . all.json) <(jq -S . out)

for name in binary text; do
    expect 0 "" -- pack "$samples/$name.json" -o "$name.bin"
    expect 0 "" -- pack -z "$samples/$name.json" -o "$name.zst"
    same "-z: zstd finds the packet in it" <(zstd -dcq "$name.zst") "$name.bin"
    zstd -lv "$name.zst" >listing 2>&1
    grep -qF "($(stat -c %s "$name.bin") B)" listing || fail "-z: no size in the frame"
    for form in "$name.bin" "$name.zst"; do
        expect 0 "" -- unpack "$form" --body "$name.body" -o "$name.json"
        same "$form: the envelope" <(jq -S . "$samples/$name.json") <(jq -S . "$name.json")
        expect 0 "" -- pack --body "$name.body" - -o again.bin <"$samples/$name.json"
        same "$form: the body" "$name.bin" again.bin
    done
done
same "binary body" <(jq -r .body "$samples/binary.json" | base64 -d) binary.body

expect 0 "" -- pack all.json --new-id --now --status abnormal
fields <out >fields.txt
grep -qE '^message_id: "[0-9a-f-]{36}"$' fields.txt || fail "--new-id"
grep -q '^packet_status: ABNORMAL$' fields.txt || fail "--status"
age=$(($(date +%s%3N) - $(sed -n 's/^time: //p' fields.txt)))
if [ "$age" -lt 0 ] || [ "$age" -gt 60000 ]; then
    fail "--now: $age ms ago"
fi

echo "-- bodies of any length"
printf '{"message_type":32773,"property_bag":{"checksum":"c0ffee"}}' >head.json
for length in 0 18429 18430 30000; do
    head -c "$length" /dev/urandom >body
    expect 0 "" -- pack --body body head.json -o long.bin
    expect 0 "" -- unpack --body - long.bin
    same "body of $length bytes" body out
done
fields <long.bin >fields.txt
grep -q 'checksum: "c0ffee"' fields.txt || fail "--body: no checksum"
expect 1 "(code 13)" -- unpack long.bin
expect 1 "(code 13)" -- unpack --body new long.bin
[ ! -e new ] || fail "a body without its envelope"
expect 0 "" -- pack --body <(head -c 18430 body) head.json -o long.bin
expect 4 "18429 bytes" -- unpack --body new long.bin
same "the body that the envelope lacks" <(head -c 18430 body) new
[ "$(jq -r .body out)" = "" ] || fail "soft code without output"

echo "-- lines"
jq -c . all.json "$samples/text.json" >lines
sed 's/^/\n  \n/' lines >spaced
expect 0 "" -- pack -l spaced
same "records" out <(
    printf '%b' "\\x$(printf %x "$(stat -c %s all.bin)")"
    cat all.bin
    size=$(stat -c %s text.bin)
    printf '%b' "\\x$(printf %x $((size % 128 + 128)))\\x$(printf %x $((size / 128)))"
    cat text.bin
)
cp out records
for _ in {1..200}; do cat lines; done >many # more than is read at once
expect 0 "" -- pack -l many
same "many records" out <(for _ in {1..200}; do cat records; done)
echo old >kept
printf '%s\n\n{"body":[1]}\n{}\n' "$(head -n 1 lines)" >bad
expect 1 "bad: line 3: " -- pack -l bad -o kept
expect 4 "line 2: " -- pack -l - < <(printf '%s\n' '{"body":"a"}' '{"message_type":32768,"body":"*"}')
[ "$(stat -c %s out)" -eq 9 ] || fail "a line that lost its body is not written"

echo "-- envelopes that are refused: exit code, words, text"
long=$(head -c 8192 /dev/zero | tr '\0' x)
wide=$(printf 'ü%.0s' {1..40})
while IFS='|' read -r code words text; do
    expect "$code" "vynpkt: pack: (stdin): $words" -- pack -o kept < <(printf '%b' "$text")
done <<END
1|the envelope is not JSON (code 3)|
1|the envelope is not JSON (code 3)|{"body":"x"
1|the envelope has no "body", and there is no --body FILE (code 11)|{}
1|"body" is neither a string nor an object (code 11)|{"body":5}
1|"body" is longer than 8191 characters|{"body":"$long"}
1|more text behind the envelope|{"body":"}"} {"body":"y"}
1|the envelope holds a NUL byte|{"body":"x"}\0
1|a text is not UTF-8, or too long|{"message_id":"$wide","body":"x"}
1|a text is not UTF-8, or too long|{"device_id":"\xfc","body":"x"}
END
[ "$(cat kept)" = old ] || fail "a refused envelope changed the output"
expect 0 "" -- pack < <(printf '%s' '{"body":"\"}"}')
expect 4 "(code 9)" -- pack < <(printf '{"property_bag":{"error":"%s"},"body":"x"}' "$long")
expect 1 "not a JSON object" -- pack --body body < <(echo '[1]')
expect 0 "" -- pack --body body -o new < <(echo '/* as the library reads it */ {}')
"$vynpkt" pack -o new 2>&- < <(printf '{"property_bag":{"error":"%s"},"body":"x"}' "$long") || true
fields <new >fields.txt
same "no words in the packet" fields.txt <(echo 'body: "x"')

echo "-- zstd frames"
for content in "0 urandom" "3 urandom" "131072 urandom" "1000000 urandom" "1000000 zero"; do
    head -c "${content% *}" "/dev/${content#* }" >plain
    expect 0 "" -- compress plain -o plain.zst
    same "zstd reads $content" <(zstd -dcq plain.zst) plain
    expect 0 "" -- decompress < <(zstd -qc --no-check plain)
    same "zstd wrote $content" out plain
done
frame=$(stat -c %s text.zst)
for length in 1 2 3 4 5 6 20 $((frame - 1)); do
    head -c "$length" text.zst >cut.zst
    expect 1 "truncated (code 13)" -- unpack cut.zst
    expect 1 "the zstd frame is truncated" -- decompress cut.zst -o kept
    expect 1 "the zstd frame is truncated" -- restamp 1 cut.zst -o kept
done
cat text.zst text.zst >two.zst
head -c 70000000 /dev/zero | zstd -q >bomb.zst
printf '\x53\x2a\x4d\x18\x01\x00\x00\x00x' >skip.zst
expect 1 "bytes behind the end of the zstd frame (code 13)" -- unpack two.zst
expect 1 "bytes behind the end of the zstd frame" -- decompress two.zst -o kept
expect 1 "a skippable zstd frame" -- decompress skip.zst -o kept
expect 1 "not a zstd frame" -- decompress text.bin -o kept
expect 1 "not a zstd frame" -- decompress /dev/null -o kept
expect 1 "longer than 64 MiB" -- unpack --body - bomb.zst
[ "$(cat kept)" = old ] || fail "a refused frame changed the output"

echo "-- packets that are refused"
printf '\x0a\x05ab' >torn.bin
expect 1 "vynpkt: unpack: torn.bin: not a valid Header (code 8)" -- unpack torn.bin
expect 1 "vynpkt: unpack: (stdin): not a valid Header (code 8)" -- unpack --body - <torn.bin
expect 1 "vynpkt: restamp: torn.bin: not a valid Header (code 8)" -- restamp 1 torn.bin
expect 1 "empty" -- unpack </dev/null
expect 1 "longer than the 64 MiB" -- unpack /dev/zero

echo "-- checksum and restamp"
printf 'x' >'a\b'
expect 0 "" -- checksum text.bin 'a\b' - <binary.bin
same "as sha256sum" out <(sha256sum text.bin 'a\b' - <binary.bin)
expect 3 "checksum: nowhere: No such file" -- checksum nowhere text.bin
same "the readable file" out <(sha256sum text.bin)
expect 3 "nowhere: No such file" -- checksum text.bin nowhere -o kept
expect 0 "" -- pack --status 3 "$samples/text.json" -o live.bin
cp text.bin stamped.bin
expect 0 "" -- restamp LIVE stamped.bin -o stamped.bin
same "restamp" stamped.bin live.bin
expect 0 "" -- restamp LIVE <text.zst
same "restamp, compressed" <(zstd -dcq out) live.bin
expect 0 "" -- restamp 0 live.bin
same "and back" out text.bin

echo "-- files"
expect 3 "vynpkt: unpack: nowhere: No such file or directory" -- unpack nowhere
expect 3 "vynpkt: compress: .: Is a directory" -- compress . -o kept
expect 3 "body: No such file" -- pack --body no/body all.json -o kept
expect 3 "no/out: No such file" -- pack all.json -o no/out
# Never by -o: were devices replaced like files, this would take the machine's own.
status=0
"$vynpkt" pack all.json >/dev/full 2>err || status=$?
[ "$status" -eq 3 ] || fail "full device: exit code $status"
grep -qF "pack: (stdout): No space left on device" err || fail "full device: no such words"
echo "ok  a full device -> 3"
mkfifo pipe
timeout 5 cat pipe >piped &
expect 0 "" -- pack all.json -o pipe
wait $! || fail "a pipe was replaced"
same "through a named pipe" piped all.bin
[ "$(cat kept)" = old ] || fail "a failed run changed the output"
chmod 604 kept
ln -s kept link
expect 0 "" -- pack all.json -o link
same "through a link" kept <(packet <all.txt)
[ -L link ] || fail "the link was replaced"
[ "$(stat -c %a kept)" = 604 ] || fail "the mode changed"
mkfifo silent
exec 9<>silent
"$vynpkt" compress silent -o unborn 9>&- & # -o is open while it waits for input
pid=$!
for _ in {1..50}; do
    compgen -G '.vynpkt.*' >/dev/null && break
    sleep 0.1
done
compgen -G '.vynpkt.*' >/dev/null || fail "no temporary to remove"
kill -TERM "$pid"
wait "$pid" || true
if compgen -G '.vynpkt.*' || [ -e unborn ]; then
    fail "something is left"
fi
echo "ok  no temporary is left, also after a signal"

echo "-- terminal and pipes"
# on_terminal CODE WORDS COMMAND
on_terminal() {
    local status=0
    script -qec "$3" /dev/null </dev/null >out || status=$?
    [ "$status" -eq "$1" ] || fail "on a terminal: $3: exit code $status"
    grep -qF -- "$2" out || fail "on a terminal: $3: does not say '$2'"
    echo "ok  on a terminal: ${3##*/} -> $1"
}
for command in "pack all.json" "compress all.json" "decompress text.zst" "restamp 1 text.bin" \
    "unpack --body - binary.bin"; do
    on_terminal 2 "give -o FILE" "$vynpkt $command"
done
on_terminal 0 '"message_id": "id-1"' "$vynpkt unpack all.bin"
on_terminal 0 "Größe" "$vynpkt unpack --body - text.bin"
status=0
"$vynpkt" compress /dev/urandom 2>err | head -c 1 >out || status=${PIPESTATUS[0]}
if [ "$status" -ne 141 ] || [ -s err ]; then
    fail "closed pipe: exit code $status"
fi
echo "ok  a closed pipe ends it without a word"

echo "-- arguments: exit code, words, arguments"
while IFS='|' read -r code words arguments; do
    # shellcheck disable=SC2086
    expect "$code" "$words" -- $arguments </dev/null
done <<'END'
2|no command given|
2|pakc: no such command; did you mean "pack"?|pakc
2|decomp: no such command; did you mean "decompress"?|decomp
2|such command; see "vynpkt --help"|xyzzy
2|pack: The following argument was not expected: --wrong|pack --wrong
2|STATUS is required|restamp
2|LOVE: not a packet status|restamp LOVE
2|-1: not a packet status|pack --status=-1
2|goes with neither|pack -l -z all.json
2|comes from standard input already|pack --body -
2|cannot be both|unpack all.bin --body x -o ./x
0||help
3|pack: No such file|checksum pack
0||--version
0||--help
0|Received message :16389|unpack -v all.bin
END
for command in pack unpack compress decompress checksum restamp; do
    expect 0 "" -- "$command" --help
    grep -q "^  .*vynpkt $command " out || fail "no example for $command"
done
echo "All as expected."
