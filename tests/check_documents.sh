#!/usr/bin/env bash
# Checks what documents name against what there is:
#   check_documents.sh tests PAGE         each `Suite.Name` in the page is a test
#   check_documents.sh commands PELMSIM   the manual and the completions have the commands and options
#                                         of its --help, and no others
#   check_documents.sh manuals MANDOC     mandoc has nothing to say of the manual pages
set -euo pipefail
export LC_ALL=C
project=$(dirname "$0")/..
manuals=$project/docs/man
completion=$project/src/tools/pelmsim/completion

check=$1 what=$2

# no_more A B TEXT: the lines of A that B lacks are a failure
no_more() {
    local surplus
    surplus=$(comm -23 <(sort -u <<<"$1") <(sort -u <<<"$2"))
    [[ -z $surplus ]] || { echo "$3:" "$surplus" && exit 1; }
}

same() {
    no_more "$1" "$2" "$3 lacks"
    no_more "$2" "$1" "$3 has what is not there"
}

# options [COMMAND]
options() { "$what" "$@" --help | sed -nE 's/^  (-[a-z], *|        )?(--[a-z-]+).*/\2/p'; }

# What a key offers behind pelmsim and these words.
by_bash() {
    COMP_WORDS=(pelmsim "$@") COMP_CWORD=$#
    _pelmsim "$what" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    printf '%s\n' "${COMPREPLY[@]}"
}

by_zsh() {
    # shellcheck disable=SC2016 # for the other shell
    zsh -fc '_call_program() { shift && "$@" }
             _describe() { print -rl -- ${(@P)2%%:*} }
             complete_words() { . $completion }
             completion=$1 && shift && words=("$@") && CURRENT=$# && complete_words' \
        zsh "$completion/_pelmsim" "$what" "$@"
}

case $check in
tests)
    # shellcheck disable=SC2016 # nothing is to expand
    named=$(grep -oE '`[A-Z][A-Za-z]+\.[A-Z][A-Za-z]+`' "$what" | tr -d '`')
    there=$(sed -nE 's/^TEST(_F|_P)?\((\w+), (\w+)\).*/\2.\3/p' "$project"/tests/*_test.cpp)
    no_more "$named" "$there" "$what names tests that there are not"
    ;;
commands)
    # shellcheck source=/dev/null
    . "$completion/pelmsim.bash"
    offers=(by_bash)
    ! command -v zsh >/dev/null || offers+=(by_zsh)
    commands=$("$what" --help | sed -nE '1,/^(Subcommands|SUBCOMMANDS)/d; s/^  ([a-z]+) .*/\1/p')
    same "$commands" "$(sed -nE 's/^\.It Cm ([a-z]+)$/\1/p' "$manuals/pelmsim.1")" pelmsim.1
    all=$(options)
    for offer in "${offers[@]}"; do
        same "$commands"$'\n'"$all" "$($offer '')" "$offer"
        for each in $commands; do
            same "$(options "$each")" "$($offer "$each" --)" "$offer $each"
        done
    done
    for each in $commands; do
        all+=$'\n'$(options "$each")
    done
    same "$all" "$(grep -oE 'Fl -[a-z]+(-[a-z]+)*' "$manuals/pelmsim.1" | sed 's/Fl -/--/')" pelmsim.1
    ;;
manuals)
    no_more "$(cd "$manuals" && "$what" -Tlint ./*.[0-9])" '' 'manual pages'
    ;;
esac
