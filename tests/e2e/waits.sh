#!/usr/bin/env bash
# waits.sh PELMSIM: what waits that are in vain say of a plugin that got stuck.
set -euo pipefail
simulator=$1

# run LINE...: what comes of these, with the status in the end.
run() {
    local status=0
    output=$("$simulator" run --timeout 30000 --script <(printf '%s\n' "$@") 2>&1 </dev/null) ||
        status=$?
    output+=$'\n'"status $status"
}

# says PATTERN...: there is such a line each time, behind the one before.
says() {
    local pattern line rest=$output
    for pattern in "$@"; do
        if ! line=$(grep -nE -m 1 -e "$pattern" <<<"$rest"); then
            printf '%s:%s: expected "%s" in:\n%s\n' \
                "$0" "${BASH_LINENO[0]}" "$pattern" "$output"
            exit 1
        fi
        rest=$(tail -n "+$((${line%%:*} + 1))" <<<"$rest")
    done
}

# Some machines show neither calls nor who holds a socket.
asleep_in() { echo "process [0-9]+ \\(stuck\\) is asleep in $1\$"; }
cat "/proc/$PPID/syscall" >/dev/null 2>&1 ||
    asleep_in() { echo 'process [0-9]+ \(stuck\) is asleep'; }
held='its connection is held open by (process [0-9]+ \(stuck\), asleep|another one, which)'

begin='start stuck
wait active stuck'

run 'start stuck early' 'wait registered stuck' 'wait active stuck 300' 'wait active nobody 1' \
    'wait output nothing 1' 'stop stuck' 'wait output more 1'
says 'expected active stuck, got nothing within 300 ms' \
    'the limit, 300 ms, stands in the line' 'stuck is registered, but not active' \
    'it has last asked register stuck, .* ago' "$(asleep_in read)" \
    'no plugin nobody is connected' "stuck: $(asleep_in read)" \
    'the limit, 1 ms, stands' "stuck: $(asleep_in read)" \
    'stuck: ended, signal 15' 'status 1'

# A callback that does not return, and the request behind it.
run "$begin" 'timeout 1000' 'operate /stuck <sleep/>' 'operate /stuck <sleep/>' 'stop stuck'
says 'operate /stuck: no answer \(time-out\)' \
    'the limit, 1.0 s, is that of --timeout or the command timeout' \
    'stuck has read the request, so its callback has been open for [0-9.]+ s at most' \
    "$(asleep_in "(clock_)?nanosleep")" \
    'stuck has not read the request' "$(asleep_in "(clock_)?nanosleep")" 'status 0'

# SIGTERM ends it only after it goes on.
run "$begin" 'timeout 1000' 'operate /stuck <stop/>' \
    "start bash -c 'kill -CONT \$(cat /var/tmp/stuck)'" 'stop stuck'
says 'process [0-9]+ \(stuck\) is stopped by a signal$' 'status 0'

# It waits for an answer that it is not given, and drops what comes meanwhile.
run "$begin" 'answer pull nothing' 'timeout 1000' 'operate /stuck <pull/>' 'kickoff stuck' \
    'timeline 3' 'stop stuck'
says 'its callback has been open' 'it has asked pull /a meanwhile, .* later, which nobody answers' \
    'stuck was waiting for an answer to pull /a already: its library drops' \
    '--- stuck +operate /stuck: no answer \(time-out\) +#1 \([0-9.]+ ms\)$' \
    '--x stuck +kickoff, dropped: the plugin waits for an answer to pull /a.* #2$' \
    '--- stuck +kickoff: no answer \(time-out\) +#2' 'status 0'

# The process has gone, but its child holds the connection.
run "$begin" 'timeout 300' 'operate /stuck <leave/>' 'wait output alone 30000' 'kickoff' plugins \
    'expect lacks active' 'wait closed stuck 1'
says '> kickoff: no answer \(time-out\)' \
    "process [0-9]+ is gone; $held" "^    stuck .* gone; $held" \
    'expected closed stuck, got nothing within 1 ms' 'stuck is gone$' 'status 1'

# So it does while the process is there. Who that is, and who has children, some machines do not tell.
if [[ $output != *'another one, which'* && -e /proc/$$/task/$$/children ]]; then
    run 'start mistakes share' 'expect within 30000 warning which it has forked, holds its connection, too'
    says 'all hold; 1 warning, 1 expected' 'status 0'
fi

# What comes in one piece with an answer lies there until the plugin looks.
run 'joined on' 'start test_plugin late 1 0 late' 'wait active late' 'timeout 300' kickoff
says 'kickoff: no answer \(time-out\)' 'late has read the request' \
    'or the request has come together with an answer: .* until econf_plugin_run\(\) is called' 'status 0'

# A notification has come before it goes on.
run 'start example_agent' 'wait output subscribeNotification' 'start example_notify alarm hot' \
    'wait exited example_notify' timeline
says '<-- agent root +get-capability: data$' '<-- notifier +notification, passed on to 1 agents' \
    '--> agent root +notification$' 'status 0'

# It takes a second for its answer; while it is traced, no limit ends that. Some machines allow none.
run 'start stuck debugged' 'wait active stuck' 'timeout 1' 'operate /stuck <doze/>' \
    'operate /stuck <doze/>' 'timeout 30000' 'stop stuck'
if [[ $output == *'| may not be traced'* ]]; then
    says 'operate /stuck: no answer \(time-out\)'
else
    says 'a debugger, process [0-9]+, is at work on process [0-9]+: no limit' \
        'operate /stuck: ok' 'operate /stuck: ok' 'status 0'
    if [[ $output == *debugger*debugger* ]]; then
        says 'this once'
    fi
fi
