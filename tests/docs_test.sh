#!/usr/bin/env bash
# Runs the sessions in the documents, blocks with a $ in front of each command (in Markdown those
# marked console), and compares what they show. The manual of vynpkt must name all of its options.
#
# Usage: docs_test.sh SOURCEDIR VYNPKT LIBDIR DOCUMENT...
set -euo pipefail
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

for command in $(vynpkt --help | sed -n '/^[A-Z].*:$/,$s/^  \([a-z]*\)  .*/\1/p'); do
    for option in "$command" $(vynpkt "$command" --help | grep -oE '^  -[^ ]+' | tr , ' '); do
        grep -qE -- "\*$option\*" "$source/man/vynpkt.1.scd" ||
            { echo "vynpkt(1) does not tell of $command $option" >&2; exit 1; }
    done
done
