#!/usr/bin/env bash
# history.sh: commits are made in an empty place, and packaging/history.sh says which of them are not as they should be.
set -euo pipefail
history=$(realpath packaging/history.sh)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
git init -q "$work/all"
cd "$work/all"
git config user.name tester
git config user.email tester@pelmconf.example

# commits FILE MESSAGE...
commits() {
    mkdir -p src docs
    echo "$2" >"$1"
    git add .
    git commit -q "${@:2}"
}
long=$(printf 'x%.0s' {1..73})
commits src/before -m "Nobody says why before the base"
base=$(git rev-parse HEAD)
commits src/one -m "${long:1}" -m "And why."
commits docs/one -m "Documents speak for themselves"
"$history" "$base"
git clone -q --depth 2 "file://$PWD" "$work/good"
(cd "$work/good" && "$history" "$base")

commits docs/two -m "$long" && longer=$(git rev-parse --short HEAD)
commits src/two -m "No word of why" && silent=$(git rev-parse --short HEAD)
git clone -q --depth 3 "file://$PWD" "$work/bad"
for place in "$work/all" "$work/bad"; do
    cd "$place"
    if "$history" "$base" >"$work/said"; then exit 1; fi
    diff "$work/said" - <<END
$silent "No word of why": changes src/, but does not say why
$longer "$long": the subject is longer than 72 characters
END
done
cd "$work/all"
if "$history" 0123456789 2>/dev/null; then exit 1; fi
