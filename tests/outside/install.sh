#!/usr/bin/env bash
# install.sh BUILD: installs from there into an empty directory, then builds and runs an example with
# what it finds there, as somebody else's project. Or install.sh PACKAGE...: unpacks them there.
set -euo pipefail
outside=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Without arguments the example says how to use it, provided that it finds its libraries.
runs() { [[ $("$1" 2>&1) == usage:* ]]; }

if [[ -d $1 ]]; then
    cmake --install "$1" --prefix "$work/first" >/dev/null
    mv "$work/first" "$work/moved" # nothing may hold the place it was installed to
else
    for package in "$@"; do dpkg-deb --extract "$package" "$work/first"; done
    mv "$work/first/usr" "$work/moved"
fi
example=$(find "$work/moved" -name notify.c)
pkgconfig=$(find "$work/moved" -name pelmconf.pc -printf %h)
export PKG_CONFIG_PATH=$pkgconfig LD_LIBRARY_PATH=$pkgconfig/..

read -ra options < <(pkg-config --cflags --libs "pelmconf >= 1.0")
cc -o "$work/shared" "$example" "${options[@]}"
runs "$work/shared"
"$work/moved/bin/pelmsim" --help >/dev/null

# By its file's name, since the shared library is there, too, and would be taken.
read -ra options < <(pkg-config --static --cflags --libs pelmconf)
cc -o "$work/static" "$example" "${options[@]/#-lpelmconf/-l:libpelmconf.a}"
LD_LIBRARY_PATH='' runs "$work/static"

cmake -S "$outside" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/moved" \
    -DEXAMPLE="$example" >/dev/null
cmake --build "$work/build" >/dev/null
runs "$work/build/shared"
LD_LIBRARY_PATH='' runs "$work/build/static"
