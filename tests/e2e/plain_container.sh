#!/usr/bin/env bash
# plain_container.sh COMMAND [ARGUMENT...]: runs the command as most containers would: as root who
# may make no namespaces and mount nothing, with empty places and System V IPC of its own. Nothing
# in it says that it is a container.
set -euo pipefail

if [[ ${1:-} != --inside ]]; then
    exec unshare --user --map-root-user --mount --ipc "$0" --inside "$@"
fi
shift

# A root directory of its own hides what lies directly in /, where containers have their marks.
root=/mnt
mount -t tmpfs tmpfs $root
for each in /*; do
    if [[ -L $each ]]; then
        cp --no-dereference "$each" $root
    elif [[ -d $each ]]; then
        mkdir "$root$each"
        [[ $each == /mnt || $each == /run ]] || mount --rbind "$each" "$root$each"
    fi
done
mount -t tmpfs tmpfs $root/var/tmp
mount -t tmpfs tmpfs $root/var/log
echo 0 >/proc/sys/user/max_user_namespaces
exec chroot $root setpriv --bounding-set -sys_admin --inh-caps -sys_admin \
    env --unset=container --chdir="$PWD" "$@"
