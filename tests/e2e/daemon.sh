#!/usr/bin/env bash
# daemon.sh DAEMON PLUGIN NOTIFIER: the examples serve each other, in the world that this runs in.
set -euo pipefail
daemon=$1
plugin=$2
notifier=$3
coproc talk { exec "$daemon"; }
# shellcheck disable=SC2154 # coproc assigns it, and takes it away at the end
served=$talk_PID

change() { echo "/interfaces/interface/mtu $1" >&"${talk[1]}"; }

# says LINE...: these come next, in this order
says() {
    local expected line
    for expected in "$@"; do
        IFS= read -rt 100 line <&"${talk[0]}" || line='nothing more'
        [[ $line == "$expected" ]] || { echo "expected: $expected, but it was: $line" && exit 1; }
    done
}

says ready
change 1500
change 9217
says 'local: error 22 The MTU must be 9216 at most.'
"$plugin" &
says 'interfaces: registered' 'interfaces: active' 'interfaces: accepted'
change 67
says 'interfaces: error 22 The MTU must be 68 at least.'
change 9216
says 'interfaces: accepted'
"$notifier" alarm hot
says 'notification: <alarm><text>hot</text></alarm>'
kill $!
says 'interfaces: gone'
input=${talk[1]}
exec {input}>&-
wait "$served"
[[ ! -e /var/tmp/pelmd.plugin.socket ]]
