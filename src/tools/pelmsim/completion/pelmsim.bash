# Completion of pelmsim for bash. Which words there are, its --help says.

_pelmsim() {
    local program=$1 word=$2 before=$3 command='' at words=()
    COMPREPLY=()
    for ((at = 1; at < COMP_CWORD; ++at)); do
        if [[ ${COMP_WORDS[at]} == -- ]]; then # a plugin, and what it takes
            mapfile -t COMPREPLY < <(compgen -c -- "$word" && compgen -f -- "$word")
            return
        fi
        [[ -n $command || ${COMP_WORDS[at]} == -* ]] || command=${COMP_WORDS[at]}
    done
    if [[ $command-$before == @(run|test|serve|tap)-@(--config|--script|--deployment|--record) ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    elif [[ $before == --working-dir ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
    elif [[ -n $command && $word != -* ]]; then
        [[ $command == @(test|show) ]] || return
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    else
        mapfile -t words < <("${program/#\~/$HOME}" ${command:+"$command"} --help 2>/dev/null |
            sed -nE -e 's/^  (-[a-z], *|        )?(--[a-z-]+).*/\2/p' -e 's/^  ([a-z]+)  +[A-Z].*/\1/p' |
            if [[ -n $command ]]; then grep -- '^--'; else cat; fi)
        mapfile -t COMPREPLY < <(compgen -W "${words[*]}" -- "$word")
    fi
}
complete -F _pelmsim pelmsim
