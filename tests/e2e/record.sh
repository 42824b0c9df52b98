#!/usr/bin/env bash
# record.sh PELMSIM DIRECTORY: runs that are kept in files, shown, and played again.
set -euo pipefail
simulator=$1
cd "$2"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp one.xml "$folder"

fail() {
    printf '%s:%s: %s\n' "$0" "${BASH_LINENO[0]}" "$1"
    exit 1
}

# Everything that was printed while it happened is printed again, but the line that counts.
for options in '' '--trace'; do
    # shellcheck disable=SC2086
    "$simulator" run $options --record "$folder/run.json" --config one.xml --script failures.sim \
        -- test_plugin first 20 >"$folder/printed" </dev/null
    "$simulator" show "$folder/run.json" >"$folder/shown"
    diff <(sed '$d' "$folder/printed") "$folder/shown" || fail 'it is not shown as it was printed'
done

# Made into a script, it passes with the same plugin, and fails with another one.
for script in requests publish failures expect; do
    "$simulator" run --record "$folder/run.json" --config one.xml --script "$script.sim" \
        -- test_plugin first 20 >/dev/null </dev/null
    "$simulator" show --script "$folder/run.json" >"$folder/$script.sim"
    "$simulator" test --config one.xml "$folder/$script.sim" -- test_plugin first 20 </dev/null ||
        fail "$script does not pass again"
done
if "$simulator" test --timeout 500 --config one.xml "$folder/publish.sim" -- test_plugin first 3 \
    >"$folder/printed" </dev/null; then
    fail 'it passes with a plugin of another priority'
fi

# What cannot be read to its end is not shown as if it were whole.
for form in '' --html --script; do
    # shellcheck disable=SC2086 # the first one is no argument
    if "$simulator" show $form /proc/self/mem >/dev/null 2>"$folder/printed"; then
        fail "a failure to read is none (show $form)"
    fi
    grep -q 'cannot read /proc/self/mem to its end' "$folder/printed" || fail 'it is not said why'
done

# So does a session that waited for nothing, as somebody types it who sees what is going on.
mkfifo "$folder/events" "$folder/commands"
"$simulator" run --json --config one.xml --record "$folder/run.json" -- test_plugin first 20 \
    <"$folder/commands" >"$folder/events" &
exec {commands}>"$folder/commands" {events}<"$folder/events"
until read -r -u "$events" event && [[ $event == *'"method":"activate"'* ]]; do :; done
printf '{"line": "%s"}\n' 'set /a/c 2' 'set /a/c first' 'wait output never 1' >&"$commands"
exec {commands}>&-
cat <&"$events" >/dev/null
wait $! && fail 'a wait in vain is no failure'
"$simulator" show --script "$folder/run.json" >"$folder/typed.sim"
"$simulator" test --config one.xml "$folder/typed.sim" -- test_plugin first 20 </dev/null ||
    fail 'what was typed does not pass again'
grep -q '^expect error 5 refused <as> told$' "$folder/typed.sim" || fail 'nothing was expected'

# A secret, by every road that leads into the file.
cat >"$folder/secret.xml" <<'END'
<config><a><b><k>one</k><pw>K3epOut</pw></b><b><k>two</k><pw>815</pw></b></a></config>
END
cat >"$folder/secret.sim" <<'END'
echo K3epOut
wait active first
start test_plugin second 5 1
wait active second
wait output K3epOut
show
expect contains K3epOut
start example_agent
wait output subscribeNotification_1
notify <pw>K3epOut</pw>
operate /test/do <pull>/a</pull><push path="/a/b[k=three]"><pw>815</pw></push>
expect contains K3epOut
operate /test/do <notify><to>K3epOut</to></notify>
wait notification K3epOut
operate /test/do <locate>/a/b[pw=K3epOut]/x</locate>
expect error
set /a/b[pw="K3epOut"] <pw>K3epOut</pw><c>first</c>
publish /a/b[pw='815'] mod
send first K3epOut
expect error -1 "Method <K3epOut> doesn't be supported"
answer pull error 815 K3epOut
operate /test/do <pull>/a</pull>
expect warning K3epOut
log
timeline
plugins
END
for redacted in '' '--redact /a/b/pw'; do
    # shellcheck disable=SC2086
    "$simulator" run --record "$folder/secret.json" $redacted --config "$folder/secret.xml" \
        --script "$folder/secret.sim" -- test_plugin first 20 >/dev/null </dev/null || true
    [[ $redacted || $(grep -c K3epOut "$folder/secret.json") -gt 30 ]] ||
        fail 'the secret takes fewer roads than it is to take'
done
if sed -E 's/"(time|pid|id|count|ms|place)":("[^"]*"|[0-9.]*),?//g' "$folder/secret.json" |
    grep -E 'K3epOut|\b815\b'; then
    fail 'a secret is in the file'
fi
grep -q '<k>one</k><pw>(redacted)</pw>' "$folder/secret.json" || fail 'more is left out than the secret'

if "$simulator" run --record '' --script expect.sim </dev/null 2>/dev/null; then
    fail 'nothing is recorded, and nobody learns of it'
fi

# A test keeps each script's recording, and says when it could not.
"$simulator" test --record "$folder/all" --config one.xml expect.sim -- test_plugin first 20 \
    >/dev/null </dev/null
grep -q '"complete":true' "$folder/all/expect.json" || fail 'a test is not recorded to its end'
if (ulimit -f 1 && trap '' XFSZ && "$simulator" run --record "$folder/full.json" --script expect.sim \
    --config one.xml -- test_plugin first 20 >/dev/null 2>"$folder/said" </dev/null); then
    fail 'a recording without its end is no failure'
fi
grep -q 'full.json ends here: File too large' "$folder/said" || fail 'nobody learns of its end'
