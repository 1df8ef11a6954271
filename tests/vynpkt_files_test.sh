#!/usr/bin/env bash
# Runs the commands of vynpkt for packet files on whole and damaged ones.
#
# Usage: vynpkt_files_test.sh VYNPKT
set -Eeuo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"
spoken=(out err)  # verify prints its findings

# recovers CODE FILE RECORD...: exactly these records come out of the file.
recovers() {
    local code=$1 file=$2 status=0
    shift 2
    "$vynpkt" recover "$file" -o saved >out 2>err || status=$?
    [ "$status" -eq "$code" ] || fail "recover $file: exit code $status, not $code"
    [ "$code" -eq 0 ] || grep -q "left behind: offset" err || fail "recover $file: no gap told"
    same "recover $file -> $code" saved <(cat /dev/null "$@")
    "$vynpkt" verify saved >out || fail "recover $file: the output is damaged"
}

# range FILE FROM TO
range() { tail -c +$(($2 + 1)) "$1" | head -c $(($3 - $2)); }
# overwrite FILE OFFSET BYTE
overwrite() { printf '%b' "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }
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
    range file "${borders[n - 1]}" "${borders[n]}" >"r$n"
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
zeros 30000 | "$vynpkt" pack --body - <(echo '{"message_type":32773}') -o big
cp file with_big
"$vynpkt" append with_big big
expect 4 '"error"' -- show with_big
[ "$(jq -s length out)" -eq 7 ] || fail "the record that does not become JSON"
(trap '' XFSZ; ulimit -f 1; status=0; "$vynpkt" append with_big packet 2>err || status=$?
    [ "$status" -eq 3 ]) || fail "a full disk is not told"
grep -qF "(code 7)" err || fail "a full disk: no code"

echo "-- cuts"
for ((cut = 0; cut <= ${borders[6]}; cut += 11)); do
    head -c "$cut" file >cut
    n=0
    while [ $n -lt 6 ] && [ "${borders[n + 1]}" -le "$cut" ]; do n=$((n + 1)); done
    [ "${borders[n]}" -ne "$cut" ] || continue
    expect 1 "cut: $n record" -- verify cut
    grep -qF "damaged at offset ${borders[n]}:" out || fail "another offset"
    [ "$n" -eq 0 ] || recovers 4 cut <(head -c "${borders[n]}" file)
done
recovers 0 file file

echo "-- damage"
for ((torn = 1; torn < ${borders[2]} - ${borders[1]}; torn += 7)); do
    cat r1 <(head -c "$torn" r2) r3 r4 r5 r6 >torn
    recovers 4 torn r1 r3 r4 r5 r6
done
size=$(stat -c %s r2)
for position in 0 1 2 3 8 9 10 11 12 13; do
    for byte in 00 01 7f ff; do
        cp file flipped
        overwrite flipped $((borders[1] + position)) "\\x$byte"
        "$vynpkt" verify flipped >out || recovers 4 flipped r1 r3 r4 r5 r6
    done
done
cat r1 r2 <(zeros 4096) r3 r4 >block
recovers 0 block block
cat r1 r2 <(zeros 9; head -c 60 r3) >block
recovers 4 block r1 r2
cat r1 <(head -c 60 r2) r3 r4 r5 <(zeros 9) r6 r1 r2 >block
recovers 4 block r1 r3 r4 r5 r6 r1 r2
cat r1 <(head -c 60 r2; zeros $((size - 60 + 500))) <(tail -c 50 r3) r4 r5 r6 >block
recovers 4 block r1 r4 r5 r6
for n in 8 9; do cat file <(zeros "$n") >"end$n"; done
expect 0 "14 records, $((borders[6] + 8)) bytes, whole" -- verify - <end8
expect 1 "6 records whole, damaged at offset ${borders[6]}:" -- verify end9
recovers 0 end8 end8
truncate -s 300M end9
recovers 4 end9 file
expect 1 "damaged at offset ${borders[6]}" -- show end9
[ "$(jq -s length out)" -eq 6 ] || fail "records in front of damage are not shown"
expect 3 '"file":"nowhere"' -- verify --json nowhere file end9
[ "$(head -n 2 out | jq -sc 'map([.whole, .records])')" = '[[true,6],[false,6]]' ] || fail "--json"

echo "-- 20000 records, one damaged"
for ((i = 0; i < 20000; ++i)); do
    echo "{\"message_id\":\"id-$i\",\"message_type\":5,\"body\":\"body of $i\"}"
done | "$vynpkt" pack -l - -o many
expect 0 "20000 records" -- verify many
"$vynpkt" show --offset --skip 12345 -n 1 many >out
at=$(jq .offset out)
overwrite many $((at + 5)) '\xff'
expect 1 "12345 records whole, damaged at offset $at:" -- verify many
for ((n = 600000; n > 17000; n -= 15)); do  # each in the one before, all damaged at their end
    printf -v record '\\x%x' 2 56 5 2 56 5 $((n + 6 & 127 | 128)) $((n + 6 >> 7 & 127 | 128)) \
        $((n + 6 >> 14)) 56 5 98 $((n & 127 | 128)) $((n >> 7 & 127 | 128)) $((n >> 14))
    printf '%b' "$record"
done >nested
{ zeros $((n + 9)); printf '\6\70\5\142\2A\377'; } >>nested
SECONDS=0
expect 4 "left behind" -- recover nested -o saved
expect 4 "19999 records recovered" -- recover many -o saved
[ "$SECONDS" -le 10 ] || fail "recover took $SECONDS s"
expect 0 "19999" -- show --count saved
echo "All as expected."
