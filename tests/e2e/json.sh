#!/usr/bin/env bash
# json.sh PELMSIM DIRECTORY: commands as JSON lines, what comes back, and who does not read it.
set -euo pipefail
simulator=$1
cd "$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkfifo "$work/silent" "$work/unread"
exec 3<>"$work/silent" 4<>"$work/unread" # they never end, and nobody reads

fail() {
    printf '%s:\n' "$1"
    tail -n 50 "$work"/{events,said}
    exit 1
}

# ends STATUS OPTION...: so does pelmsim with these; what it prints is kept.
ends() {
    local status=0
    "$simulator" run --json "${@:2}" >"$work/events" 2>"$work/said" || status=$?
    [[ $status == "$1" ]] || fail "status $status in place of $1"
    ! grep -v '^{"time":".*}$' "$work/events" || fail 'some lines are no events'
}

# results: of the commands without what they showed, and what the plugin printed.
results() {
    sed -n '/"kind":"\(result\|output\)"/!d
        s/.*"kind":"\([a-z]*\)","role":"[a-z]*",/\1 {/
        s/"peer":"plugin","pid":[0-9]*,//
        s/,"shown":.*}/}/
        p' "$work/events"
}

says() { grep -qF -- "$1" "$work/said" || fail "it does not say \"$1\""; }

{
    cat <<'.'
{"line":"wait output active"}
{"id":1,"command":"wait","arguments":["active","one"]}
{"id":"two","command":"set","arguments":["/a/c"," \"as it\nstands\" "]}
{"id":3e0,"command":"set","arguments":["/a/c","<one/>"]}
{"line":"expect error 5 refused"}
{"id":5,"command":"fly"}
{"id":6,"command":"quit"
{"id":7,"command":"set","arguments":["/a"]}
.
    printf '{"id":8}\0\n{"id":9,"line":"echo %016777216d"}\n' 0
    printf '{"id":10,"command":"show","arguments":["/a/c"]}\n{"id":11,"command":"quit"}\nnever read'
} >"$work/commands"
ends 2 --config one.xml -- test_plugin one 1 <"$work/commands"
says 'pelmsim: mistakes on the standard input: 5'
diff - <(results) <<'.' || fail 'other results'
output {"text":"active"}
result {"good":true,"expected":"output active","got":"output active"}
result {"id":1,"good":true,"expected":"active one","got":"active one"}
output {"text":"session 1 oper 4 more 0 priority 2 /a/c new <c> \"as it"}
output {"text":"stands\" </c> old <c>c</c>"}
result {"id":"two","outcome":"ok"}
output {"text":"session 1 oper 4 more 0 priority 2 /a/c new <c><one/></c> old <c> \"as it"}
output {"text":"stands\" </c>"}
result {"id":3e0,"outcome":"error","code":5,"reason":"refused <as> told"}
result {"good":false,"expected":"error 5 (refused)","got":"error 5 (refused <as> told)"}
result {"id":5,"mistake":"there is no command \"fly\""}
result {"mistake":"no JSON object in UTF-8: see byte 25"}
result {"id":7,"mistake":"XML, or a text is missing"}
result {"mistake":"no JSON object in UTF-8: see byte 9"}
result {"mistake":"a command has at most 16777216 bytes"}
result {"id":10,"outcome":"ok","data":"<c> \"as it\u000astands\" </c>"}
result {"id":11}
.

# The end of the input is the end of the session, and an expectation counts.
ends 1 <<<'{"id":1,"line":"expect ok"}'
ends 0 <<<'{"id":1,"line":"expect unheard"}'
ends 0 --script <(echo 'echo a') <"$work/silent"
grep -q '"kind":"heading".*"text":"a"' "$work/events" || fail 'no event of the script'
# shellcheck disable=SC2016 # it is the started shell's
ends 1 < <(
    printf '{"id":%s,"line":"%s"}\n' 1 'start bash -c '\''kill $PPID'\' 2 'wait output never'
)
grep -q '"id":2,"mistake":"interrupted"' "$work/events" || fail 'the wait was not interrupted'

# A reader that goes away, and one that does not read: of the events of "show" there are 18 MB.
{
    "$simulator" run --json -- test_plugin one 1 <"$work/silent" 2>"$work/said" ||
        echo $? >"$work/status"
} | head -n 1 >/dev/null
says 'pelmsim: the events are lost: their reader has gone'
[[ $(<"$work/status") == 1 ]] || fail 'not ended with status 1'

printf '<big>%06000000d</big>' 0 >"$work/big"
# What no socket and no pipe holds comes whole, also to one that reads byte by byte, as "read" does.
printf '<big>%0300000d</big>' 0 >"$work/more"
ends 0 --timeout 60000 --config "$work/more" -- test_plugin one 1 <<'.'
{"line":"wait active one"}
{"line":"operate /test/do <pull>/big</pull>"}
{"line":"expect contains 00</big>"}
.
printf '{"id":1,"command":"show"}\n' >&3
while read -r event && [[ $event != *'"id":1,'* ]]; do :; done < <(
    "$simulator" run --json --config "$work/more" <"$work/silent" 2>/dev/null
)
[[ $event == *'00</big>'* ]] || fail 'what is written waits for what comes next'

printf '{"id":1,"command":"show"}\n' >&3
status=0
"$simulator" run --json --timeout 100 --config "$work/big" <"$work/silent" >"$work/unread" \
    2>"$work/said" || status=$?
says 'bytes are unread'
[[ $status == 1 ]] || fail "status $status"
