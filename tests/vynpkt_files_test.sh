#!/usr/bin/env bash
# Runs the commands of vynpkt for packet files on whole and damaged ones.
#
# Usage: vynpkt_files_test.sh VYNPKT
set -Eeuo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"
spoken=(out err)  # verify prints its findings

# recovers FILE PART...: exactly these parts come out of the file, in which something is damaged.
recovers() {
    local file=$1
    shift
    expect 4 "left behind: offset" -- recover "$file" -o saved
    same "what is left of $file" saved <(cat "$@")
}

# overwrite FILE OFFSET, with standard input
overwrite() { dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }
zeros() { head -c "$1" /dev/zero; }

echo "-- append and show"
for i in {1..6}; do
    printf '{"message_id":"id-%d","message_type":%d,"body":"%s"}\n' "$i" $((i % 2 + 1)) \
        "$(printf "body $i %.0s" {1..30})"
done >lines
borders=(0)
while read -r line; do
    n=${#borders[@]}
    # shellcheck disable=SC2046
    "$vynpkt" pack $([ $((n % 2)) -eq 0 ] || echo -z) - -o packet <<<"$line"
    expect 0 "" -- append file $([ "$n" -eq 1 ] || echo packet) <packet
    borders+=("$(stat -c %s file)")
    tail -c +$((borders[n - 1] + 1)) file >"r$n"
done <lines
expect 0 "" -- show file
same "what was packed" <(jq -c '[.message_id,.message_type,.body]' lines) \
    <(jq -c '[.message_id,.message_type,.body]' out)
expect 0 "" -- show --only message_type=2 --skip 1 -n 1 file
[ "$(jq -r .message_id out)" = id-3 ] || fail "--only, --skip, -n"
expect 0 "" -- show --offset --skip 2 -n 1 file
[ "$(jq -c '[.offset,.length]' out)" = "[${borders[2]},$((borders[3] - borders[2] - 2))]" ] ||
    fail "--offset"
expect 0 "4" -- show --count --skip 2 - <file
cp file with_big
zeros 30000 | "$vynpkt" pack --body - <(echo '{"message_type":32773}') |
    "$vynpkt" append with_big
expect 4 '"error"' -- show with_big
[ "$(jq -s length out)" -eq 7 ] || fail "the record that does not become JSON"
(trap '' XFSZ; ulimit -f 1; expect 3 "(code 7)" -- append with_big packet)

echo "-- find: what jq finds in all of it"
printf '%s\n' "6 Telemetry" "7 DeviceProvisionRequest" "1 Meta" >types
export VYNPKT_TYPES=types
cat >messages <<'END'
{"message_id":"t","message_type":32774,"ttl":-1,"time":1793491200001,"device_id":"a, \"b\"","sub_system_id":-1,"property_bag":{"error_code":7,"error":"no"},"packet_status":"LIVE","message":{"meta":{"vin":"WVN 1","sequence_no":"18446744073709551615","packet_status":3},"telemetry":[{"time":"1793491200500","data":[{"id":1,"string_value":["a\tb","\"\\"]},{"id":-2,"double_array_value":[0.1,1e300]}]},{"data":[{"id":3,"float_array_value":[0.1,16777216]}]}]}}
{"message_type":32775,"message":{"configuration":{"a.b":"1","c":""},"chipsets":[{},{}],"vin":"x"}}
END
"$vynpkt" pack -l messages -o sent
cat file sent >found
expect 0 "" -- show --offset --keep-body found
mv out all
leaves='paths(scalars) as $p | {key: ($p | map(strings) | join(".")), value: (getpath($p) | tostring)}'
jq -c "$leaves" all | sort -u >leaves
while read -r leaf; do
    expect 0 "" -- show --offset --only "$(jq -r '"\(.key)=\(.value)"' <<<"$leaf")" found
    same "$leaf" <(jq .offset out) \
        <(jq --argjson leaf "$leaf" "select(any($leaves; . == \$leaf)).offset" all)
done <leaves
while IFS='|' read -r only filter; do
    # shellcheck disable=SC2086
    expect 0 "" -- show --offset $only found
    same "$only" <(jq .offset out) <(jq "select($filter).offset" all)
done <<'END'
--only time>=2026-11-01T01:00:00.001+01:00|.time >= 1793491200001
--only time>1793491200000.5 --only type!=1|.time > 1793491200000
--only message.meta.sequence_no>18446744073709551614|.type == 6
--only message.telemetry.data.id<=-2|.type == 6
--only message.meta.vin!=x|true
--only message.telemetry.time!=1793491200500|.type != 6
--only body~^body.[1-3]+.b --only status=none|.body[:6] | IN("body 1", "body 2", "body 3")
END
expect 0 "" -- show --tsv message_id,ttl,message.vin,message.telemetry.data.string_value,device_id found
same "--tsv" <(tail -n +2 out) <(jq -r '[.message_id, .ttl // 0, .message.vin,
    (.message.telemetry | select(.) | [.[].data[].string_value[]] | tojson) // null, .device_id] | @tsv' all)
expect 0 "" -- show --each message.telemetry.data --csv device_id,message.meta.packet_status,message.telemetry.time,message.telemetry.data.id --enum-names -n 7 found
same "--each" out - <<'END'
device_id,message.meta.packet_status,message.telemetry.time,message.telemetry.data.id
"a, ""b""",LIVE,1793491200500,1
"a, ""b""",LIVE,1793491200500,-2
"a, ""b""",LIVE,0,3
END
expect 0 "" -- show --summary --json found
same "--summary" <(jq -c '.groups[] | [.type, .device_id, .packets, .bytes]' out) <(jq -sc 'group_by([.type,
    .device_id])[] | [.[0].type, (.[0].device_id // ""), length, (map(.length) | add)]' all)

echo "-- diff"
while IFS='|' read -r code words parts; do
    # shellcheck disable=SC2086
    cat $parts >other
    expect "$code" "$words" -- diff file other
done <<'END'
0||r1 r2 r3 r4 r5 r6
1|1 only in A, 0 only in B, 0 changed, 0 moved|r1 r3 r4 r5 r6
1|0 only in A, 1 only in B, 0 changed, 0 moved|r1 r2 r3 r2 r4 r5 r6
1|0 only in A, 0 only in B, 0 changed, 1 moved|r6 r1 r2 r3 r4 r5
1|1 only in A, 2 only in B, 0 changed, 2 moved|r5 r1 r3 sent r2 r4
END
jq -c 'if .ttl then .message.telemetry[0].data[1] |= (.id = 5 | .double_array_value = [0.1]) |
    .ttl = 0 | del(.message.meta.sequence_no) else .message.configuration.c = "2" end' messages |
    "$vynpkt" pack -l - -o other
expect 1 "" -- diff --json sent other
same "what changed" <(jq -r '.fields[] | [.path, .a, .b] | @tsv' out | sort) - <<'END'
message.configuration.c		2
message.meta.sequence_no	18446744073709551615	
message.telemetry[0].data[1].double_array_value[1]	1e+300	
message.telemetry[0].data[1].id	-2	5
ttl	-1	0
END

echo "-- a file that grows, and is replaced"
head -c 10 file >growing
"$vynpkt" show -f growing >shown 2>err &
# waits until so many lines are shown
await() { timeout 10 bash -c "until [ \$(wc -l <shown) -eq $1 ]; do sleep 0.05; done" || fail "-f: $1"; }
tail -c +11 file >>growing
await 6
cp file new
mv new growing
await 12
kill $!
same "show -f" shown <("$vynpkt" show file; "$vynpkt" show file)
grep -q "growing: replaced" err || fail "-f: not told that the file was replaced"

echo "-- damage"
for ((torn = 1; torn < borders[2] - borders[1]; torn += 23)); do
    cat r1 <(head -c "$torn" r2) r3 r4 r5 r6 >torn
    recovers torn r1 r3 r4 r5 r6
done
for flip in 0:00 0:7f 0:ff 1:00 2:ff 9:7f 10:00 11:ff; do
    cp file flipped
    printf '%b' "\\x${flip#*:}" | overwrite flipped $((borders[1] + ${flip%:*}))
    "$vynpkt" verify flipped >out || recovers flipped r1 r3 r4 r5 r6
done
cat r1 r2 <(zeros 9; head -c 60 r3) >block
recovers block r1 r2
cat r1 <(head -c 60 r2) r3 r4 r5 <(zeros 9) r6 r1 r2 >block
recovers block r1 r3 r4 r5 r6 r1 r2
cat r1 <(head -c 60 r2; zeros 800) <(tail -c 50 r3) r4 r5 r6 >block
recovers block r1 r4 r5 r6
cat file <(zeros 9) >end
expect 1 "6 records whole, damaged at offset ${borders[6]}:" -- verify end
truncate -s 300M end
recovers end file
expect 1 "damaged at offset ${borders[6]}" -- show end
[ "$(jq -s length out)" -eq 6 ] || fail "records in front of damage are not shown"
expect 3 '"file":"nowhere"' -- verify --json nowhere file end
[ "$(head -n 2 out | jq -sc 'map([.whole, .records, .bytes])')" = \
    "[[true,6,${borders[6]}],[false,6,${borders[6]}]]" ] || fail "--json"

cat file <(zeros 8) >zeros_behind
gives zeros_behind recover zeros_behind
expect 0 "14 records, $((borders[6] + 8)) bytes, whole" -- verify - <zeros_behind
expect 0 "20 records, 20 bytes, whole" -- verify - < <(zeros 20)

echo "-- 20000 records, one damaged"
seq 20000 | sed 's/.*/{"message_id":"id-&","message_type":5,"body":"body of &"}/' |
    "$vynpkt" pack -l - -o many
at=$("$vynpkt" show --offset --skip 12345 -n 1 many | jq .offset)
printf '\xff' | overwrite many $((at + 5))
expect 1 "12345 records whole, damaged at offset $at:" -- verify many
LC_ALL=C awk 'BEGIN { # each in the one before, all damaged at their end
    for (n = 600000; n > 17000; n -= 15) {
        m = n + 6
        printf "%c%c%c%c%c%c%c%c%c", 2, 56, 5, 2, 56, 5, m % 128 + 128, int(m / 128) % 128 + 128, m / 16384
        printf "%c%c%c%c%c%c", 56, 5, 98, n % 128 + 128, int(n / 128) % 128 + 128, n / 16384
    }
}' >nested
{ zeros 17000; printf '\6\70\5\142\2A\377'; } >>nested
SECONDS=0
expect 4 "left behind" -- recover nested -o saved
expect 4 "19999 records recovered" -- recover many -o saved
[ "$SECONDS" -le 10 ] || fail "recover took $SECONDS s"
expect 0 "19999" -- show --count saved
mkfifo pipe
{ head -c 1; truncate -s 1000 many; cat; } <pipe >part & # in the middle of its work
expect 3 "many: was cut while it was read" -- recover many -o pipe
echo "All as expected."
