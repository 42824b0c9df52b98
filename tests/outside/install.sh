#!/usr/bin/env bash
# install.sh BUILD: installs from there into an empty directory, then builds and runs somebody else's
# project with what it finds.
set -euo pipefail
outside=$(dirname "$0") build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flags=(-std=c99 -Wall -Wextra -Wpedantic -Werror)

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved" # nothing may hold the place it was installed to
pkgconfig=$(find "$work/moved" -name pelmconf.pc -printf %h)
export PKG_CONFIG_PATH=$pkgconfig LD_LIBRARY_PATH=$pkgconfig/..

read -ra options < <(pkg-config --cflags --libs "pelmconf >= 1.0")
cc "${flags[@]}" -o "$work/shared" "$outside/outside.c" "${options[@]}"
"$work/shared"

# By its file's name, since the shared library is there, too, and would be taken.
read -ra options < <(pkg-config --static --cflags --libs pelmconf)
cc "${flags[@]}" -o "$work/static" "$outside/outside.c" "${options[@]/#-lpelmconf/-l:libpelmconf.a}"
env -u LD_LIBRARY_PATH "$work/static"

cmake -S "$outside" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/build" >/dev/null
"$work/build/shared"
env -u LD_LIBRARY_PATH "$work/build/static"
