#!/usr/bin/env bash
# Runs the example service with a peer that comes and goes: service_test.sh SERVICE VYNPKT
set -Eeuo pipefail
service=$(realpath "$1")
. "$(dirname "${BASH_SOURCE[0]}")/support/vynpkt.sh" "$2"
trap 'kill $(jobs -p) 2>&- || true; rm -rf "$work"' EXIT
socket='import socket, subprocess, sys; s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)'

eventually() { # WHAT COMMAND...
    for _ in {1..200}; do
        if "${@:2}" 2>&-; then echo "ok  $1" && return; fi
        sleep 0.05
    done
    fail "$1: $(cat log)"
}
logged() { [ "$(grep -c -- "$2" log)" -eq "$1" ]; }
start() { # STORE [FILE SIZE LIMIT]
    (ulimit -f "${2:-unlimited}" && exec "$service" -v in peer "$1") 2> >(exec cat >log) &
    pid=$!
    eventually "the service starts" logged 1 "ready"
}
stop() { kill -TERM $pid && wait $pid || fail "SIGTERM: exit code $?"; }
datagram() { python3 -c "$socket; s.sendto(sys.stdin.buffer.read(), 'in')"; }
send() { # ID...
    for id; do printf '{"message_id":"%s","body":"ü"}' "$id" | "$vynpkt" pack -z | datagram; done
}
peer_comes() {
    rm -f peer got
    python3 -c "$socket; s.bind('peer')
while True: subprocess.run(['$vynpkt', 'append', 'got'], input=s.recv(65536))" & peer=$!
    eventually "the peer comes" test -S peer
}
peer_goes() { kill "$peer" && wait "$peer" || true; }
answered() { # ID...: so many answers came, in this order
    [ "$("$vynpkt" show got | jq -r '.correlation_id + (.body | fromjson | .sha256)')" = \
        "$(for id; do echo "$id$(printf ü | sha256sum | cut -c 1-64)"; done)" ]
}

start store && peer_comes
! timeout 5 "$service" in peer other 2>second && grep -q "in use" second || fail "a second one: $(cat second)"
send a && datagram <<<garbage && send b && head -c 40000 /dev/zero | datagram && send c
eventually "answers, and two packets refused" answered a b c && logged 1 "refused: 40000 bytes"
peer_goes && send d e
eventually "what cannot be sent is stored" logged 2 "answer stored"
kill -STOP $pid && send f g && kill -TERM $pid && kill -CONT $pid && wait $pid || fail "SIGTERM"
expect 0 "" -- verify store
grep -q "4 records" out || fail "accepted before SIGTERM, and lost"
printf '\177torn' >>store && peer_comes && start store
eventually "the next run sends what is stored" answered d e f g
eventually "a damaged store is kept" test -s store.damaged -a ! -e store
peer_goes && send h i && peer_comes && send j
eventually "a peer that comes back gets its answers" answered h i j
[ ! -e store ] && stop && [ ! -e in ] || fail "something is left"

while read -r store limit; do
    peer_goes && start "$store" "$limit" && send k
    eventually "$store: no answer is stored" logged 1 "answer lost: not stored"
    peer_comes && send l
    eventually "$store: the service goes on" answered l && stop
done <<<$'/proc/1/store unlimited\nfull 0'
