#!/usr/bin/env bash
# Runs vynpkt as people do and compares with protoc, zstd, jq and sha256sum.
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
packet <all.txt >all.bin
gives all.bin pack all.json
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
        gives "$name.bin" pack --body "$name.body" - <"$samples/$name.json"
    done
done
same "binary body" <(jq -r .body "$samples/binary.json" | base64 -d) binary.body

expect 0 "" -- pack all.json --new-id --now --status abnormal
fields <out >fields.txt
grep -qE '^message_id: "[0-9a-f-]{36}"$' fields.txt || fail "--new-id"
grep -q '^packet_status: ABNORMAL$' fields.txt || fail "--status"
age=$(($(date +%s%3N) - $(sed -n 's/^time: //p' fields.txt)))
[ "$age" -ge 0 ] && [ "$age" -le 60000 ] || fail "--now: $age ms ago"

echo "-- bodies of any length"
printf '{"message_type":32773,"property_bag":{"checksum":"c0ffee"}}' >head.json
for length in 0 18429 18430 30000; do
    head -c "$length" /dev/urandom >body
    expect 0 "" -- pack --body body head.json -o long.bin
    gives body unpack --body - long.bin
done
fields <long.bin | grep -a 'checksum: "c0ffee"' >line || fail "--body: no checksum"
expect 1 "(code 13)" -- unpack long.bin
expect 1 "(code 13)" -- unpack --body new long.bin
[ ! -e new ] || fail "a body without its envelope"
expect 0 "" -- pack --body <(head -c 18430 body) head.json -o long.bin
expect 4 "18429 bytes" -- unpack --body new long.bin
same "the body that the envelope lacks" <(head -c 18430 body) new
[ "$(jq -r .body out)" = "" ] || fail "soft code without output"

echo "-- lines"
jq -c . all.json "$samples/text.json" >lines
"$vynpkt" append records all.bin text.bin # by the library
for _ in {1..200}; do sed 's/^/\n  \n/' lines; done >many # more than is read at once
gives <(for _ in {1..200}; do cat records; done) pack -l many
expect 4 "line 2: " -- pack -l - < <(printf '%s\n' '{"body":"a"}' '{"message_type":32768,"body":"*"}')
[ "$(stat -c %s out)" -eq 9 ] || fail "a line that lost its body is not written"

echo "-- odd envelopes"
gives <(printf 'b\2"}') pack - <<<'{"body":"\"}"}'
expect 0 "" -- pack --body body -o new < <(echo '/* as the library reads it */ {}')
"$vynpkt" pack -o new 2>&- <<<'{"message_type":32768,"body":"*"}' || true
same "no words in the packet" new <(printf '8\200\200\2')

echo "-- zstd frames"
for content in "0 urandom" "3 urandom" "131072 urandom" "1000000 urandom" "1000000 zero"; do
    head -c "${content% *}" "/dev/${content#* }" >plain
    expect 0 "" -- compress plain -o plain.zst
    same "zstd reads $content" <(zstd -dcq plain.zst) plain
    gives plain decompress < <(zstd -qc --no-check plain)
done
for length in 1 2 3 4 5 6 20 -1; do
    head -c "$length" text.zst >cut.zst
    expect 1 "truncated (code 13)" -- unpack cut.zst
    expect 1 "the zstd frame is truncated" -- decompress cut.zst
done

echo "-- checksum and restamp"
odd=('a\b' '[a,b]' '{}' $'new\nline')
touch "${odd[@]}"
gives <(sha256sum text.bin "${odd[@]}" - <binary.bin) checksum text.bin "${odd[@]}" - <binary.bin
expect 3 "checksum: nowhere: No such file" -- checksum nowhere text.bin
same "the readable file" out <(sha256sum text.bin)
expect 0 "" -- pack --status 3 "$samples/text.json" -o live.bin
cp text.bin stamped.bin
expect 0 "" -- restamp LIVE stamped.bin -o stamped.bin
same "restamp" stamped.bin live.bin
expect 0 "" -- restamp live <text.zst
same "restamp, compressed" <(zstd -dcq out) live.bin
gives text.bin restamp 0 live.bin

echo "-- files"
mkfifo pipe
timeout 5 cat pipe >piped &
expect 0 "" -- pack all.json -o pipe
wait $! || fail "a pipe was replaced"
same "through a named pipe" piped all.bin
touch kept
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
timeout 5 bash -c 'until compgen -G ".vynpkt.*"; do sleep 0.1; done' || fail "no temporary to remove"
kill -TERM "$pid"
wait "$pid" || true
compgen -G '.vynpkt.*' && fail "a temporary is left"
[ ! -e unborn ] || fail "a file is left"
echo "All as expected."
