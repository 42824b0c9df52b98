#!/usr/bin/env bash
# pressure.sh PELMSIM DIRECTORY native|emulated: peers that keep no manners do pelmsim no harm.
set -euo pipefail
simulator=$1
cd "$2"
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}quarantine_size_mb=16 # what is freed does not count

fail() {
    printf '%s:\n%s\n' "$1" "$output"
    exit 1
}

# survives SCRIPT OPTION...: pelmsim runs it with success. Of long lines, the beginning says enough.
survives() {
    output=$("$simulator" run --timeout 100000 --script "$@" 2>&1 </dev/null | cut -b -1000) ||
        fail "status $?"
}

# says COUNT TEXT: so many lines hold that text.
says() {
    [[ $(grep -cFa -- "$2" <<<"$output") == "$1" ]] || fail "not $1 lines with \"$2\""
}

# at_margin COUNT: so many lines begin as only forged ones do, and the heading of a script.
at_margin() {
    [[ $(grep -ca '^00:00:00.000' <<<"$output") == "$1" ]] || fail 'a line was forged'
}

survives forged.sim
LC_ALL=C grep -qaP '[\x00-\x08\x0b-\x1f\x7f]|\xc2[\x80-\x9f]' <<<"$output" &&
    fail 'control characters came through'
says 1 'evil\r\n00:00:00.000\t\xc2\x9b31m\x7fé < register evil\r\n'
says 1 'printf| 00:00:00.000 \x1b[31mred\x1b[m \x9b é	kept'
at_margin 1

big=$(mktemp) # nearly as much as can be read at once
trap 'rm "$big"' EXIT
printf '<big>%09000000d</big>' 0 >"$big"
survives greedy.sim --config "$big"
says 1 'pelmsim hangs up: 145 MiB are unread'

# With so little memory the queue cannot grow that far. Sanitizers do not start with it at all.
if (ulimit -v 130000 && "$simulator" --version >/dev/null 2>&1); then
    (
        ulimit -v 130000
        survives greedy.sim --config "$big"
        says 1 'pelmsim hangs up: std::bad_alloc'
    )
fi

# One attack after the other, beside a plugin that is served on, in a space that a checker takes, too.
# The last ones stay connected while that is looked at.
attacks=$(mktemp)
trap 'rm "$big" "$attacks"' EXIT
attack() { # HOW IT ENDS
    for each in "${@:2}"; do
        printf 'start hostile %s\npublish /a/b mod\nexpect within 20000 ok\n%s\n' "$each" "$1"
    done
}
{
    echo 'wait active first'
    attack $'wait exited hostile\nexpect status 0' \
        attributes namespaces levels elements references unknown ends controls bomb paths name \
        'garbage 200' 'endless 6' 'connections 1500' 'names 20000' 'agent attributes' \
        'agent controls' 'agent bomb' 'agent garbage 200' 'agent endless 3' 'agent connections 500'
    attack 'wait output "stays connected"' 'long 0 4' 'agent parent 0 4'
    printf 'start printf %%041943040d 0\nwait exited printf\n'
    # shellcheck disable=SC2016 # the inner shell fills it in
    printf 'start sh -c "grep VmHWM /proc/$PPID/status"\nwait output VmHWM\n'
} >"$attacks"
survives "$attacks" --config one.xml -- test_plugin first 20
says 3 'many attributes or namespaces in one place'
says 3 'more than 500000 nodes'
says 2 'no well-formed XML: 0x01 at byte 3'
says 2 'with a document type'
says 5 'registers too many paths'
says 4 'create-session: rpc-error'
says 3 'with a text of more than'
says 5 'MiB are kept for it'
says 40 'printf| 00000000'
[[ $3 == emulated ]] || # which has memory of its own
    (($(awk '/VmHWM/ { most = $(NF - 1) } END { print most }' <<<"$output") < 600000)) || fail 'too much is kept'

output=$("$simulator" run --timeout 30000 --script flood.sim 2>&1 </dev/null) &&
    fail 'nothing failed'
says 3 'flood.sim:'
says 1 'flood.sim:7: expected contains'
says 1 'flood.sim:8: expected lacks'
says 1 'notifier       the oldest notifications are dropped from now on'
says 1 'flood.sim:11: expected notification none, got nothing within 1 ms, but some were dropped'
at_margin 0
