#!/usr/bin/env bash
# Checks what documents name against what there is:
#   check_documents.sh tests PAGE    each `Suite.Name` in the page is a test
set -euo pipefail
export LC_ALL=C
tests=$(dirname "$0")

check=$1
shift

# only_first A B: the lines of A that B lacks are a failure of the page
only_first() {
    local surplus
    surplus=$(comm -23 <(sort -u <<<"$1") <(sort -u <<<"$2"))
    [[ -z $surplus ]] || { echo "$3:" "$surplus" && exit 1; }
}

case $check in
tests)
    # shellcheck disable=SC2016 # nothing is to expand
    named=$(grep -oE '`[A-Z][A-Za-z]+\.[A-Z][A-Za-z]+`' "$1" | tr -d '`')
    there=$(sed -nE 's/^TEST(_F|_P)?\((\w+), (\w+)\).*/\2.\3/p' "$tests"/*_test.cpp)
    only_first "$named" "$there" "$1 names tests that there are not"
    ;;
esac
