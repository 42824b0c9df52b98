#!/usr/bin/env bash
# Measures all contestants in turn, round after round, and prints the medians: first with both sides
# on one CPU, then on two. Ratios are taken within a round, against the design floor.
#
# usage: bench/run.sh DIRECTORY-OF-PROGRAMS [--brief] [--rounds=N] [--write]
#   --brief  a second or two in all, to see that everything still runs
#   --rounds=N  instead of 21; each has fresh processes, which differ by how their memory happens to lie
#   --write  also puts the tables into docs/performance.md
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
programs=$1
shift
rounds=21 scale=1 brief='' write=''
for option in "$@"; do
    case $option in
        --brief) rounds=1 scale=200 brief=yes ;;
        --rounds=*) rounds=${option#*=} ;;
        --write) write=yes ;;
        *) sed -n 's/^# usage/usage/p' "$0" >&2; exit 2 ;;
    esac
done
results=$(mktemp -d)
trap 'rm -r "$results"' EXIT

# PROGRAM MODE, in the order of the tables; the loads name the lists
# shellcheck disable=SC2034
contestants=("floor raw" "floor xml" "floor floor" "plugin plugin" "sdbus peer" "sdbus bus"
             "libdbus peer" "libdbus bus" "zmq ipc" "netconf unix")

# shellcheck disable=SC2034
framed=("floor raw" "floor xml" "floor floor" "plugin plugin")
# LOAD REQUESTS-A-ROUND WHO
loads=("publish 2000 contestants" "asleep 200 contestants" "pull 500 framed"
       "operate:1048576 10 framed" "operate:16777216 2 framed")

# trip PROGRAM MODE LOAD COUNT CPU: one line of figures; nothing for a peer that is not built
trip() { [[ ! -x $programs/trip_$1 ]] || "$programs/trip_$1" "$2" "$3" "$4" 0 "$5"; }

at_least_one() { echo $(($1 / scale > 0 ? $1 / scale : 1)); }

# System calls of the plugin's side, for one request: the difference again, so the start cancels.
calls() {
    local count sums=()
    for count in 20 40; do
        BENCH_WRAP="strace -f -c -o $results/calls" trip "$1" "$2" "$3" "$count" 0 >"$results/line"
        [[ -s $results/line ]] || return 0
        sums+=("$(awk '$NF == "total" { print $4 }' "$results/calls")")
    done
    awk -v more=$((sums[1] - sums[0])) 'BEGIN { printf "%.1f", more / 22 }'
}

measure() { # CPU-OF-PLUGIN
    local load round who name count list
    for load in "${loads[@]}"; do
        read -r name count list <<<"$load"
        declare -n who=$list
        for ((round = 1; round <= rounds; ++round)); do
            for contestant in "${who[@]}"; do
                # shellcheck disable=SC2086 # a program and its mode
                trip $contestant "$name" "$(at_least_one "$count")" "$1" |
                    sed "s/^/$name $round $contestant /"
            done
        done
    done
}

# For awk: the median of values in a string.
# shellcheck disable=SC2016 # awk's, not the shell's
median='function median(list, values, n, i, j, t) {
    n = split(list, values, " ")
    for (i = 2; i <= n; ++i)
        for (j = i; j > 1 && values[j - 1] + 0 > values[j] + 0; --j) {
            t = values[j]; values[j] = values[j - 1]; values[j - 1] = t
        }
    return n % 2 ? values[(n + 1) / 2] : (values[n / 2] + values[n / 2 + 1]) / 2
}'

# Reads "load round program mode rps p50 p99 daemon plugin peak own", prints a row of medians for each.
tabulate() {
    awk -v calls_file="$results/all_calls" "$median"'
        BEGIN {
            while ((getline line < calls_file) > 0) { split(line, f, " "); calls[f[1] " " f[2] " " f[3]] = f[4] }
            print "| load | contestant | requests/s | time / floor | p50 us | p99 us | daemon CPU us | plugin CPU us | calls | peak MiB | own MiB |"
            print "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
        }
        {
            key = $1 " " $3 " " $4
            if (!(key in seen)) { order[++rows] = key; seen[key] = 1 }
            for (i = 5; i <= 11; ++i) all[key, i] = all[key, i] " " $i
            typical[key, $2] = $6
            if ($2 > rounds) rounds = $2
        }
        END {
            for (r = 1; r <= rows; ++r) {
                key = order[r]
                split(key, part, " ")
                ratios = ""
                for (i = 1; i <= rounds; ++i)
                    if (typical[part[1] " floor floor", i] > 0)
                        ratios = ratios " " typical[key, i] / typical[part[1] " floor floor", i]
                name = part[2] == "floor" || part[2] == "plugin" ? part[3] : part[2] " (" part[3] ")"
                printf "| %s | %s | %.0f | %.3f | %.1f | %.1f | %.1f | %.1f | %s | %.2f | %.2f |\n", part[1], name,
                    median(all[key, 5]), median(ratios), median(all[key, 6]), median(all[key, 7]),
                    median(all[key, 8]), median(all[key, 9]), calls[key], median(all[key, 10]) / 1024,
                    median(all[key, 11]) / 1024
            }
        }'
}

