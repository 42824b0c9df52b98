#!/usr/bin/env bash
# install.sh BUILD: installs from there into an empty directory, then builds and runs a program with
# what it finds there, as somebody else's project.
set -euo pipefail
outside=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$1" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved" # nothing may hold the place it was installed to
pkgconfig=$(find "$work/moved" -name pelmconf.pc -printf %h)

# Programs that were installed find the library by themselves.
simulator=$work/moved/bin/pelmsim
[[ ! -x $simulator ]] || "$simulator" --help >/dev/null

# Documents lead to what was installed with them, and the licence is no link to what was not.
find "$work/moved/share/doc" -name '*.md' | while read -r page; do
    awk '/^```/ { is_code = !is_code } !is_code' "$page" | { grep -oE '\]\([^):# ]+[)#]' || true; } | while read -r link; do
        [[ -e ${page%/*}/${link:2:-1} ]] || { echo "$page leads nowhere: $link" && exit 1; }
    done
done
[[ -f $(find "$work/moved/share/doc" -name LICENSE) ]]

# Whoever compiles against the library needs no libcjson. pkg-config sees all packages but that.
mkdir "$work/sdk"
IFS=: read -ra known <<<"$pkgconfig:$(pkg-config --variable pc_path pkg-config)"
find "${known[@]}" -name '*.pc' ! -name libcjson.pc -exec cp -t "$work/sdk" '{}' + 2>/dev/null || true
PKG_CONFIG_LIBDIR=$work/sdk pkg-config --cflags --libs pelmconf >/dev/null

export PKG_CONFIG_PATH=$pkgconfig
read -ra options < <(pkg-config --cflags --libs "pelmconf >= 1.0")
cc -o "$work/shared" "$outside/exercise.c" "${options[@]}"
LD_LIBRARY_PATH=$pkgconfig/.. "$work/shared"

examples=$outside/../../examples
c++ -std=c++17 -o "$work/cxx" "$examples/plugin.cpp" "${options[@]}"
read -ra options < <(pkg-config --cflags --libs pelmtest)
cc -Dmain=plugin_main -c -o "$work/plugin.o" "$examples/plugin.c" "${options[@]}"
cc -o "$work/kit" "$examples/plugin_test.c" "$work/plugin.o" "${options[@]}"
LD_LIBRARY_PATH=$pkgconfig/.. "$work/kit"

# By its file's name, since the shared library is there, too, and would be taken.
read -ra options < <(pkg-config --static --cflags --libs pelmconf)
cc -o "$work/static" "$outside/exercise.c" "${options[@]/#-lpelmconf/-l:libpelmconf.a}"
"$work/static"
read -ra options < <(pkg-config --static --cflags --libs pelmtest)
cc -o "$work/kit_static" "$examples/plugin_test.c" "$work/plugin.o" \
    "${options[@]/#-lpelmconf/-l:libpelmconf.a}"
"$work/kit_static"

cmake -S "$outside" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/moved" >/dev/null
cmake --build "$work/build" >/dev/null
for program in shared static kit kit_static; do "$work/build/$program"; done

# Scripts are tests of the project, whose results CI systems can read.
if [[ -x $simulator ]]; then
    (cd "$work/build" && ctest --output-on-failure --output-junit results.xml)
    grep -q '<testcase name="plugin.legacy_plugin" .*status="run"' "$work/build/results.xml"
fi
