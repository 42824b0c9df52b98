#!/usr/bin/env bash
# recipes.sh: builds as Yocto and Buildroot do by the recipes in packaging/, on a system that has what these
# ask for, and nothing of what pelmsim needs.
set -euo pipefail
cd "$(dirname "$0")/../.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

yocto=(packaging/yocto/recipes-support/pelmconf/pelmconf_*.bb)
buildroot=packaging/buildroot/package/pelmconf/pelmconf.mk
grep -q "file://LICENSE;md5=$(md5sum <LICENSE | cut -d ' ' -f 1)\"" "${yocto[0]}"
[[ ${yocto[*]} == *"_$(sed -n 's/^project(pelmconf VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt).bb" ]]

# built NAME OPTION...: configured, built and installed so, there is the library, and all that belongs to it
built() {
    local name=$1 unexpected
    shift
    cmake -S . -B "$work/$name" -Wno-dev -DCMAKE_INSTALL_PREFIX=/usr "$@"
    cmake --build "$work/$name" -j "$(nproc)"
    DESTDIR=$work/$name-root cmake --build "$work/$name" --target install >/dev/null
    [[ -e $work/$name-root/usr/lib/libpelmconf.so.1 && -e $work/$name-root/usr/lib/pkgconfig/pelmconf.pc ]]
    # What is elsewhere would be in none of the packages that Yocto makes by itself.
    unexpected=$(cd "$work/$name-root/usr" && find . -type f ! -path './include/*' ! -path './share/doc/*' ! -path './share/man/*' \
        ! -path './lib/cmake/*' ! -path './lib/pkgconfig/*' ! -name '*.so.*' ! -name '*.a')
    [[ -z $unexpected ]] || { echo "the recipe for $name packs nowhere: $unexpected" && exit 1; }
}
read -ra options < <(sed -n 's/^EXTRA_OECMAKE = "\(.*\)"$/\1/p' "${yocto[0]}")
built yocto -DCMAKE_INSTALL_LIBDIR:PATH=lib -DCMAKE_EXPORT_NO_PACKAGE_REGISTRY=ON \
    -DFETCHCONTENT_FULLY_DISCONNECTED=ON "${options[@]}"
read -ra options < <(sed -n 's/^PELMCONF_CONF_OPTS = //p' "$buildroot")
built buildroot -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON -DCMAKE_INSTALL_LIBDIR=lib "${options[@]}"
