#!/usr/bin/env bash
# tap.sh PELMSIM: plugins, agents and notifiers that are tapped, with pelmsim as the real daemon.
# shellcheck disable=SC2016 # what is in single quotes is for the shell that is tapped
set -euo pipefail
simulator=$1
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
export TMPDIR=$work/tmp # that nothing is to be left in
mkdir "$TMPDIR"
fail() {
    echo "$1"
    tail -v -n 40 "$work/tap" "$work/daemon"
    exit 1
}

# The one that a daemon makes last, if it is there: one that died has left it.
last_socket() { stat -c '%i %z' /var/tmp/pelmd.notifier.socket 2>/dev/null || true; }

# serve COMMAND...: the daemon is there, and runs its script.
serve() {
    local before
    before=$(last_socket)
    "$@" >"$work/daemon" 2>&1 </dev/null &
    daemon=$!
    until [[ $(last_socket) != "$before" ]]; do
        kill -0 $daemon || fail 'there is no daemon'
    done
}

options=()

# tap COMMAND...: is tapped from now on; tap_as USER... -- COMMAND...: by one who is started so.
tap() { tap_as -- "$@"; }
tap_as() {
    local user=()
    while [[ $1 != -- ]]; do
        user+=("$1")
        shift
    done
    user+=("$simulator" tap "${options[@]}")
    : >"$work/tap" # what the one before said is not waited for
    # What a shell starts behind itself ignores this signal, which "timeout" may pass on then or not.
    env --default-signal=INT timeout --foreground 100 "${user[@]}" "$@" >"$work/tap" 2>&1 </dev/null &
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
    [[ -z $(last_socket) ]] || fail 'the daemon has left something'
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

# It works where it was started, whatever has become of that.
mkdir "$work/gone"
cd "$work/gone"
rmdir "$work/gone"
tap readlink /proc/self/cwd
ends 0
says "$work/gone (deleted)"
cd "$work"

# One that does not end when it is asked to is killed when the tap is asked again.
tap bash -c 'trap "echo asked" TERM; echo trapped; while :; do sleep 0.1; done'
until grep -q '| trapped' "$work/tap"; do :; done
kill -INT $tap
until grep -q asked "$work/tap"; do :; done
kill -INT $tap
ends 137
says 'signal 9'

# Both ends see the same bytes and the same end, whatever they are.
serve tap_ends daemon
tap tap_ends plugin
ends 0
is_served
says 'plugin| unfinished: as it was sent' 'plugin| no UTF-8: as it was sent'

# So they do when nobody reads what is told of it.
mkfifo "$work/unread"
exec {unread}<>"$work/unread"
serve tap_ends daemon
tell='tap_ends plugin >"$0/ends"; echo $? >"$0/done"'
"$simulator" tap -- bash -c "$tell" "$work" >&"$unread" 2>&1 </dev/null &
tap=$!
is_served
until [[ -s $work/done ]]; do :; done
[[ $(<"$work/done") == 0 ]] || fail 'the plugin is not content'
exec {reader}<"$work/unread"
exec {unread}>&-
cat <&"$reader" >"$work/tap" &
exec {reader}<&-
ends 0

# A plugin through all that a daemon does, its restart as well: between two of its tries to connect, the second
# of which is after 300 ms, so that it does not pass by the tap.
examples=$(dirname "$0")/../../examples
serve "$simulator" serve --timeout 60000 --config "$examples/demo.xml" \
    --script <(sed 's/^restart 300$/restart 200/' "$examples/demo.sim")
options=(--record "$work/all.json")
tap example_plugin
options=()
is_served
is_interrupted
[[ $("$simulator" show "$work/all.json") == "$tapped" ]] || fail 'the recording tells another story'
says '< register interfaces: ok' '> publish /interfaces/interface[name="eth0"] mod: ok' \
    '> operate /interfaces/reset: ok' 'the daemon hung up' 'the daemon restarts' \
    '< register interfaces: ok' 'ended: status 0'

# A recording without the values at a path has them nowhere.
script=('wait active interfaces' 'set /interfaces/interface[name="eth0"]/mtu 8765' 'expect ok')
serve "$simulator" serve --timeout 60000 --config "$examples/demo.xml" \
    --script <(printf '%s\n' "${script[@]}")
options=(--record "$work/some.json" --redact /interfaces/interface/mtu)
tap example_plugin
options=()
is_served
is_interrupted
says 'mtu 1500 -> 8765'
grep -q 'interfaces/interface' "$work/some.json" || fail 'too much is left out'
! sed -E 's/"(time|pid|ms)":("[^"]*"|[0-9.]*)//g' "$work/some.json" | grep -E '1500|8765' ||
    fail 'a value was recorded'

# One of the older API, which ends with the daemon.
serve "$simulator" serve --timeout 60000 --script <(printf '%s\n' 'wait active system' \
    "set /system/hostname $(printf 'a%.0s' {1..65})" 'expect error 22')
tap example_legacy_plugin
ends 0
is_served
says '> publish /system/hostname add: error 22 (A host name has 64 characters at most.)'

# Either end hears at once that the other one has gone.
serve "$simulator" serve --timeout 60000 --script <(printf '%s\n' 'wait active one' \
    'operate /test/do <exit>3</exit>' 'expect no-answer hang-up' 'wait closed one')
tap test_plugin one 1
ends 3
is_served

# An ordinary user stays who he is, with no rights beside his own.
user=(unshare --user --map-user=1000 --map-group=1000)
if "${user[@]}" true 2>/dev/null; then
    serve "$simulator" serve --timeout 60000 \
        --script <(printf '%s\n' 'wait active one' 'kickoff one' 'expect ok')
    tap_as "${user[@]}" -- bash -c 'grep -E "^(Uid|CapEff):" /proc/self/status
        exec test_plugin one 1'
    ends 0
    is_served
    says '1000' '0000000000000000' '< activate: ok'
fi

# An agent, and a notification that comes back to it.
serve "$simulator" serve --timeout 60000 --script <(echo wait notification alarm)
tap bash -c 'exec 3< <(example_agent)
    until [[ ${line:-} == *subscribeNotification_1* ]]; do read -r line <&3; done
    example_notify alarm "fan < stopped"
    until [[ $line == *"<alarm>"* ]]; do read -r line <&3; done
    echo "$line"'
ends 0
is_served
says '< create-subscription: ok' 'notifier     <' '<text>fan &lt; stopped</text>' 'plugin| <noti'

# A daemon that dies leaves its files: nobody is connected to a socket that nobody serves.
serve "$simulator" serve
rm -f /var/log/conf_plugin.log
tap bash -c 'for each in 1 2 3; do test_plugin one 1; done
    touch "$0/refused"
    exec example_plugin' "$work"
until grep -q 'activate: ok' "$work/tap"; do :; done
kill -KILL $daemon
wait $daemon || true
until [[ -e $work/refused ]]; do :; done
grep -q 'Connect to pelmd failed(Connection refused)' /var/log/conf_plugin.log ||
    fail 'the plugin does not see that nobody listens'
serve "$simulator" serve --timeout 60000 --script <(echo wait active interfaces)
is_served
is_interrupted
says '< activate: ok' 'the daemon hung up' 'a connection is refused' 'the daemon restarts' \
    '< register interfaces: ok'

# One that is killed itself leaves nothing either.
tap sleep 1000
until [[ -n $(ls "$TMPDIR") ]]; do :; done
kill -KILL "$(pgrep -P $tap)"
until [[ -z $(ls "$TMPDIR") ]]; do :; done
wait $tap || true

# Nor when all of its process group is.
: >"$work/tap"
setsid "$simulator" tap -- sleep 1000 >"$work/tap" 2>&1 </dev/null &
tap=$!
until grep -q 'not there yet' "$work/tap"; do :; done
kill -KILL -- -$tap
until [[ -z $(ls "$TMPDIR") ]]; do :; done
wait $tap || true

# Whatever some peers send, the others are served, and memory stays bounded.
script=('wait active one' 'publish /a/c mod' 'expect ok'
    'wait notification over' 'publish /a/c mod' 'expect ok')
serve "$simulator" serve --timeout 60000 --script <(printf '%s\n' "${script[@]}")
tap bash -c '(for each in attributes namespaces levels bomb "agent bomb" "garbage 200" "connections 400"; do
        hostile $each
    done
    example_notify over "") &
    test_plugin one 1
    wait
    grep VmHWM /proc/$PPID/status'
ends 0
is_served
says 'publish /a/c mod: ok' 'with a document type' 'publish /a/c mod: ok' 'the daemon hung up'
[[ $tapped =~ VmHWM:[[:space:]]*([0-9]+) ]]
((BASH_REMATCH[1] < 400000)) || fail 'that took too much memory'
