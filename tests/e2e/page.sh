#!/usr/bin/env bash
# page.sh PELMSIM: the page of a recording lets a browser obey what it was built with, and no more.
set -euo pipefail
simulator=$1

fail() {
    echo "$1"
    exit 1
}

# element TAG: what stands between the line of this tag and that of its end.
element() { sed -n "/^<$1>/,/^<\/${1%% *}>/p" <<<"$page" | sed '1s/.*//; $d'; }

# hash: in base 64, as a Content-Security-Policy has it.
hash() { printf '%b' "$(sha256sum | cut -c -64 | sed 's/../\\x&/g')" | base64; }

event='{"kind":"output","text":"</script><!-- & <style>"}'
page=$(printf '%s\n' "$event" '{"kind":"cut' | "$simulator" show --html -)

policy=$(grep -o 'content="default-src .*"' <<<"$page")
script=$(element 'script type="module"' | hash)
style=$(element style | hash)
[[ $policy == *"default-src 'none'; style-src 'sha256-$style'; script-src 'sha256-$script';"* ]] ||
    fail "the policy is $policy, the hashes $style and $script"

events=$(element 'script type="application\/json" id="recording"')
[[ $events == $'\n'"${event//</\\u003c}"$'\n{"kind":"cut' ]] || fail "the events are $events"
