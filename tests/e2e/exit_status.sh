#!/usr/bin/env bash
# exit_status.sh PELMSIM DIRECTORY: what scripts that go wrong say, and the status they end with.
set -euo pipefail
cd "$2"

# ends STATUS TEXT COMMAND...: the command ends so and prints a line with that text.
ends() {
    local wanted=$1 text=$2 status=0 output
    shift 2
    output=$("$@" 2>&1 </dev/null) || status=$?
    [[ $status == "$wanted" && $output == *"$text"* ]] && return
    printf 'expected status %s and "%s", got %s:\n%s\n' "$wanted" "$text" "$status" "$output"
    exit 1
}

ends 1 'no plugin oen is connected: did you mean one?' "$1" run \
    --script <(printf '%s\n' 'wait active one' 'wait active oen 1') -- test_plugin one 1
ends 1 'wrong.sim:3: expected error 7 (text), got unheard' "$1" run --script wrong.sim
ends 1 'wrong.sim:6: expected contains "nothing at all", got "nothing"' "$1" run --script wrong.sim
ends 0 'ended: status 3' "$1" run --script <(echo wait output ready) -- \
    bash -c 'trap "exit 3" TERM; echo ready; sleep 60 & wait'
ends 1 'expected status 4, got status 3' "$1" run --script \
    <(printf '%s\n' "start bash -c 'exit 3'" 'wait exited bash' 'expect status 4')
ends 1 'expected a good end of echo, got 1==ERROR: AddressSanitizer: ' "$1" run --script \
    <(printf '%s\n' "start echo '1==ERROR: AddressSanitizer: '" 'wait exited echo')
# A plugin that ends when it is hung up on is not ended by a signal.
ends 0 'ended: status 0' "$1" run --script <(echo wait output active) -- test_plugin x 1
ends 1 'expected recovery one ok, got error 5 (refused <as> told)' \
    "$1" run --config one.xml --script <(echo wait active one) -- test_plugin one 1 1
ends 1 'expected no warning of slash, got the path of status_cbs[0] does not begin with a slash' \
    "$1" run --strict --script <(echo wait active slash) -- mistakes slash
ends 0 'warning: the path of status_cbs[0]' \
    "$1" run --script <(echo wait active slash) -- mistakes slash
ends 0 '2 commands, 1 expectation: all hold; 1 warning, 1 expected' \
    "$1" run --strict --script <(printf '%s\n' 'wait active slash' 'expect warning') -- mistakes slash
ends 2 'one.xml:1: there is no command "<?xml"' "$1" run --script one.xml
ends 2 'cannot read /proc/self/mem: Input/output error' \
    "$1" run --script <(echo load /proc/self/mem)
# The world of a plugin is private: what it leaves in these places goes with it, and what the machine
# holds there is hidden, unless the machine's own places have to do.
ends 0 '' "$1" run -- touch /mnt/made.e2e /var/tmp/made.e2e /var/log/made.e2e
ends 2 '' ls -d {/mnt,/var/tmp,/var/log}/made.e2e
[[ $("$1" run -- true 2>&1 </dev/null) == *"machine's own places"* ]] ||
    ends 0 '' "$1" run --script <(printf '%s\n' 'wait exited plugin' 'expect status 0') -- \
        find /mnt /var/log -type f ! -name pelmd.conf -exec false '{}' +
ends 2 '--timeout: Value 0 not in range' "$1" run --timeout 0 -- true
ends 2 ':1: "mod" is not a data path: it does not begin with a slash' \
    "$1" run --script <(echo publish mod 1)
ends 2 ' is not a data path: it has more than 256 steps' \
    "$1" run --script <(printf 'publish %s mod\n' "$(printf '/a%.0s' {1..257})")
# A program that never stops printing keeps nothing else from its turn.
ends 0 '' "$1" run --script <(printf '%s\n' 'start yes' 'wait output y')
ends 0 'pelmsim 1.' "$1" --version
ends 0 '2 commands, 1 expectation: all hold' "$1" run --script <(printf '%s\n' show 'expect ok')
ends 1 '1 command, 1 expectation: 1 does not hold' "$1" run --script <(echo 'expect error')
ends 0 '10000' "$1" run --help
ends 0 'The daemon hung up' "$1" explain An error epoll event 'occur(0x2015).'
ends 1 'nothing is known of "publishng": did you mean Publishing?' "$1" explain publishng
print_to_full_disk() { "$1" --version >/dev/full; }
ends 2 'not all of the output could be written' print_to_full_disk "$1"
