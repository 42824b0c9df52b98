#!/usr/bin/env bash
# chaos.sh PELMSIM CONFIG PLUGIN...: a seed gives the same faults at the same frames, and the plugin is there in the end.
set -euo pipefail
simulator=$1
config=$2
shift 2

script=$(mktemp)
trap 'rm "$script"' EXIT
{
    printf 'wait active interfaces\nchaos 4 8\n'
    for mtu in {1501..1516}; do
        printf 'set /interfaces/interface[name="eth0"]/mtu %d\nwait active interfaces\n' "$mtu"
    done
    printf 'fault\nexpect contains no fault is armed\n'
    printf 'set /interfaces/interface[name="eth0"]/mtu 9000\nexpect ok\n'
} >"$script"

# In lines without their time and process: which fault struck which frame, and which one it was.
struck() {
    "$simulator" run --json --timeout 60000 --config "$config" --script "$script" -- "$@" </dev/null |
        grep '"kind":"fault"' | sed 's/"time":"[^"]*",//; s/"pid":[0-9]*,//'
}

first=$(struck "$@")
second=$(struck "$@")
[[ $(wc -l <<<"$first") == 8 && $first == "$second" ]] || {
    diff <(echo "$first") <(echo "$second")
    exit 1
}
