# What the tests of vynpkt share: source it with the path of vynpkt as the argument. Sets up a folder
# of its own to work in, which it enters, and removes it at the end. A test prints a line for each
# case and ends at the first that is not as expected.

vynpkt=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'echo "FAILED at line $LINENO" >&2' ERR
cd "$work"

# The files in which expect looks for words, and what it runs the command with.
spoken=(err)
under=()

fail() {
    echo "FAILED $*" >&2
    [ ! -s err ] || sed 's/^/    /' err >&2
    exit 1
}

# expect CODE WORDS -- ARGUMENT...: runs the command on standard input, its output goes to the files
# out and err. It must end with this exit code and say these words, or nothing when they are empty.
expect() {
    local code=$1 words=$2 status=0
    shift 3
    "${under[@]}" "$vynpkt" "$@" >out 2>err || status=$?
    [ "$status" -eq "$code" ] || fail "vynpkt $*: exit code $status, not $code"
    if [ -n "$words" ]; then
        grep -aqF -- "$words" "${spoken[@]}" || fail "vynpkt $*: does not say '$words'"
    else
        [ ! -s err ] || fail "vynpkt $*: says something"
    fi
    echo "ok  vynpkt $* -> $code${words:+, $words}"
}

# gives FILE ARGUMENT...: runs the command, which writes the bytes of this file and says nothing.
gives() {
    local file=$1
    shift
    expect 0 "" -- "$@"
    same "vynpkt $*" out "$file"
}

# same WHAT FILE FILE
same() {
    cmp "$2" "$3" || fail "$1: not the same"
    echo "ok  $1"
}
