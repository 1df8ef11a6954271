#!/usr/bin/env bash
# Runs the sessions in the documents, blocks with a $ in front of each command (in Markdown those
# marked console), and compares what they show. The manual of vynpkt must name all of its options, and
# the examples in its help must run.
#
# Usage: docs_test.sh SOURCEDIR VYNPKT LIBDIR DOCUMENT...
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/support/broker.sh"
source=$(realpath "$1") vynpkt=$(realpath "$2") lib=$(realpath "$3")
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH=${vynpkt%/*}:$PATH PROTOS=$source/common/protobuf/protos PKG_CONFIG_PATH=$work

# The library as if it were installed, whatever the path of the sources holds.
ln -s "$source/include" "$lib" "$work"
lib=$work/${lib##*/}
cat >"$work/vyn_proto.pc" <<END
Name: vyn_proto
Description: as it was built
Version: 1
Cflags: -I$work/include
Libs: -L$lib -lvyn_proto -Wl,-rpath,$lib
END

for document in "$@"; do
    mkdir "$work/run"
    cp "$source"/examples/hello/*.c "$work/run"
    awk '/^```/ { shown = !shown && ($0 == "```console" || FILENAME ~ /[.]scd$/); next } shown' \
        "$source/$document" >"$work/session"
    grep -q '^\$ ' "$work/session" || { echo "$document: no session in it" >&2; exit 1; }
    sed -n 's/^[$>] //p' "$work/session" >"$work/commands"
    grep -v '^[$>] ' "$work/session" >"$work/expected" || true
    (cd "$work/run" && bash -e "$work/commands") >"$work/shown" 2>&1 ||
        { echo "$document: a command failed" >&2; cat "$work/shown" >&2; exit 1; }
    diff "$work/expected" "$work/shown" || { echo "$document: shows something else" >&2; exit 1; }
    echo "ok  $document"
    rm -r "$work/run"
done

commands=$(vynpkt --help | sed -n '/^[A-Z].*:$/,$s/^  \([a-z]*\)  .*/\1/p')
for command in $commands; do
    for option in "$command" $(vynpkt "$command" --help | grep -oE '^  -[^ ]+' | tr , ' '); do
        grep -qE -- "\*$option\*" "$source/man/vynpkt.1.scd" ||
            { echo "vynpkt(1) does not tell of $command $option" >&2; exit 1; }
    done
done

# What the files that examples name hold, by their names. A body that is a Telemetry is also an
# EventMessage.Step, and there are bodies of both kinds in packets.dat.
message='{"telemetry":[{"event_type":5}]}'
typed='{"message_id":"1","message_type":32773,"body":'$message'}'
text='{"message_id":"2","message_type":5,"body":"hi"}'
mkdir "$work/files"
cd "$work/files"
printf '%s\n' '5 Telemetry' '21 TripData' >types.txt
echo "$message" >telemetry.json
vynpkt encode -t Telemetry telemetry.json -o telemetry.bin
vynpkt pack --type Telemetry - -o packet.bin <<<"$typed"
vynpkt pack - -o text.bin <<<"$text"
cp packet.bin photo.jpg
vynpkt compress packet.bin -o packet.zst
vynpkt append packets.dat packet.bin text.bin
make_file() { # NAME EXAMPLE
    case $1 in
        *.bin) cp packet.bin "$1" ;;
        *.zst) cp packet.zst "$1" ;;
        *.dat) cp packets.dat "$1" ;;
        *.json | *.jsonl) if [[ $2 == *" --type "* ]]; then echo "$typed"; else echo "$text"; fi >"$1" ;;
    esac
}
can_run() { # EXAMPLE
    local program
    for program in jq hexdump zstd mosquitto_pub mosquitto_sub; do
        [[ $1 != *"$program "* ]] || type "$program" >/dev/null 2>&1 ||
            { echo "skipped: $program is missing: $1"; return 1; }
    done
}
start_broker '-C 1' '-W 20' && mosquitto_pub -r -t car/1 -s <packet.bin
for command in "" $commands; do
    vynpkt $command --help | sed -n '/^Examples*:$/,$s/^  //p' >"$work/found"
    [ -s "$work/found" ] || { echo "vynpkt $command --help: no examples" >&2; exit 1; }
    cat "$work/found"
done >"$work/examples"
while read -r example; do
    can_run "$example" || continue
    cp -r "$work/files" "$work/run"
    cd "$work/run"
    for name in $(grep -oE '[a-z]+[.](bin|zst|dat|jsonl?)' <<<"$example"); do
        [ -e "$name" ] || make_file "$name" "$example"
    done
    timeout 20 bash -o pipefail -c "$example" </dev/null >"$work/shown" 2>&1 ||
        { echo "in the help, failed: $example" >&2; cat "$work/shown" >&2; exit 1; }
    echo "ok  $example"
    cd "$work"
    rm -r "$work/run"
done <"$work/examples"
