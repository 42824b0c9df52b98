#!/usr/bin/env bash
# Compares the most memory that a plugin's process ever has resident with the design floor's, over many
# starts: the kernel places libraries anew at each, and maps more or fewer pages around those used.
# Prints a table, and fails when a plugin takes more than 0.25 MiB beyond the floor: 0.2 are its due,
# and kernels differ in what they map.
#
# usage: bench/peak_memory.sh DIRECTORY-OF-PROGRAMS STARTS LOAD...
set -euo pipefail
programs=$1 starts=$2
shift 2

# peaks LOAD: "floor PEAK OWN" and "plugin PEAK OWN" in KiB, in turn; OWN is without program files
peaks() {
    local start who count=20
    [[ $1 != operate:* ]] || count=2
    for ((start = 0; start < starts; ++start)); do
        for who in floor plugin; do
            "$programs/trip_$who" "$who" "$1" "$count" 0 0 | awk -v who="$who" '{ print who, $6, $7 }'
        done
    done
}

echo "| load | floor's peak MiB | plugin's peak MiB | difference | of that its own |"
echo "|---|---:|---:|---:|---:|"
status=0
for load in "$@"; do
    peaks "$load" | sort -n -k 2 | awk -v load="$load" '
        { peak[$1, ++count[$1]] = $2; own[$1] += $3 }
        function median(who) {
            return (peak[who, int((count[who] + 1) / 2)] + peak[who, int(count[who] / 2) + 1]) / 2
        }
        END {
            more = (median("plugin") - median("floor")) / 1024
            printf "| %s | %.2f | %.2f | %+.2f | %+.2f |\n", load, median("floor") / 1024,
                median("plugin") / 1024, more, (own["plugin"] - own["floor"]) / count["floor"] / 1024
            exit more > 0.25
        }' || status=1
done
exit $status
