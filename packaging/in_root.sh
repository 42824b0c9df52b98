#!/usr/bin/env bash
# in_root.sh ROOT COMMAND [ARGUMENT...]: runs it with ROOT as the system, the project where it is, and
# a build/ of its own, which stays in ROOT. There is no network.
set -euo pipefail

root=$(realpath "$1")
project=$(realpath "$(dirname "$0")/..")
shift
mkdir -p "$root/root/build"
# bwrap makes the root a mount point, as the kernel asks of those who make namespaces in it.
exec bwrap --die-with-parent --unshare-user --unshare-pid --unshare-net --uid 0 --gid 0 \
    --bind "$root" / --dev-bind /dev /dev --proc /proc --tmpfs /tmp \
    --bind "$project" "$project" --bind "$root/root/build" "$project/build" \
    --setenv HOME /root --setenv PELM_OFFLINE 1 --chdir "$project" "$@"
