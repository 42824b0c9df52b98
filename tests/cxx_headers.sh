#!/usr/bin/env bash
# cxx_headers.sh DIRECTORY COMPILER...: the C++ face of the library compiles by itself, by each compiler, as
# C++17, 20 and 23, with exceptions and without them and run-time types, and none of them warns.
set -euo pipefail
directory=$1
shift
read -ra options < <(pkg-config --cflags libxml-2.0)
options+=(-I "$directory" -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -fsyntax-only)

for compiler in "$@"; do
    for standard in c++17 c++20 c++2b; do
        for exceptions in '' '-fno-exceptions -fno-rtti'; do
            # shellcheck disable=SC2086 # none, or several words
            "$compiler" -std="$standard" $exceptions "${options[@]}" -include pelmconf.hpp -x c++ /dev/null ||
                { echo "$compiler -std=$standard $exceptions does not do" && exit 1; }
        done
    done
done
