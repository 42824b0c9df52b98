#!/usr/bin/env bash
# release.sh: makes a release in a clone of the last commit, where the checks and the packages, which take
# hours, have stand-ins.
set -euo pipefail
version=$(sed -n 's/^project(pelmconf VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
git clone -q --no-tags . "$work/clone"
cd "$work/clone"
git config user.name tester
git config user.email tester@pelmconf.example
export LC_ALL=C

cat >dev <<'END'
#!/bin/sh
case $1-$2 in
baseline-*) echo changed >packaging/libpelmconf.abi ;;
package- | package-arm*) mkdir -p "build/packages/$2" && echo "$2" >"build/packages/$2/of-$2.deb" ;;
esac
END
echo '[ ! -e ../fails ] || { echo "FAILED   a check"; exit 1; }' >.ci/run
sed -i 's/^## \[Unreleased\]$/&\n\n- Whatever comes next./' CHANGELOG.md # there is none behind a release
git commit -qam "Stand-ins, and something to release"

# refuses TEXT VERSION: and leaves everything as it is
refuses() {
    local before said
    before=$(git rev-parse HEAD && git status --porcelain)
    ! said=$(packaging/release.sh "$2" 2>&1) || { echo "$2 is released, where it should be refused: $1" && exit 1; }
    [[ $said == *"$1"* && $before == "$(git rev-parse HEAD && git status --porcelain)" ]] && return
    printf 'expected a refusal with "%s": %s\n' "$1" "$said"
    exit 1
}
refuses "CMakeLists.txt does not say 9.9.9" 9.9.9
touch more
refuses "something is not committed" "$version"
rm more
touch ../fails
refuses "FAILED   a check" "$version"
rm ../fails

packaging/release.sh "$version" >../said
grep -q "git tag .* v$version " ../said
[[ -z $(git status --porcelain) && $(git log -1 --format=%s) == "Release $version" ]]
today=$(date -ud "$(git log -1 --format=%cD)" +%F)
grep -A 2 '^## \[Unreleased\]$' CHANGELOG.md | tail -n 1 | grep -qxF "## [$version] - $today"
head -n 1 debian/changelog | grep -qxF "pelmconf ($version) unstable; urgency=medium"
git show --format= --name-only | diff - <(printf '%s\n' CHANGELOG.md debian/changelog packaging/libpelmconf.abi)
refuses "tells of nothing that is unreleased" "$version"

cd "build/pelmconf-$version"
sha256sum --quiet -c SHA256SUMS
diff <(ls) - <<END
SHA256SUMS
of-.deb
of-arm64.deb
of-armhf.deb
pelmconf-$version.tar.gz
pelmconf-$version.tar.xz
END
for archive in *.tar.*; do
    tar -xf "$archive" -C "$work"
    diff <(cd "$work/pelmconf-$version" && find . -type f -o -type l | sort) \
        <(git -C "$work/clone" ls-files | sed 's|^|./|' | sort)
done
