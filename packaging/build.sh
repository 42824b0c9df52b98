#!/usr/bin/env bash
# build.sh ARCHITECTURE SOURCES: in a root that has what debian/control asks for, builds the packages from
# the archive SOURCES, and leaves in build/packages what lintian has nothing to say of. Those for this kind of
# machine are built twice, in two places, and are to have the same bytes.
set -euo pipefail

architecture=$1 sources=$2
version=$(sed -n '1s/.*(\(.*\)).*/\1/p' debian/changelog)
common=(--no-sign --jobs="$(nproc)")

# build PLACE OPTION...: with a cache of compiled files that no other place has, so that each compiles for itself
build() {
    local place=build/$1
    export CCACHE_DIR=$HOME/cache/$1
    rm -rf "$place"
    mkdir -p "$place/pelmconf-$version"
    tar -xf "$sources" -C "$place/pelmconf-$version"
    if ! (cd "$place/pelmconf-$version" && dpkg-buildpackage "${common[@]}" "${@:2}") >"$place/log" 2>&1; then
        tail -n 50 "$place/log" >&2
        return 1
    fi
}
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
if [[ $architecture == "$(dpkg --print-architecture)" ]]; then
    build once --build=full
    LC_ALL=C.UTF-8 TZ=Pacific/Auckland build and/again --build=full
    for file in build/once/*.{deb,dsc,tar.xz}; do
        cmp "$file" "build/and/again/${file##*/}"
    done
else
    DEB_BUILD_PROFILES=cross build once --build=any --host-arch="$architecture"
fi

# The device's library is as small as what "./dev arm" tries.
if [[ $architecture == armhf ]]; then
    packaging/size_table.sh "$(mktemp)" "ARM, packed" arm-linux-gnueabihf- \
        build/once/*/debian/libpelmconf1/usr/lib/arm-linux-gnueabihf/libpelmconf.so.1
fi

lintian --allow-root --fail-on error,warning build/once/*.changes
rm -rf build/packages
mkdir build/packages
cp build/once/*.deb build/packages
