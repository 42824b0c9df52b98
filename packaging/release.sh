#!/usr/bin/env bash
# release.sh VERSION: checks everything, commits what a release changes, and leaves in build/pelmconf-VERSION
# what is given to others. What fails leaves everything as it was.
set -euo pipefail
cd "$(dirname "$0")/.."

version=$1
place=build/pelmconf-$version

refuse() {
    echo "release: $1" >&2
    exit 1
}
[[ $version == "$(sed -n 's/^project(pelmconf VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" ]] ||
    refuse "CMakeLists.txt does not say $version"
[[ -z $(git status --porcelain) ]] || refuse "something is not committed"
! git rev-parse -q --verify "refs/tags/v$version" >/dev/null || refuse "v$version is there already"
# To its end, since sed would be told that nobody reads on.
sed -n '/^## \[Unreleased\]$/,/^## \[[0-9]/p' CHANGELOG.md | grep '^- ' >/dev/null ||
    refuse "CHANGELOG.md tells of nothing that is unreleased"

trap 'git reset -q --hard' EXIT
bash .ci/run all

sed -i "s/^## \[Unreleased\]$/&\n\n## [$version] - $(date -u +%F)/" CHANGELOG.md
entries=$(awk '/^pelmconf \(/ { released = $3 !~ /^UNRELEASED/ } released' debian/changelog)
{
    printf 'pelmconf (%s) unstable; urgency=medium\n\n  * See CHANGELOG.md.\n\n' "$version"
    printf ' -- %s  %s\n' "$(sed -n 's/^Maintainer: //p' debian/control)" "$(date -uR)"
    [[ -z $entries ]] || printf '\n%s\n' "$entries"
} >debian/changelog
symbols=$(packaging/symbols.sh "$version")
echo "$symbols" >debian/libpelmconf1.symbols
recipe=packaging/yocto/recipes-support/pelmconf/pelmconf
[[ -e ${recipe}_$version.bb ]] || git mv "$recipe"_*.bb "${recipe}_$version.bb"
./dev baseline

for what in '' trixie armhf arm64 recipes; do
    # shellcheck disable=SC2086 # none is no argument
    ./dev package $what
done
git add --all
git commit -q -m "Release $version" -m "The changelog has the date, and the binary interface is what later releases are compared with."
trap - EXIT

rm -rf "$place"
mkdir "$place"
git archive --prefix="pelmconf-$version/" --output="$place/pelmconf-$version.tar" HEAD
gzip -9nk "$place/pelmconf-$version.tar"
xz -9T1 "$place/pelmconf-$version.tar"
cp build/packages/*.deb build/packages/*/*.deb "$place"
(cd "$place" && sha256sum -- * >SHA256SUMS)
ls "$place"
echo "release: when all this is as it should be: git tag -s v$version -m 'pelmconf $version' && git push origin v$version"
