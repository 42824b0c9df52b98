#!/usr/bin/env bash
# Instructions that the plugin's process spends on one request, counted by valgrind, and compared with
# bench/instructions.txt: 2 % more is too much. They depend on the code, the compiler and libxml2, but
# not on the machine's mood.
#
# usage: bench/instructions.sh DIRECTORY-OF-PROGRAMS [--update]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
programs=$1
table=bench/instructions.txt
counts=$(mktemp -d)
trap 'rm -r "$counts"' EXIT

# total NAME COUNT: instructions of the whole process
total() {
    local out=$counts/out
    local valgrind="valgrind --tool=callgrind --callgrind-out-file=$out"
    case $1 in
        parse) $valgrind "$programs/bench_parse" "$2" ;;
        *) BENCH_WRAP=$valgrind "$programs/trip_plugin" plugin "$1" "$2" 0 0 ;;
    esac >"$counts/log" 2>&1 || { cat "$counts/log" >&2; exit 1; }
    sed -n 's/^totals: //p' "$out"
}
# per_request NAME: what so many requests take beyond half as many, so that the start does not count
per_request() {
    local more=220 # a tenth is added to warm up
    [[ $1 != parse ]] || more=200
    echo $((($(total "$1" 400) - $(total "$1" 200)) / more))
}

versions="$(cc --version | head -1), $(uname -m), libxml2 $(pkg-config --modversion libxml-2.0)"
measured=$(for name in publish pull parse; do echo "$name $(per_request "$name")"; done)
if [[ ${2:-} == --update ]]; then
    printf '# %s\n%s\n' "$versions" "$measured" | tee $table
    exit
fi
if [[ $(head -1 $table) != "# $versions" ]]; then
    echo "SKIPPED: $table was made with $(head -1 $table | cut -c3-), and this is $versions" >&2
    echo "$measured"
    exit
fi
while read -r name now <&3; do
    before=$(sed -n "s/^$name //p" $table)
    awk -v name="$name" -v before="$before" -v now="$now" 'BEGIN {
        printf "%-8s %9d instructions, %+.2f %%\n", name, now, (now / before - 1) * 100
        exit now > before * 1.02 }' || { echo "$name takes more than the table says" >&2; exit 1; }
done 3<<<"$measured"
