#!/usr/bin/env bash
# tap.sh PELMSIM: plugins, agents and notifiers that are tapped, with pelmsim as the real daemon.
set -euo pipefail
simulator=$1
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
export TMPDIR=$work/tmp # that nothing is to be left in
mkdir "$TMPDIR"
fail() {
    printf '%s\n--- tap:\n%s\n--- daemon:\n%s\n' "$1" "$(tail -n 40 "$work/tap")" "$(tail -n 40 "$work/daemon")"
    exit 1
}

# serve COMMAND...: the daemon is there, and runs its script.
serve() {
    rm -f /var/tmp/pelmd.*
    "$@" >"$work/daemon" 2>&1 </dev/null &
    daemon=$!
    until [[ -S /var/tmp/pelmd.notifier.socket ]]; do
        kill -0 $daemon || fail 'there is no daemon'
    done
}

# tap COMMAND...: is tapped from now on.
tap() {
    timeout 100 "$simulator" tap -- "$@" >"$work/tap" 2>&1 </dev/null &
    tap=$!
}

# ends STATUS: the tap does, and leaves nothing.
ends() {
    local status=0
    wait $tap || status=$?
    tapped=$(<"$work/tap")
    [[ $status == "$1" ]] || fail "expected status $1, got $status"
    [[ -z $(ls "$TMPDIR") ]] || fail 'something is left'
    ! grep pelmd /proc/self/mountinfo || fail 'something is left mounted'
}

# What it runs is asked to end, and does.
is_interrupted() {
    kill -INT $tap
    ends 0
}
is_served() {
    wait $daemon || fail 'the daemon is not content'
}
says() { # TEXT...: lines with these, in this order
    local rest=$tapped each
    for each; do
        [[ $rest == *"$each"* ]] || fail "expected \"$each\""
        rest=${rest#*"$each"}
    done
}

tap true
wait $tap || true
if grep 'cannot make a mount namespace' "$work/tap"; then
    echo 'skipped: it may not be tapped here'
    exit 0
fi
tap bash -c 'exit 7'
ends 7
says '/var/tmp/pelmd.plugin.socket is not there yet' 'ended: status 7'
tap bash -c 'kill -SEGV $$'
ends 139

# Both ends see the same bytes and the same end, whatever they are.
serve tap_ends daemon
tap tap_ends plugin
ends 0
is_served
says 'plugin| unfinished: as it was sent' 'plugin| no UTF-8: as it was sent'

# A plugin through all that a daemon does, its restart as well.
examples=$(dirname "$0")/../../examples
serve "$simulator" serve --config "$examples/demo.xml" --script "$examples/demo.sim"
tap example_plugin
is_served
is_interrupted
says '< register interfaces: ok' '> publish /interfaces/interface[name="eth0"] mod: ok' \
    '> operate /interfaces/reset: ok' 'the daemon hung up' 'the daemon restarts' \
    '< register interfaces: ok' 'ended: status 0'

# One of the older API, which ends with the daemon.
serve "$simulator" serve --script <(printf '%s\n' 'wait active system' \
    "set /system/hostname $(printf 'a%.0s' {1..65})" 'expect error 22')
tap example_legacy_plugin
ends 0
is_served
says '> publish /system/hostname add: error 22 (A host name has 64 characters at most.)'

# An agent, and a notification that comes back to it.
serve "$simulator" serve --script <(echo wait notification alarm)
tap bash -c 'exec 3< <(example_agent)
    until [[ ${line:-} == *subscribeNotification_1* ]]; do read -r line <&3; done
    example_notify alarm "fan < stopped"
    until [[ $line == *"<alarm>"* ]]; do read -r line <&3; done
    echo "$line"'
ends 0
is_served
says '< create-subscription: ok' 'notifier     <' '<text>fan &lt; stopped</text>' 'plugin| <notification'

# Whatever one peer sends, the others are served, and memory stays bounded.
serve "$simulator" serve --script <(printf '%s\n' 'wait active one' 'publish /a/c mod' 'expect ok' \
    'wait notification over 60000' 'publish /a/c mod' 'expect ok')
tap bash -c '(tap_ends hostile >/dev/null; example_notify over "") &
    test_plugin one 1
    wait
    grep VmHWM /proc/$PPID/status'
ends 0
is_served
says 'publish /a/c mod: ok' 'it has a document type' 'publish /a/c mod: ok' 'one            the daemon hung up'
