#!/usr/bin/env bash
# test_command.sh PELMSIM: what "pelmsim test" says of scripts, and how it ends.
set -euo pipefail
simulator=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

complain() {
    printf '%s:%s: %s\n' "$0" "${BASH_LINENO[1]}" "$*"
    exit 1
}

# script NAME LINE...
script() {
    mkdir -p "$(dirname "$1")"
    printf '%s\n' "${@:2}" >"$1"
}

# run STATUS OPTION...: the command ends so.
run() {
    local wanted=$1 status=0
    shift
    output=$("$simulator" test "$@" 2>&1 </dev/null) || status=$?
    [[ $status == "$wanted" ]] || complain "expected status $wanted, got $status:" "$output"
}

# prints TEXT: it has printed just that; times, blanks at the end and how the world is made aside.
prints() {
    local tidy="/machine's own places|at work in place/d; s/ +[0-9]+\.[0-9]{2} s\b//; s/ in$//; s/ +$//"
    diff <(echo "$1") <(sed -E "$tidy" <<<"$output") ||
        complain 'something else was printed'
}

# says TEXT...: that is in it.
says() {
    local text
    for text in "$@"; do
        [[ $output == *"$text"* ]] || complain "expected \"$text\", got:" "$output"
    done
}

script passing.sim 'show /a' 'expect xml <a>1</a>'
script passing.xml '<config><a>1</a></config>'
script failing.sim 'set /a 2' "expect \\" '  ok' 'expect unheard'
script mistake.sim 'show /a' 'expect ok' 'fly away'
script folder/c.text 'fly away'
script folder/b.sim 'show' 'expect contains given'
script folder/a/d.sim 'show' 'expect ok'
script given.xml '<given/>'
mkdir empty

# Scripts have their lines in their order, and those that fail all that happened.
run 1 --config given.xml passing.sim failing.sim mistake.sim folder
prints 'ok      passing.sim       1 expectation
FAILED  failing.sim       2 expectations  1 does not hold
    failing.sim:1: set /a 2
    => unheard (no active plugin is concerned)
    failing.sim:2: expect    ok
    failing.sim:2: expected ok, got unheard (no active plugin is concerned)
    failing.sim:4: expect unheard
FAILED  mistake.sim       1 expectation  mistake.sim:3: there is no command "fly"
    mistake.sim:1: show /a
        nothing
    mistake.sim:2: expect ok
    mistake.sim:3: fly away
    pelmsim: mistake.sim:3: there is no command "fly"
ok      folder/a/d.sim    1 expectation
ok      folder/b.sim      1 expectation
5 scripts: 3 ok, 2 failed; 6 expectations'

# To change something, or just to wait for the plugin, proves nothing.
script nothing.sim 'wait active one' 'set /x 1'
run 1 nothing.sim -- test_plugin one 1
says 'nothing.sim    0 expectations' 'expects nothing'
script warned.sim 'wait active slash' 'show' 'expect ok'
run 0 warned.sim -- mistakes slash
says 'ok      warned.sim' '1 warning: see --strict'
script in_vain.sim 'wait active two 1'
run 1 in_vain.sim -- test_plugin one 1
says '1 does not hold' 'in_vain.sim:1: expected active two, got nothing within 1 ms'

# A bad end is found whoever has it: the plugin, or pelmsim itself.
script crash.sim 'wait exited plugin'
run 1 crash.sim -- bash -c "kill -SEGV \$\$"
says '1 does not hold' '    expected a good end of plugin, got signal 11'
run 1 crash.sim -- ./none
says ' s  cannot run ./none: No such file'
run 1 crash.sim -- bash -c "kill -KILL \$PPID"
says 'pelmsim ended: signal 9'

# Whatever the plugin does to pelmsim, Ctrl-C and many scripts come to an end.
script stopped.sim 'wait output none'
mkfifo stopped
"$simulator" test stopped.sim -- \
    bash -c "until kill -STOP \$PPID; do :; done; echo >stopped; sleep 600" >said 2>&1 </dev/null &
runner=$!
read -r _ <stopped
kill -INT "$runner"
wait "$runner" && complain 'it passed'
output=$(<said)
says 's  interrupted'
for i in {1..40}; do script "many/$i.sim" 'expect unheard'; done
(ulimit -n 30 && run 0 many)

# Each script has a world and a plugin of its own: the second finds nothing of the first.
script world/a.sim 'wait output made' 'status /none' 'expect unheard'
script world/b.sim 'wait output made'
run 0 world -- bash -c 'mkdir /var/tmp/made.e2e && echo made'

# What a plugin leaves behind ends with its script.
script left.sim 'wait exited plugin'
mkfifo left
"$simulator" test left.sim -- bash -c 'exec 3>left; setsid sleep 600 & sleep 600 & :' >said 2>&1 &
timeout 60 cat left || complain 'what the plugin left behind runs on'
wait $! || complain 'left.sim failed'

# What cannot be begun: nothing of it is run.
run 2
run 2 passing.sim empty
says 'pelmsim: there is no script in empty: their names end in .sim'
run 2 passing.sim none.sim
says 'pelmsim: there is no script none.sim'
run 2 folder/b.sim folder
says 'pelmsim: folder/b.sim is named twice'
run 2 --config none.xml passing.sim
says 'pelmsim: there is no file none.xml'
run 2 --here passing.sim failing.sim
says 'pelmsim: --here takes one script'
run 2 -j 0 passing.sim
[[ $("$simulator" test --help) == *SCRIPT* ]] || complain 'no help'

# Ctrl-C ends those that run, with what they have started; so does the end of the runner itself.
script long.sim 'wait output none'
mkfifo ready
begin() {
    "$simulator" test long.sim passing.sim -- \
        bash -c 'exec 3>ready; echo ready >&3; sleep 600' >said 2>&1 </dev/null &
    runner=$!
    exec {program}<ready # is open at its other end as long as the plugin lives
    read -r -u "$program" _
}
has_left_nothing() {
    local status=0
    read -r -t 60 -u "$program" _ || status=$?
    ((status == 1)) || complain 'the plugin lives on'
}
begin
kill -INT "$runner"
wait "$runner" && complain 'it passed'
has_left_nothing
output=$(<said)
says 'long.sim' 's  interrupted' '    long.sim:1: wait output none' '2 scripts: 0 ok, 1 failed, 1 not run;'
begin
kill -KILL "$runner"
wait "$runner" 2>/dev/null || true
has_left_nothing

# Several at once. In the machine's own places they would wait for each other's end.
if [[ $("$simulator" run -- true 2>&1 </dev/null) != *"machine's own places"* ]]; then
    script both/a.sim "start bash -c 'until [ -e met ]; do :; done; echo met'" 'wait output met'
    script both/b.sim "start bash -c 'touch met; echo met'" 'wait output met'
    run 0 -j 2 both
    prints 'ok      both/a.sim    1 expectation
ok      both/b.sim    1 expectation
2 scripts: 2 ok, 0 failed; 2 expectations'
fi
