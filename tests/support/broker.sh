# start_broker [OPTION...]: starts mosquitto for a test whose folder is $work. The clients that the
# test starts find it by their configuration; the options are those of each mosquitto_sub. Fails where
# the programs are missing.
start_broker() {
    PATH=$PATH:/usr/sbin
    type mosquitto mosquitto_pub mosquitto_sub >/dev/null 2>&1 || return
    export XDG_CONFIG_HOME=$work/clients
    mkdir "$XDG_CONFIG_HOME"
    echo "--unix $work/broker" | tee "$XDG_CONFIG_HOME"/mosquitto_{pub,sub} >/dev/null
    printf '%s\n' "$@" >>"$XDG_CONFIG_HOME/mosquitto_sub"
    printf 'listener 0 %s\nallow_anonymous true\nuser %s\nlog_type all\n' "$work/broker" "$(id -un)" \
        >"$work/broker.conf"
    mosquitto -c "$work/broker.conf" >"$work/broker.log" 2>&1 &
    # shellcheck disable=SC2064
    trap "kill $!; rm -rf '$work'" EXIT
    timeout 10 bash -c 'until mosquitto_pub -t started -n 2>/dev/null; do sleep 0.05; done' ||
        { cat "$work/broker.log" >&2; exit 1; }
}
