#!/usr/bin/env bash
# documents.sh BUILD DOCUMENT...: tries the fenced blocks of documents, in their order:
#   ```c         compiles by itself, as C99 and as C++17, without a warning
#   ```c NAME    the same, and is a file of that name for commands further down
#   ```sh        runs, up to the first command that fails, where the project's files are, pelmconf is
#                installed and pelmsim is found; what it builds stays for later blocks
#   ```... NAME  is such a file, too
# All others are only shown, and so is "```c shown" or "```sh shown".
set -euo pipefail
project=$(realpath "$(dirname "$0")/..")
build=$(realpath "$1")
mapfile -t documents < <(realpath "${@:2}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/installed" >/dev/null
PKG_CONFIG_PATH=$(find "$work/installed" -name pelmconf.pc -printf %h)
export PATH=$work/installed/bin:$PATH PKG_CONFIG_PATH LD_LIBRARY_PATH=$PKG_CONFIG_PATH/..
read -ra options < <(pkg-config --cflags pelmconf)
options+=(-Wall -Wextra -Werror -c -o /dev/null)

compiles() {
    cc -x c -std=c99 "$1" "${options[@]}" && c++ -x c++ -std=c++17 "$1" "${options[@]}"
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
    sh-*) bash -euo pipefail "$3" </dev/null ;;
    esac >"$work/said" 2>&1 || fails "the block at $4 does not do"
    [[ -z $2 ]] || cp "$3" "$2"
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
