#!/usr/bin/env bash
# history.sh BASE: commits after BASE have a subject of at most 72 characters, and one that changes
# src/ says in a body why. Of a clone that does not reach back to BASE, what is there is looked at.
set -euo pipefail

export LC_ALL=C.UTF-8
base=$1
range=$base..HEAD
# What the first commits of a shallow clone have changed is not to be seen there.
ends=$(cat "$(git rev-parse --git-path shallow)" 2>/dev/null || true)
if [[ -n $ends ]] && ! git cat-file -e "$base" 2>/dev/null; then
    range=HEAD
fi
commits=$(git rev-list --no-merges "$range")

status=0
complain() { echo "$(git log -1 --format='%h "%s"' "$1"): $2" && status=1; }
for commit in $commits; do
    grep -qxF "$commit" <<<"$ends" && continue
    (($(git log -1 --format=%s "$commit" | wc -m) <= 73)) || complain "$commit" "the subject is longer than 72 characters"
    [[ -n $(git log -1 --format=%b "$commit") ]] || git diff-tree --quiet "$commit^" "$commit" -- src ||
        complain "$commit" "changes src/, but does not say why"
done
exit "$status"
