#!/usr/bin/env bash
# faults_that_last.sh PELMSIM CONFIG PLUGIN...: what comes of faults that the plugin's library waits for,
# 15 s or 30 s, each beside the others.
set -euo pipefail
simulator=$1
config=$2
shift 2
plugin=("$@")

work=$(mktemp -d)
trap 'rm -r "$work"' EXIT

# lasts NAME LINES: begins a run of those lines, and then the plugin is to be there as ever.
lasts() {
    {
        printf 'wait active interfaces\n%s\ntimeout 60000\n' "$2"
        printf 'wait active interfaces\nset /interfaces/interface[name="eth0"]/mtu 9000\nexpect ok\n'
    } >"$work/$1.sim"
    "$simulator" run --timeout 60000 --config "$config" --script "$work/$1.sim" -- "${plugin[@]}" \
        >"$work/$1.out" 2>&1 </dev/null &
    runs[$!]=$1
}
declare -A runs
change='set /interfaces/interface[name="eth0"]/mtu 1501'
fails='expect error -1 Service process failed.
expect log Epoll wait failed(timeout).'

lasts nothing "fault nothing answer pull
timeout 1000
$change
expect no-answer time-out
kickoff interfaces
expect no-answer time-out
expect within 40000 log Epoll wait failed(timeout)."
lasts wrong-id "fault wrong-id answer pull
$change
$fails"
lasts delay "fault delay 32000 answer pull
$change
$fails"
lasts closed "fault closed answer pull
$change
expect no-answer pelmsim hung up
expect within 40000 log Epoll wait failed(timeout).
expect log Plugin interfaces register to pelmd failed.
fault off"

# Answers until there is no room for another one.
answers=$(for _ in {1..600}; do echo 'status /interfaces/state'; done)
lasts deaf "fault deaf request
timeout 1
$answers
expect within 30000 log Send reply message to pelmd failed.
fault off"

failed=0
for run in "${!runs[@]}"; do
    wait "$run" || { failed=1 && echo "${runs[$run]}:" && tail -40 "$work/${runs[$run]}.out"; }
done
grep -q "own limit of 30 s has ended that" "$work/nothing.out" || {
    failed=1 && echo "nobody says why it has waited no longer"
}
exit "$failed"
