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
[ "$(head -n 2 out | jq -sc 'map([.whole, .records])')" = '[[true,6],[false,6]]' ] || fail "--json"

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
