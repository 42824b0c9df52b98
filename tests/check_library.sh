#!/usr/bin/env bash
# Checks a built shared library against what is written down about it:
#   check_library.sh exports NM LIBRARY LIST          it shows the names in LIST, sorted
#   check_library.sh needed READELF LIBRARY NAME...   it needs no other libraries than those named
#   check_library.sh messages OBJCOPY LIBRARY PAGE [crowded]
#                                                     it and the C++ headers can write the messages that
#                                                     PAGE explains, and no others but those that a
#                                                     sanitizer has put in
set -euo pipefail
export LC_ALL=C

check=$1 tool=$2 library=$3
shift 3

case $check in
exports)
    # Names come as NAME@@NODE; the version node itself is an absolute symbol.
    "$tool" -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort |
        diff --label "in $1" --label "shown by the library" -u <(sed 's/$/@@PELMCONF_1/' "$1") -
    ;;
needed)
    needed=$("$tool" -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    surplus=$(grep -vxF -f <(printf '%s\n' "$@") <<<"$needed" || true)
    [[ -z $surplus ]] || { echo "$library needs more than it may:" "$surplus" && exit 1; }
    ;;
messages)
    # Only read-only data: elsewhere are the names of types. What is no message there is the command
    # that deletes the log.
    texts=$(mktemp)
    trap 'rm "$texts"' EXIT
    "$tool" -O binary --only-section=.rodata "$library" "$texts"
    # In the headers' code a text may be cut by its values, and what ends with a blank is followed by one.
    in_headers=$(sed 's://.*::' "$(dirname "$0")"/../src/include/pelmconf/*.hpp | tr '\n' ' ' |
        sed -E 's:/\*([^*]|\*[^/])*\*/::g; s/static_assert\([^;]*;//g; s/" *\+[^"]*\+ *"/%s/g; s/" +"//g' |
        grep -o '"[^"]*"' | sed 's/"//g; s/ $/ %s/')
    # Each string becomes a pattern in which a value may be anything, if there are words beside it.
    patterns=$( (strings "$texts" && echo "$in_headers") | grep -v 'rm /var/log' | sort -u |
        sed -e 's/%[-.0-9*l]*[a-z]/\x01/g' -e 's/[][\.*^$]/\\&/g' -e 's/\x01/.*/g' |
        grep -i '[a-z]\{4\}.* \| .*[a-z]\{4\}')
    # shellcheck disable=SC2016 # nothing is to expand
    marks=$(grep -o '`[^`]*`' "$1" | tr -d '`') # a part of a text is explained beside it
    # shellcheck disable=SC2016
    explained=$(sed -n 's/^|\(\( `[^`]*`\)\+\) |.*/\1/p' "$1" | grep -o '`[^`]*`' | tr -d '`')
    unknown=$(grep -vxf <(echo "$patterns") <<<"$explained" || true)
    [[ -z $unknown ]] || { echo "$1 explains what neither $library nor a header ever says:" "$unknown" && exit 1; }
    # Other data may end right where a text begins, and look like a part of it.
    is_explained() {
        local before
        for before in 0 1 2 3 4; do
            ! grep -qx -- "${1:before}" <<<"$marks" || return 0
        done
        return 1
    }
    missing=$(while IFS= read -r text; do is_explained "$text" || echo "$text"; done <<<"$patterns")
    [[ ${2:-} == crowded || -z $missing ]] || { echo "$1 does not explain what $library or a header says:" "$missing" && exit 1; }
    ;;
esac
