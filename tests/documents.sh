#!/usr/bin/env bash
# documents.sh BUILD DOCUMENT...: tries the fenced blocks of documents, in their order:
#   ```c         compiles by itself, as C99 and as C++17, without a warning
#   ```c NAME    the same, and is a file of that name for commands further down
#   ```cpp, ```cpp NAME  the same in C++17
#   ```sh        runs, up to the first command that fails, where the project's files are, pelmconf is
#                installed and pelmsim is found; what it builds stays for later blocks
#   ```sh fails  the same, and ends with a command that fails
#   ```text said  these lines stand, in this order, in what the commands before have printed; times are any
#   ```diff NAME  changes that file: the lines with a blank or "-" stand there just once, and those with a
#                blank or "+" take their place
#   ```... NAME  is such a file, too
# All others are only shown, and so is "```c shown", "```cpp shown" or "```sh shown". Commands that change
# to another folder do so for those further down.
set -euo pipefail
project=$(realpath "$(dirname "$0")/..")
build=$(realpath "$1")
mapfile -t documents < <(realpath "${@:2}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/installed" >/dev/null
PKG_CONFIG_PATH=$(find "$work/installed" -name pelmconf.pc -printf %h)
export PATH=$work/installed/bin:$PATH PKG_CONFIG_PATH LD_LIBRARY_PATH=$PKG_CONFIG_PATH/..
export CMAKE_PREFIX_PATH=$work/installed
read -ra options < <(pkg-config --cflags pelmconf)
options+=(-Wall -Wextra -Werror -c -o /dev/null)

compiles() {
    cc -x c -std=c99 "$1" "${options[@]}" && compiles_as_cxx "$1"
}

compiles_as_cxx() {
    c++ -x c++ -std=c++17 "$1" "${options[@]}"
}

# runs FILE: where the one before has ended
runs() {
    local status=0
    # shellcheck disable=SC2016 # the inner shell fills these in
    bash -euo pipefail -c 'trap "pwd >$0" EXIT && . "$1"' "$work/folder" "$1" \
        </dev/null >"$work/printed" 2>&1 || status=$?
    cat "$work/printed"
    cd "$(<"$work/folder")"
    return "$status"
}

# was_said FILE
was_said() {
    awk 'function timeless(line) {
             gsub(/[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\.[0-9]+/, "TIME", line)
             gsub(/ *[0-9]+\.[0-9]+ (ms|sec)/, " TIME", line)
             return line
         }
         NR == FNR { lines[++count] = timeless($0); next }
         met < count && index(timeless($0), lines[met + 1]) { ++met }
         END { if (met < count) { print "not said: " lines[met + 1]; exit 1 } }' "$1" "$work/printed"
}

# changes NAME FILE
changes() {
    local old new text before
    old=$(sed -n -e '/^$/p' -e 's/^[ -]//p' "$2")
    new=$(sed -n -e '/^$/p' -e 's/^[ +]//p' "$2")
    text=$(<"$1")
    before=${text/"$old"*/}
    [[ $before != "$text" && ${text#"$before$old"} != *"$old"* ]] || return
    printf '%s\n' "$before$new${text#"$before$old"}" >"$1"
}

fails() {
    cat "$work/said"
    echo "documents.sh: $1"
    failed=1
}

# try_block LANGUAGE NAME FILE PLACE
try_block() {
    case $1-$2 in
    *-shown) return ;;
    c-*) compiles "$3" ;;
    cpp-*) compiles_as_cxx "$3" ;;
    sh-fails) ! runs "$3" ;;
    sh-*) runs "$3" ;;
    text-said) was_said "$3" ;;
    diff-*) changes "$2" "$3" ;;
    esac >"$work/said" 2>&1 || fails "the block at $4 does not do"
    case $1-$2 in
    *- | sh-fails | text-said | diff-*) ;;
    *) cp "$3" "$2" ;;
    esac
}

try_document() {
    local line language='' name='' block=$work/block number=0 first=0
    while IFS= read -r line; do
        number=$((number + 1))
        if ((first)) && [[ $line == '```' ]]; then
            try_block "$language" "$name" "$block" "$1:$first"
            first=0
        elif ((first)); then
            printf '%s\n' "$line" >>"$block"
        elif [[ $line == '```'* ]]; then
            read -r language name <<<"${line#\`\`\`}"
            first=$number
            truncate --size 0 "$block" "$work/said"
        fi
    done <"$1"
    ((!first)) || fails "the block at $1:$first has no end"
}

failed=0
for document in "${documents[@]}"; do
    mkdir "$work/place" && cd "$work/place"
    ln -s "$project"/* .
    rm -f build
    try_document "$document"
    cd / && rm -rf "$work/place"
done
exit "$failed"
