#!/usr/bin/env bash
# Measures all contestants in turn, round after round, and prints the medians: first with both sides
# on one CPU, then on two. Ratios are taken within a round, against the design floor. Ends with status 1
# when something that must hold does not.
#
# usage: bench/run.sh DIRECTORY-OF-PROGRAMS [--brief] [--rounds=N] [--times] [--write]
#   --brief  a second or two in all, to see that everything still runs
#   --rounds=N  instead of 21; each has fresh processes, which differ by how their memory happens to lie
#   --times  only on one CPU, and only what needs no other program than bash and awk
#   --write  also puts the tables into docs/performance.md, and what they show into docs/performance.svg
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
programs=$1
shift
rounds=21 scale=1 brief='' times='' write=''
for option in "$@"; do
    case $option in
        --brief) rounds=1 scale=200 brief=yes ;;
        --rounds=*) rounds=${option#*=} ;;
        --times) times=yes ;;
        --write) write=yes ;;
        *) sed -n 's/^# usage/usage/p' "$0" >&2; exit 2 ;;
    esac
done
# The last release of the library before messages were parsed where they stand, to compare memory with.
earlier=a8fd43a
results=$(mktemp -d)
trap 'rm -r "$results"' EXIT

# PROGRAM MODE, in the order of the tables; the loads name the lists
# shellcheck disable=SC2034
contestants=("floor raw" "floor xml" "floor copying" "floor floor" "plugin plugin" "sdbus peer"
             "sdbus bus" "libdbus peer" "libdbus bus" "zmq ipc" "netconf unix")

# shellcheck disable=SC2034
framed=("floor raw" "floor xml" "floor copying" "floor floor" "plugin plugin")
# shellcheck disable=SC2034
large=("${framed[@]}" "earlier plugin")
# LOAD REQUESTS-A-ROUND WHO
loads=("publish 2000 contestants" "asleep 200 contestants" "pull 500 framed"
       "input:1048576 10 large" "input:16777216 2 large"
       "operate:1048576 10 large" "operate:16777216 2 large")

# WHAT LOAD LIMIT: of the time of xml or floor, of the peak memory of earlier, or the number of calls
bars=("xml publish 0.88" "xml asleep 0.93" "xml pull 0.73" "xml input:1048576 1.00" "xml input:16777216 0.80"
      "xml operate:1048576 1.05" "xml operate:16777216 1.05"
      "floor publish 1.05" "floor pull 1.05" "floor input:1048576 1.05" "floor operate:1048576 1.05"
      "earlier input:16777216 0.60" "earlier operate:16777216 0.80" "calls publish 7")

# trip PROGRAM MODE LOAD COUNT CPU: one line of figures; nothing for a program that is not built
trip() {
    local program=$programs/trip_$1
    if [[ $1 == earlier ]]; then
        [[ -d $programs/earlier ]] || return 0
        LD_LIBRARY_PATH=$(realpath "$programs")/earlier/build/src/lib "$programs/trip_plugin" "$2" "$3" "$4" 0 "$5"
    elif [[ -x $program ]]; then
        "$program" "$2" "$3" "$4" 0 "$5"
    fi
}

# Builds the library as it was, where the history is at hand.
build_earlier() {
    local place
    place=$(realpath "$programs")/earlier
    [[ ! -e $place/build/src/lib/libpelmconf.so.1 ]] || return 0
    git cat-file -e "$earlier" 2>/dev/null || return 1
    rm -rf "$place"
    mkdir -p "$place/source"
    git archive "$earlier" | tar -x -C "$place/source"
    cmake -S "$place/source" -B "$place/build" -G Ninja -DPELM_TESTS=OFF -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_CXX_FLAGS_RELEASE='-O2 -g' >/dev/null
    cmake --build "$place/build" --target pelmconf >/dev/null
}

at_least_one() { echo $(($1 / scale > 0 ? $1 / scale : 1)); }

