#!/usr/bin/env bash
# in_place.sh PELMWORLD DEMO...: tries runs in the machine's own places, in a container made for it,
# or in the one that this runs in when no other can be made.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")

if [[ -z ${PELM_CONTAINER:-} ]] && "$here/plain_container.sh" true 2>/dev/null; then
    PELM_CONTAINER=made exec "$here/plain_container.sh" "$0" "$@"
fi
if [[ -z ${PELM_CONTAINER:-} ]] && unshare --user --map-root-user --mount --ipc true 2>/dev/null; then
    echo "skipped: this is no plain container, and none can be made here"
    exit 0
fi
unset PELM_IN_PLACE container
export LC_ALL=C
world=$1
demo=("${@:2}")

work=$(mktemp -d)
log=/var/log/conf_plugin.log
profile=/mnt/squash/local/etc/pelmd/pelmd.conf
socket=/var/tmp/pelmd.plugin.socket
trap 'rm -rf "$work"' EXIT
complain() {
    printf '%s:%s: %s\n' "$0" "${BASH_LINENO[-2]}" "$*"
    exit 1
}

# What others would notice: the names in the places and the System V objects.
places() {
    { find /mnt /run/pelmworld.lock /var/tmp /var/log -maxdepth 1 2>/dev/null || true; } | sort
    awk 'FNR > 1 { print FILENAME, $2 }' /proc/sysvipc/{shm,sem,msg}
}
untouched=$(places)
are_untouched() {
    local left
    left=$(diff <(echo "$untouched") <(places)) || complain "the places have changed:" "$left"
}

# ends STATUS TEXT COMMAND...: the command ends so, says that among others, and leaves nothing.
ends() {
    local wanted=$1 text=$2 status=0 output
    shift 2
    output=$(timeout 60 "$@" 2>&1 </dev/null) || status=$?
    [[ $status == "$wanted" && $output == *"$text"* ]] ||
        complain "expected status $wanted and \"$text\", got $status:" "$output"
}

# begin [COMMAND...]: runs until it is told to end and has left behind all that it can, and a process
# that the command starts.
leave='trap "exit 9" TERM
    echo {} >'$profile' && touch '$log' '$socket' /var/tmp/made
    mkdir /mnt/made && touch /mnt/made/inside
    ipcmk -M 64 -Q -S 1 >'$work'/objects
    exec 3>'$work'/ready
    setsid "$@" sleep 600 3>&- & echo $! >'$work'/left
    until grep -q ^sleep /proc/$!/cmdline; do :; done
    echo ready >&3
    wait'
mkfifo "$work/ready"
begin() {
    "$world" --in-place -- bash -c "$leave" leave "$@" >/dev/null 2>&1 </dev/null &
    launcher=$!
    exec {command}<"$work/ready" # is open at its other end as long as the command lives
    read -r -u "$command" _
}
end_launcher() { # SIGNAL STATUS: by a signal, and the status that it ends with then
    local status=0
    kill -s "$1" "$launcher"
    wait "$launcher" 2>/dev/null || status=$?
    [[ $status == "$2" ]] || complain "the launcher ended with status $status"
    read -r -t 60 -u "$command" _ || status=$?
    ((status == 1)) || complain "the command lives on"
}
has_left_nothing() { # no process either, be it that nobody has asked how it ended
    [[ ! -e /proc/$(<"$work/left") ]] || ! grep -q . "/proc/$(<"$work/left")/cmdline" ||
        complain "a process lives on"
    are_untouched
}

# Who may, and what is said.
if [[ ${PELM_CONTAINER:-} == made ]]; then
    ends 126 'user.max_user_namespaces above 0' "$world" -- true
    ends 0 "works in the machine's own places" env container=any "$world" -- true
    ends 126 'user.max_user_namespaces above 0' env container=any PELM_IN_PLACE=0 "$world" -- true
fi
ends 0 "works in the machine's own places" env PELM_IN_PLACE=1 "$world" -- true
ends 0 "works in the machine's own places" "$world" --in-place -- true

# A run ends like its command, which is sent what its launcher is sent.
begin env -i
end_launcher TERM 9
has_left_nothing

# A launcher that is killed leaves a record, by which the next run removes what was left.
begin
end_launcher KILL 137
[[ -e $socket ]] || complain "there is nothing to remove"
ends 0 '' "$world" --in-place -- true
has_left_nothing

# But not what has come later: the record was touched for the last time long before.
begin
end_launcher KILL 137
kill -KILL "$(<"$work/left")"
touch -d '1 hour ago' /run/pelmworld.lock
ends 126 "$socket" "$world" --in-place -- true
[[ -e /mnt/made/inside && -e $profile && -e $log ]] ||
    complain "what may be somebody else's was removed"
rm -r /mnt/made /mnt/squash /var/tmp/made $log $socket
readarray -t ids < <(sed 's/.*: //' "$work/objects")
ipcrm -m "${ids[0]}" -q "${ids[1]}" -s "${ids[2]}"
are_untouched

# However deep it lies.
begin
end_launcher KILL 137
kill -KILL "$(<"$work/left")"
last=$(date +%s)
touch -d "@$((last - 5))" /run/pelmworld.lock
until (($(date +%s) > last)); do :; done
echo mine >$profile
ends 126 "somebody else's: $profile" "$world" --in-place -- true
[[ $(<$profile) == mine ]] || complain "a younger profile was touched"
rm -r /mnt/squash
are_untouched

# What lies there is named, and stays.
for each in $profile $log /var/tmp/pelmd.any; do
    mkdir -p "${each%/*}"
    echo mine >"$each"
    ends 126 "somebody else's: $each" "$world" --in-place -- true
    [[ $(<"$each") == mine ]] || complain "$each was touched"
    rm "$each"
done
rm -r /mnt/squash
are_untouched

# Each waits for its turn, and what runs inside of one does not.
running=()
for each in 1 2 3 4; do
    ends 0 '' "$world" --in-place -- "${demo[@]}" &
    running[each]=$!
done
for each in "${running[@]}"; do
    wait "$each" || complain "one of those that ran side by side failed"
done
ends 0 'own places' env PELM_IN_PLACE=1 "${demo[@]}"
are_untouched
