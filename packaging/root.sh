#!/usr/bin/env bash
# root.sh DIRECTORY SUITE ARCHITECTURE PACKAGE...: puts the packages of that Debian release there. A root
# for another architecture is only unpacked: it is built against, not run in. ARCHITECTURE may name more
# behind this machine's, as in amd64,armhf, whose packages are then PACKAGE:armhf. A PACKAGE as in
# +libxml2-dev is not installed, but kept there with what it needs, for apt without a network.
# Ends with status 75 when the archive does not give it.
set -euo pipefail

root=$1 suite=$2 architecture=$3
shift 3
packages=$(IFS=, && echo "$*")
installed=() kept=()
for package in "$@"; do
    [[ $package == +* ]] && kept+=("${package#+}") || installed+=("$package")
done

[[ ! -f $root/.packages || $(<"$root/.packages") != "$packages" ]] || exit 0

no_root() {
    echo "root.sh: NO ROOT of $suite for $architecture: $1" >&2
    exit 75
}

# Whatever mirror this machine uses. Security updates can be out of step between architectures.
here=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
# shellcheck disable=SC2016 # apt-get fills these in
mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk -v here="$here" '$2 == here && $3 == "main" && !found++ { print $1 }')
[[ -n $mirror ]] || no_root "apt knows no archive of this system"

variant=apt
members=(--exclude './dev/*')
if [[ ${architecture%%,*} != "$(dpkg --print-architecture)" ]]; then
    # No /var or /etc: the emulator looks for each path in the root first and would show them to
    # programs in place of the machine's.
    variant=extract
    members=(./lib ./usr/include ./usr/lib ./usr/share)
fi
options=()
if ((${#kept[@]})); then
    # shellcheck disable=SC2016 # mmdebstrap's shell fills them in
    options=(--skip=cleanup/apt '--customize-hook=rm "$1"/var/cache/apt/archives/*.deb'
             "--customize-hook=APT_CONFIG=\$MMDEBSTRAP_APT_CONFIG apt-get install --yes --download-only ${kept[*]}")
fi

# As a stream, so that the files are the caller's. Mirrors keep a release that is still being tested
# for longer than its index says it is valid. When it fails, mmdebstrap hangs up on all of its process
# group, hence the session of its own.
make() {
    rm -rf "$root"
    mkdir -p "$root"
    setsid --wait mmdebstrap --quiet --variant=$variant --architectures="$architecture" --include="$(IFS=, && echo "${installed[*]}")" \
        --aptopt='Acquire::Check-Valid-Until "false"' "${options[@]}" "$suite" - "deb $mirror $suite main" </dev/null |
        tar --extract --no-same-owner --directory "$root" "${members[@]}"
}
make || make || no_root "the archive cannot be reached, or lacks a package"
echo "$packages" >"$root/.packages"
