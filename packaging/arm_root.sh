#!/usr/bin/env bash
# arm_root.sh DIRECTORY: unpacks what a program for Debian's armhf is built with and runs with.
# Ends with status 75 when the archive does not give it.
set -euo pipefail

suite=bookworm
packages=libc6-dev,libstdc++-12-dev,libxml2-dev,libcjson-dev,libgtest-dev,libgmock-dev,libedit-dev,libcli11-dev
root=$1

[[ ! -f $root/.packages || $(<"$root/.packages") != "$packages" ]] || exit 0

# Whatever mirror this machine uses. The archive of security updates can be out of step for armhf.
# shellcheck disable=SC2016 # apt-get fills these in
mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk -v suite=$suite '$2 == suite && $3 == "main" && !found++ { print $1 }')
if [[ -z $mirror ]]; then
    echo "arm_root.sh: apt knows no archive of $suite" >&2
    exit 75
fi

rm -rf "$root"
mkdir -p "$root"
# As a stream, so that the files are the caller's. No /var or /etc: the emulator looks for each path
# in the root first and would show them to programs in place of the machine's.
if ! mmdebstrap --quiet --variant=extract --architectures=armhf --include="$packages" \
    $suite - "deb $mirror $suite main" |
    tar --extract --no-same-owner --directory "$root" ./lib ./usr/include ./usr/lib ./usr/share; then
    echo "arm_root.sh: the archive gave no root for armhf" >&2
    exit 75
fi
echo "$packages" >"$root/.packages"
