#!/usr/bin/env bash
# How vynpkt answers: what it refuses and in which words, help, terminals, pipes, completions.
#
# Usage: vynpkt_cli_test.sh VYNPKT COMPLETIONS
set -Eeuo pipefail
completions=$(realpath "$2")
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$1"

"$vynpkt" pack -o good --body - <(echo '{"message_type":5}') <<<"text"
"$vynpkt" compress good -o good.zst
cat good.zst good.zst >twice
head -c 70000000 /dev/zero | zstd -q >bomb
printf '\x53\x2a\x4d\x18\x01\x00\x00\x00x' >skip
printf '\x0a\x05ab' >torn
printf '\x06\x38\x05\x62\x02ab\x06\x38' >damaged
echo old >kept
echo "5 Telemetry" >types
long=$(head -c 8192 /dev/zero | tr '\0' x)
wide=$(printf 'ü%.0s' {1..40})

# Each runs once more with --json, whose objects must say the same.
echo "-- broken input: exit code, words, standard input, arguments"
# shellcheck disable=SC2086
while IFS='|' read -r code words text arguments; do
    expect "$code" "$words" -- $arguments < <(printf '%b' "$text")
    sed "s/^/$code /" err >>plain
    "$vynpkt" $arguments --json < <(printf '%b' "$text") >out 2>>objects || true
