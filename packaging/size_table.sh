#!/usr/bin/env bash
# size_table.sh FILE {TARGET TOOL-PREFIX BINARY}...: prints what each stripped library or program takes, in
# bytes, and puts the table between the markers in FILE.
set -euo pipefail

file=$1
shift
table=$(mktemp)
stripped=$(mktemp)
trap 'rm -f "$table" "$stripped"' EXIT

{
    echo '| target | text | data | bss | file |'
    echo '| --- | --: | --: | --: | --: |'
    while (($#)); do
        "$2strip" --strip-unneeded -o "$stripped" "$3"
        "$2size" "$stripped" | awk -v target="$1" -v bytes="$(stat -c %s "$stripped")" \
            'NR == 2 { printf "| %s | %d | %d | %d | %d |\n", target, $1, $2, $3, bytes }'
        shift 3
    done
} >"$table"
cat "$table"
# The goal for the device, whose row comes first.
awk -F'|' 'NR == 3 && ($3 > 43008 || $4 > 2048) { print "size_table.sh: more than 42 KiB of text or 2 KiB of data"; exit 1 }' \
    "$table" >&2
sed -i -e "/<!-- sizes -->/,/<!-- end of sizes -->/ { /<!-- sizes -->/r $table" -e '/^|/d }' "$file"
