#!/usr/bin/env bash
# new.sh BUILD: makes projects by "pelmsim new", builds them with what BUILD installs, and runs their tests.
set -euo pipefail
templates=$(realpath "$(dirname "$0")/../../templates")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$1" --prefix "$work/installed" >/dev/null
export PATH=$work/installed/bin:$PATH CMAKE_PREFIX_PATH=$work/installed
cd "$work"

# passes TESTS NAME OPTION...: the project builds without a warning, and so many tests pass
passes() {
    local tests=$1 name=$2
    pelmsim new "${@:2}" >/dev/null
    cmake -S "$name" -B "$name/build" --no-warn-unused-cli -DCMAKE_C_FLAGS=-Werror -DCMAKE_CXX_FLAGS=-Werror >/dev/null
    cmake --build "$name/build" >/dev/null
    ctest --test-dir "$name/build" --output-on-failure >said && grep -q "out of $tests\$" said && return
    cat said
    exit 1
}

# refuses TEXT NAME OPTION...: and leaves everything as it is
refuses() {
    local status=0 before said
    before=$(ls -AR)
    said=$(pelmsim new "${@:2}" 2>&1) || status=$?
    [[ $status == 2 && $said == *"$1"* && $before == $(ls -AR) ]] && return
    printf 'expected a refusal with "%s", got %s: %s\n' "$1" "$status" "$said"
    exit 1
}

# repeats NAME OPTION...: what is made is the templates without their marks, in which that name stands
repeats() {
    find "$1.expected" -type f -exec sed -i '/\[\[.*\]\]/d' '{}' +
    pelmsim new "$@" --config /sample/setting --status /sample/state --operate /sample/reset >/dev/null
    diff -r "$1.expected" "$1"
    rm -r "$1"
}
cp -r "$templates/plugin" sample-plugin.expected
repeats sample-plugin
cp -r "$templates/legacy/." sample-plugin.expected
repeats sample-plugin --legacy
rm -r sample-plugin.expected
cp -r "$templates/plugin" sample-plugin.expected
find sample-plugin.expected -name '*.c' -delete
cp -r "$templates/cxx/." sample-plugin.expected
repeats sample-plugin --cxx

# One of each kind; and several, whose names and paths are no identifiers, lie in one another, or are alike.
several=(--config /system/name --config /a:system/ntp --config /a:system/ntp/name.1
         --config '/ports/port[name="ge 0/1",unit=2]' --config "/ports/port[name='ge 0/1',unit=2]/mtu"
         --status /system/state --status /system/ntp/state --status /ports/state
         --operate /system/re-start --operate '/ports/port[name="x"]/state')
passes 5 ntp
passes 5 my-state_2 "${several[@]}"
passes 5 older-one --legacy "${several[@]}"
passes 5 in_cxx --cxx "${several[@]}"

# Of one kind alone. No more is registered, no helper is left over.
for kind in config status operate; do
    for api in present legacy cxx; do
        options=(--"$kind" "/only/$kind")
        [[ $api == present ]] || options+=(--"$api")
        pelmsim new "$api-$kind" "${options[@]}" >/dev/null
        read -ra flags < <(PKG_CONFIG_PATH=$(find installed -name pkgconfig) pkg-config --cflags pelmtest)
        for file in "$api-$kind"/*.c* "$api-$kind"/tests/*.c*; do
            language='c++17'
            [[ $file != *.c ]] || language='c99'
            cc -std="$language" -Wall -Wextra -Werror -fsyntax-only "$file" "${flags[@]}"
        done
    done
done
[[ $(cd present-status/tests && echo *) == "daemon.sim present-status_test.c status.sim" ]]

ln -s nowhere dangling
touch file
refuses 'ntp is there already, and nothing is overwritten' ntp
refuses 'file is there already' file
refuses 'dangling is there already' dangling
refuses 'cannot name a project: a name is a letter' ../beside
refuses 'cannot name a project: a name is a letter' 3com
refuses 'cannot name a project: its build has' test
refuses 'cannot name a project: its build has' preinstall
refuses '"system/ntp" names no element' other --config system/ntp
refuses '"9:b" is no name in XML' other --status /a/9:b
refuses 'the key "k" has no plain name or value' other --config '/a[k="<"]'
refuses '/b:a names elements that /a names, too' other --config /a --config /b:a
trap '' XFSZ # a full disk, as it were
(ulimit -f 0 && refuses 'Cannot write' other)