done <<END
1|pack: (stdin): the envelope is not JSON: the text is empty (code 3)||pack -o kept
1|the envelope is not JSON: line 2, column 7: unexpected character (code 3)|{"body":"x",\n "ü": x }|pack
1|line 2: the envelope is not JSON: column 9: the text ends here (code 3)|{"body":"x"}\n{"body":|pack -l
1|the envelope has no "body", and there is no --body FILE (code 11)|{}|pack
1|more text behind the envelope|{"body":"}"} {"body":"y"}|pack
1|the envelope holds a NUL byte|{"body":"x"}\0|pack
1|a text is not UTF-8, or too long|{"message_id":"$wide","body":"x"}|pack -o kept
1|not a JSON object|[1]|pack --body good
1|line 3: "body" is neither|{"body":"x"}\n\n{"body":[1]}\n{}\n|pack -l -o kept
4|line 1: "body" is not base64|{"message_type":32768,"body":"*"}\n{"body":"a"}|pack -l
4|line 1: "message_id": 5 is not a string, so it is left out|{"message_id":5,"body":"x"}|pack -l
4|"time": 99999999999999999999 is out of range|{"time":99999999999999999999,"body":"x"}|pack
4|"version": 4294967295 is out of range|{"version":4294967295,"body":"x"}|pack
4|"message_type": 70000 has more than the 16 bits|{"message_type":70000,"body":"x"}|pack
4|"device_id": cut to 127 bytes|{"device_id":"$long","body":"x"}|pack
4|"body": ends at the NUL in it|{"body":"x\\\\u0000y"}|pack
4|"property_bag.checksum": does not travel|{"property_bag":{"checksum":"x"},"body":"x"}|pack
4|"property_bag.error_code": "5" is not an integer|{"property_bag":{"error_code":"5"}}|pack --body good
4|not know: "dev" (did you mean "device_id"?), "property_bag.fil" (|{"dev":1,"property_bag":{"fil":1},"body":"x"}|pack
4|"packet_status": does not travel|{"packet_status":"LIVE","body":"x"}|pack
0||{"packet_status":"LIVE","dev":1,"property_bag":{"checksum":"x"},"body":"x"}|pack --lenient
0||{"dev":1,"version":3}|pack --lenient --header
0||{"packet_status":1,"time":"now","property_bag":{"checksum":"x"},"offset":1}|pack --now --status 1 --body good
1|not JSON of Header: "ttl": "x" is not an integer of 64 bits|{"ttl":"x"}|pack --header
4|skipped what Header does not know: "bod" (did you mean "body"?)|{"bod":""}|pack --header
1|"message_type" 32773 contradicts "type" and "encoding", which make 32774|{"message_type":32773,"type":6,"message":{}}|pack
1|"name" is Meta, but type 5 is Telemetry|{"type":5,"encoding":2,"name":"Meta"}|pack --types types
1|line 1: "message" without "name"|{"type":6,"message":{}}|pack -l
1|line 1: "message": not JSON of Telemetry: "meta": 5 is not an object|{"type":5,"message":{"meta":5}}|pack -l --types types
4|"body" is not "message"; took "message"|{"type":5,"message":{},"body":"EgA="}|pack --types types
4|"device_id": given 2 times|{"device_id":"a","device_id":"b","body":"x"}|pack
4|"property_bag.error_code": given 2 times|{"property_bag":{"error_code":1,"error_code":2},"body":"eA=="}|pack --header
4|(code 9)|{"property_bag":{"error":"$long"},"body":"x"}|pack
1|(stdin): "body": not JSON of Meta: "sequence_no": "99999999999999999999" is not an integer|{"message_type":32768,"body":{"sequence_no":99999999999999999999}}|pack --type Meta
1|(stdin): "body": not JSON of Meta: "vin": 1234567890123456789 is not a string|{"message_type":32768,"body":{"vin":1234567890123456789}}|pack --type Meta
1|; 32773 would be|{"message_type":5,"body":{}}|pack --type Meta
3|no/out: No such file|{"body":"x"}|pack -o no/out
2|goes with neither||pack -l -z good
2|--hex: does not go with --base64||pack --hex --base64
2|--type: does not go with --header||pack --type Meta --header
2|comes from standard input already||pack --body -
2|does not go with --body||pack --type Meta --body x
1|unpack: torn: not a valid Header (code 8)||unpack torn
1|(stdin): empty||unpack
1|/dev/zero: longer than the 64 MiB||unpack /dev/zero
1|longer than 64 MiB||unpack --body - bomb
1|the body: not a valid Meta|\x38\x80\x80\x02\x62\x01a|unpack --type Meta
2|cannot be both||unpack good --body x -o ./x
2|did you mean "EventMessage.Step"?||unpack --type EventMesage.Step
2|add -o FILE||unpack --type Meta --body -
2|--lines: needs --hex or --base64||unpack -l good
2|--hex: does not go with --base64||unpack --hex --base64
2|--type: does not go with --types||unpack --type Meta --types x
2|--header: is about the envelope||unpack --header --body - good
3|no/out: No such file||unpack good --body kept -o no/out
4|line 3: character 2 is not a hexadecimal digit|0a00\n\n0x\n|unpack -l --hex
4|line 1: an odd number|380\n3805\n|unpack -l --hex
4|line 1: not a valid Header (code 8)|0a05\n|unpack -l --hex
4|line 2: base64 that is cut|OAU=\nOAU\n|append -l --base64 file
4|line 1: character 4 is not base64|OA=U\n|unpack -l --base64
4|line 1: the zstd frame is truncated|28b52ffd\n|append -l --hex file
1|unpack: (stdin): not a valid Header|28b52ffd|unpack --hex --plain
3|vynpkt: compress: .: Is a directory||compress . -o kept
1|bytes behind the end of the zstd frame||decompress twice -o kept
1|a skippable zstd frame||decompress skip -o kept
1|empty: not a zstd frame||decompress -o kept
1|restamp: torn: not a valid Header (code 8)||restamp 1 torn -o kept
2|LOVE: not a packet status||restamp LOVE
2|3x: not a packet status||restamp 3x
3|größe: No such file||unpack größe
1|damaged at offset 7: a record of 6 bytes, of which 1||show damaged
1|; this is one packet||show good
1|; this is a zstd frame||show twice
1|; this is a packet file||unpack damaged
2|not KEY=VALUE||show --only x damaged
2|show: -n x: not a count; give 0, 1, 2, ...; see "vynpkt show --help"||show -n x
2|--skip -1: not a count||show --skip -1
2|--output: given 2 times||show -o x -o y
2|--count: takes no value||show --count=x
2|--now: takes no value||pack --now=3
2|"statu": no such key; did you mean "status"?||show --only statu=1 damaged
2|time: "x" is neither a number nor a time||show --only time>x damaged
2|no value of PacketStatus; did you mean "LIVE"?||show --only status=liv damaged
2|is no regular expression: Unmatched (||show --only body~( damaged
2|name a field of it, as in "property_bag.error_code"||show --only property_bag=1 damaged
2|needs --types FILE||show --csv message.x damaged
2|"message.meta.vim": no such key; did you mean "message.meta.vin"?||show --types types --csv message.meta.vim damaged
2|without back references||show --only body~(a)\\1 damaged
2|would appear at the end||show -f -o x damaged
2|only one of --csv, ||show --csv type --count damaged
2|--each time: not a repeated field||show --csv type --each time damaged
3|diff: damaged: damaged at offset 7||diff damaged damaged
2|must be regular||diff - damaged
1|types: (stdin): line 3: 7 is Meta already|\xef\xbb\xbf7 Meta\n\n7 Trip|types
1|line 1: 16384 is more than the largest message type|16384 Meta|types
1|line 1: Telemetri: no such message; did you mean "Telemetry"?|5 Telemetri|types
1|append: (stdin): not a valid Header (code 11)|nonsense|append file
3|append: .: not a file that can be opened or made for appending (code 12)||append . good
3|nowhere: No such file||verify nowhere good
3|.: not a regular file||recover .
2|would lose||recover damaged -o ./damaged
2|list: x: one argument too many||list x
2|--fils: no such option; did you mean "--files"?||list --fils
2|the output is the packet file||append -o x file good
2|PacketStatus: no message||describe --example PacketStatus
2|15 have that name: Header.system_id, ||describe system_id
2|encode: --type T: missing||encode
1|encode: (stdin): not JSON of Telemetry: line 1, column 4: more text|{} {}|encode -t Telemetry
1|"telemetry[1].data[0].string_value[1]": 5 is not a string|{"telemetry":[{},{"data":[{"string_value":["",5]}]}]}|encode -t Telemetry
1|line 1, column 9: a byte that is not text|{"vin":"\xff"}|encode -t Meta
4|not know: "vim" (did you mean "vin"?), "1", "2", "3", "4" and 1 more|{"vim":"5","1":1,"2":1,"3":1,"4":1,"5":1}|encode -t Meta
4|not know: "telemetry[0].data[0].idd" (|{"telemetry":[{"data":[{"idd":0}]}]}|encode -t Telemetry
2|StringValue: no such message; see "vynpkt list"||encode -t StringValue
1|decode: (stdin): not a valid Meta|\x0a\x05ab|decode -t Meta
4|left out fields that Meta does not know|\x7a\x00|decode -t Meta
3|checksum: nowhere: No such file||checksum good nowhere -o kept
2|decomp: no such command; did you mean "decompress"?||decomp
2|such command; see "vynpkt --help"||xyzzy
END
same "--json says the same" plain <(jq -r '"\(.exit_status) vynpkt: " + ([.command, .file] |
    map(values + ": ") | add) + .text + (if .code then " (code \(.code))" else "" end)' objects)
same "the files in it" <(jq -r .file objects | sort -u) <(printf '%s\n' '(stdin)' . \
    /dev/zero bomb damaged good größe no/out nowhere null skip torn twice | sort)
expect 3 "vynpkt: pack: --json: No such file" -- pack -- --json # a name, not the option
expect 2 "-n N: the value is missing" -- show -n
expect 0 "" -- show -n 1 damaged # which lies behind
expect 2 "does not go with --json" -- list --files --json
expect 1 "nothing could be recovered" -- recover torn -o kept
[ "$(cat kept)" = old ] || fail "a refused run changed the output"

echo "-- help, and completions that know the same"
complete_bash() { # WORD...: what the last one may become
    (
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
        PATH=$(dirname "$vynpkt"):$PATH
        # shellcheck disable=SC1091
        . "$completions/vynpkt.bash"
        _vynpkt && printf '%s\n' "${COMPREPLY[@]}"
    )
}
"$vynpkt" --help >help
gives help help
sed -n '/:$/,/^$/s/^  \([a-z]*\)  .*/\1/p' help | sort >commands
while read -r command; do
    grep -q "^[0-9] vynpkt: $command: " plain || fail "no broken input for $command"
    expect 0 "" -- help "$command"
    grep -q "^  .*vynpkt $command" out || fail "no example for $command"
    complete_bash vynpkt "$command" - | sort >offered
    same "options" offered <(grep -o '^  -[^ ]*' out | tr ',' '\n' | tr -d ' ' | sort)
    while read -r option; do
        grep -qwe "${option#-}" "$completions/_vynpkt" || fail "zsh: $command $option"
    done <offered
done <commands
same "commands" commands <(complete_bash vynpkt "" | grep -v -e - -e help | sort)
while IFS='|' read -r words offered; do
    # shellcheck disable=SC2086
    [ "$(complete_bash vynpkt $words | paste -sd' ')" = "$offered" ] || fail "completion: $words"
done <<'END'
encode -t Telemetry|TelemetryData Telemetry TelemetryA2ARequest TelemetryA2AResponse
restamp LIVE torn|torn
show --only message_|message_id= message_type=
END
expect 2 "no command given" --
same "statuses" <(complete_bash vynpkt pack --status '') \
    <("$vynpkt" describe PacketStatus | sed -n 's/^  \([A-Z]*\) = .*/\1/p')

echo "-- terminals and pipes"
export vynpkt
# on_terminal CODE WORDS COMMAND
on_terminal() {
    local status=0
    script -qec "$3" /dev/null </dev/null >out || status=$?
    [ "$status" -eq "$1" ] || fail "on a terminal: $3: exit code $status"
    grep -qF -- "$2" out || fail "on a terminal: $3: does not say '$2'"
}
"$vynpkt" pack -o binary --body <(printf '\1') - <<<'{"message_type":32773}'
for command in pack compress "restamp 1" "encode -t Meta" "unpack --body -" "recover"; do
    on_terminal 2 "give -o FILE" "\"\$vynpkt\" $command binary"
done
on_terminal 0 text '"$vynpkt" unpack --body - good'
seq -f '{"message_type":5,"ttl":%.0f,"body":"12345678"}' 9000 | "$vynpkt" pack -l -o many
{ cat many; head -c 20 many; cat many; } >torn_many
# Progress begins after a second; a sanitizer or a busy machine takes another to start.
on_terminal 0 "show: " '(cat many; sleep 3; cat many) | "$vynpkt" show >/dev/null &
    (cat many; sleep 3; cat many) | "$vynpkt" verify &
    (cat many; sleep 3; cat many) | "$vynpkt" show --count 2>err &
    (sleep 3; cat good) | "$vynpkt" append file good - &
    "$vynpkt" recover torn_many | (sleep 3; cat >/dev/null) & wait'
for words in "verify: 0 MiB" "append: 100 %" "recover: " "18000 records"; do
    tr '\r' '\n' <out | grep -qF -- "$words" || fail "progress: no '$words'"
done
[ ! -s err ] || fail "progress without a terminal"
status=0
"$vynpkt" compress /dev/urandom 2>err | head -c 1 >out || status=${PIPESTATUS[0]}
[ "$status" -eq 141 ] && [ ! -s err ] || fail "closed pipe: exit code $status"
# Never by -o: were devices replaced like files, this would take the machine's own.
"$vynpkt" list >/dev/full 2>err || [ $? -eq 3 ] || fail "full device: exit code"
grep -qF "list: (stdout): No space left on device" err || fail "full device: no such words"
expect 0 "Received message :5" -- unpack -v good
{ echo first; "$vynpkt" list -o /dev/stdout; } >shared
[ "$(head -n 1 shared)" = first ] || fail "the file behind /dev/stdout was replaced"
echo "All as expected."
