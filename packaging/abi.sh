#!/usr/bin/env bash
# abi.sh write BASELINE LIBRARY   describes the binary interface of LIBRARY
# abi.sh check BASELINE LIBRARY   fails when programs built against BASELINE would not run with LIBRARY
set -euo pipefail

case $1 in
write)
    headers=$(dirname "$0")/../src/include
    # Without the places of this machine and what stays inside the library.
    abidw --no-show-locs --no-comp-dir-path --no-corpus-path --no-elf-needed --drop-undefined-syms \
        --drop-private-types --exported-interfaces-only --headers-dir "$headers" "$3" |
        sed -e "/^    <namespace-decl name='conf'>/,/^    <\/namespace-decl>/d" \
            -e "s| path='[^']*/src/lib/| path='|" >"$2"
    ;;
check)
    abidiff --no-added-syms "$2" "$3"
    ;;
esac
