#!/usr/bin/env bash
# docs_test.sh BINDIR PROTODIR DOCUMENT...: runs the sessions in the documents, which stand in blocks
# marked console with a $ in front of each command, and compares what they show.
set -euo pipefail
PATH=$(realpath "$1"):$PATH
PROTOS=$(realpath "$2")
export PATH PROTOS
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for document in "$@"; do
    mkdir "$work/run"
    awk '/^```/ { shown = $0 == "```console"; next } shown' "$document" >"$work/session"
    grep -q '^\$ ' "$work/session" || { echo "$document: no session in it" >&2; exit 1; }
    sed -n 's/^[$>] //p' "$work/session" >"$work/commands"
    grep -v '^[$>] ' "$work/session" >"$work/expected" || true
    (cd "$work/run" && bash -e "$work/commands") >"$work/shown" 2>&1 ||
        { echo "$document: a command failed" >&2; cat "$work/shown" >&2; exit 1; }
    diff "$work/expected" "$work/shown" || { echo "$document: shows something else" >&2; exit 1; }
    echo "ok  $document"
    rm -r "$work/run"
done