# What one request costs as it grows, as the callbacks become many, and as time goes by.
flatness() {
    local round size who name count
    for ((round = 0; round < (rounds + 2) / 3; ++round)); do
        for size in 1024 16384 262144 4194304 67108864; do
            [[ -z $brief || $size -lt 1000000 ]] || continue
            for who in plugin floor; do
                trip "$who" "$who" "operate:$size" \
                    "$(at_least_one $((size < 40000 ? 500 : 20000000 / size + 1)))" 0 |
                    sed "s/^/$size $who /"
            done
        done
    done | awk "$median"'
        BEGIN { print "| operation | ns per byte | of the floor |\n|---|---:|---:|" }
        {
            if (!($1 in cost)) { order[++rows] = $1; cost[$1] = "" }
            if ($2 == "plugin") cost[$1] = cost[$1] " " 1e9 / $3 / $1; else floor[$1] = floor[$1] " " 1e9 / $3 / $1
        }
        END {
            for (r = 1; r <= rows; ++r)
                printf "| %d bytes | %.2f | %.2f |\n", order[r], median(cost[order[r]]), median(floor[order[r]])
        }'
    echo
    for ((round = 0; round < rounds; ++round)); do
        for name in plugin plugin:10000; do
            trip plugin $name publish "$(at_least_one 2000)" 0 | sed "s/^/$name /"
        done
    done | awk "$median"'
        BEGIN { print "| publish | us |\n|---|---:|" }
        { cost[$1] = cost[$1] " " 1e6 / $2 }
        END {
            printf "| two callbacks | %.2f |\n", median(cost["plugin"])
            printf "| 10,000 callbacks more | %.2f |\n", median(cost["plugin:10000"])
        }'
    count=$(at_least_one 1000000)
    trip plugin plugin publish "$count" 0 |
        awk -v count="$count" '{ printf "| two callbacks, %d requests in a row | %.2f |\n", count, 1e6 / $1 }'
}

report() {
    local last=$(($(nproc) > 1 ? 1 : 0)) contestant load
    for load in "${loads[@]}"; do
        declare -n who=${load##* }
        for contestant in "${who[@]}"; do
            # shellcheck disable=SC2086
            [[ -n $brief ]] || echo "${load%% *} $contestant $(calls $contestant "${load%% *}")"
        done
    done >"$results/all_calls"
    printf '\n%s\n' "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(nproc) CPUs, Linux $(uname -r),"
    echo "$(cc --version | head -1), libxml2 $(pkg-config --modversion libxml-2.0), $(date -u +%F), load $(cut -d' ' -f1 /proc/loadavg)."
    printf '\n### Both sides on one CPU\n\n'
    measure 0 | tabulate
    printf '\n### A CPU for each side\n\n'
    measure "$last" | tabulate
    printf '\n### Flatness (one CPU)\n\n'
    flatness
    printf '\n### Peak memory (one CPU)\n\n'
    bench/peak_memory.sh "$programs" "$(at_least_one 101)" publish pull operate:1048576 ||
        [[ -n $brief ]] || echo "bench: more peak memory than the floor by a quarter MiB" >&2
    printf '\n### Pieces\n\n```\n'
    "$programs/../src/tools/pelmworld/pelmworld" -- "$programs/bench_micro" ${brief:+--benchmark_min_time=0.001} 2>/dev/null
    printf '```\n'
}

for peer in sdbus libdbus zmq netconf; do
    [[ -x $programs/trip_$peer ]] || echo "bench: $peer is not installed, so it is left out" >&2
done
report | tee "$results/report"
if [[ -n $write ]]; then
    sed -i -e '/^<!-- measured -->$/,/^<!-- end -->$/ { /^<!-- end -->$/! { /^<!-- measured -->$/!d } }' \
        -e "/^<!-- measured -->\$/r $results/report" docs/performance.md
fi
