#!/usr/bin/env bash
# Measures the private memory of an idle plugin beyond that of a process with libc and libxml2 alone,
# in KiB that cannot be dropped, three times, and fails when the median is more than 64.
#
# usage: bench/idle_memory.sh BUILD-DIRECTORY
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# private_kib NAME: of pelmsim's child with that name.
private_kib() {
    local pid
    for pid in $(<"/proc/$PPID/task/$PPID/children"); do
        [[ $(<"/proc/$pid/comm") != "$1" ]] ||
            awk '/^Private_Dirty/ { print $2 }' "/proc/$pid/smaps_rollup"
    done
}

# Run by pelmsim, beside the processes to be measured.
if [[ $1 == --beside ]]; then
    plugin=$(private_kib example_plugin)
    bare=$(private_kib bench_idle)
    echo "idle plugin $plugin KiB, libc and libxml2 alone $bare KiB, difference $((plugin - bare)) KiB"
    exit
fi

measure() {
    "$1/src/tools/pelmsim/pelmsim" run --config examples/demo.xml --script <(
        echo "wait active interfaces"
        echo "start $1/bench/bench_idle"
        echo 'wait output ready'
        echo "start $PWD/bench/idle_memory.sh --beside"
        echo 'wait exited idle_memory.sh'
        echo 'expect status 0'
    ) -- "$1/examples/example_plugin" | sed -n 's/^ *idle_memory.sh| //p'
}

for _ in 1 2 3; do measure "$1"; done | tee >(cat >&2) | awk '{ print $(NF - 1) }' | sort -n |
    awk 'NR == 2 { median = $1 } END { exit !(NR == 3 && median <= 64) }'
