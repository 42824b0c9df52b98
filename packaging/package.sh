#!/usr/bin/env bash
# package.sh ROOT ARCHITECTURE DIRECTORY: makes packages of what git knows here, in ROOT, and leaves them in
# DIRECTORY.
set -euo pipefail
cd "$(dirname "$0")/.."

root=$1 architecture=$2 directory=$3
# The times of files reach the packages, so they do not depend on when these were checked out.
dated=$(sed -n '/^ -- /{ s/.*>  //p; q }' debian/changelog)
mkdir -p "$root/root/build"
git ls-files -z | tar --null --files-from=- --create --file="$root/root/build/sources.tar" \
    --sort=name --mtime="$dated" --owner=0 --group=0 --numeric-owner
packaging/in_root.sh "$root" packaging/build.sh "$architecture" build/sources.tar
mkdir -p "$directory"
rm -f "$directory"/*.deb
cp "$root"/root/build/packages/*.deb "$directory"