# System calls of the plugin's side, for one request: the difference again, so the start cancels.
calls() {
    local few=20 count sums=()
    [[ $3 != *:* ]] || few=2 # large ones take thousands each
    for count in $few $((2 * few)); do
        BENCH_WRAP="strace -f -c -o $results/calls" trip "$1" "$2" "$3" "$count" 0 >"$results/line"
        [[ -s $results/line ]] || return 0
        sums+=("$(awk '$NF == "total" { print $4 }' "$results/calls")")
    done
    awk -v more=$((sums[1] - sums[0])) -v few=$few 'BEGIN { printf "%.1f", more / int(few * 1.1) }'
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

# Reads "load round program mode rps p50 p99 daemon plugin peak own", prints a row of medians for each,
# and writes "load contestant time-of-floor time-of-xml calls peak" to a file.
tabulate() { # FILE
    awk -v calls_file="$results/all_calls" -v figures="$1" "$median"'
        function ratio(key, load, to,    i, list) {
            for (i = 1; i <= rounds; ++i)
                if (typical[load " floor " to, i] > 0)
                    list = list " " typical[key, i] / typical[load " floor " to, i]
            return median(list)
        }
        BEGIN {
            while ((getline line < calls_file) > 0) { split(line, f, " "); calls[f[1] " " f[2] " " f[3]] = f[4] }
            print "| load | contestant | requests/s | time / floor | / xml | p50 us | p99 us | daemon CPU us | plugin CPU us | calls | peak MiB | own MiB |"
            print "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
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
                name = part[2] == "floor" || part[2] == "plugin" ? part[3] : part[2] " (" part[3] ")"
                if (part[2] == "earlier") name = "earlier"
                of_floor = ratio(key, part[1], "floor")
                of_xml = ratio(key, part[1], "xml")
                printf "| %s | %s | %.0f | %.3f | %.3f | %.1f | %.1f | %.1f | %.1f | %s | %.2f | %.2f |\n", part[1], name,
                    median(all[key, 5]), of_floor, of_xml, median(all[key, 6]), median(all[key, 7]),
                    median(all[key, 8]), median(all[key, 9]), calls[key], median(all[key, 10]) / 1024,
                    median(all[key, 11]) / 1024
                gsub(" ", "", name)
                print part[1], name, of_floor, of_xml, calls[key] + 0, median(all[key, 10]) >figures
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

# Prints what must hold, and what was measured on one CPU. Ends with status 1 when something does not.
judge() {
    printf '%s\n' "${bars[@]}" | awk -v figures="$results/one_cpu" '
        BEGIN {
            while ((getline line < figures) > 0) {
                split(line, f, " ")
                of["floor", f[1], f[2]] = f[3]; of["xml", f[1], f[2]] = f[4]
                of["calls", f[1], f[2]] = f[5]; peak[f[1], f[2]] = f[6]
            }
            print "| load | what | at most | measured |\n|---|---|---:|---:|"
        }
        {
            what = $1 == "calls" ? "system calls" : ($1 == "earlier" ? "peak memory / " : "time / ") $1
            value = of[$1, $2, "plugin"]
            if ($1 == "earlier")
                value = peak[$2, "earlier"] > 0 ? peak[$2, "plugin"] / peak[$2, "earlier"] : 0
            is_over = value > $3
            measured = value == 0 ? "not measured" : sprintf("%.3f", value)
            printf "| %s | %s | %.2f | %s |\n", $2, what, $3, measured (is_over ? ", too much" : "")
            if (is_over) status = 1
        }
        END { exit status }'
}

report() {
    local last=$(($(nproc) > 1 ? 1 : 0)) contestant load
    for load in "${loads[@]}"; do
        declare -n who=${load##* }
        for contestant in "${who[@]}"; do
            # shellcheck disable=SC2086
            [[ -n $brief$times ]] || echo "${load%% *} $contestant $(calls $contestant "${load%% *}")"
        done
    done >"$results/all_calls"
    printf '\n%s\n' "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1), $(nproc) CPUs, Linux $(uname -r),"
    [[ -n $times ]] || echo "$(cc --version | head -1), libxml2 $(pkg-config --modversion libxml-2.0), $(date -u +%F), load $(cut -d' ' -f1 /proc/loadavg)."
    printf '\n### Both sides on one CPU\n\n'
    measure 0 | tabulate "$results/one_cpu"
    printf '\n### What must hold (one CPU)\n\n'
    judge || echo no >"$results/verdict"
    [[ -z $times ]] || return 0
    printf '\n### A CPU for each side\n\n'
    measure "$last" | tabulate "$results/two_cpus"
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
[[ -n $brief$times ]] || build_earlier || echo "bench: the library of $earlier cannot be built, so it is left out" >&2
report | tee "$results/report"
if [[ -n $write ]]; then
    sed -i -e '/^<!-- measured -->$/,/^<!-- end -->$/ { /^<!-- end -->$/! { /^<!-- measured -->$/!d } }' \
        -e "/^<!-- measured -->\$/r $results/report" docs/performance.md
    awk -f bench/picture.awk "$results/one_cpu" >docs/performance.svg
fi
if [[ -z $brief && -e $results/verdict ]]; then
    echo "bench: what must hold does not" >&2
    exit 1
fi
