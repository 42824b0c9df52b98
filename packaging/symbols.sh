#!/usr/bin/env bash
# symbols.sh VERSION: prints debian/libpelmconf1.symbols as the names of src/lib/exports.txt ask for it,
# where those that the last release did not have came with VERSION.
set -euo pipefail
cd "$(dirname "$0")/.."

names() { echo PELMCONF_1 && cat src/lib/exports.txt; }
released() { echo PELMCONF_1 && sed -n "s/.*<elf-symbol name='\([^']*\)'.*/\1/p" packaging/libpelmconf.abi; }

echo "libpelmconf.so.1 libpelmconf1 #MINVER#"
echo "* Build-Depends-Package: libpelmconf-dev"
awk -v version="$1" '
    FILENAME ~ /symbols$/ { split($1, name, "@"); since[name[1]] = $2; next }
    FNR == 1 { list++ }
    list == 1 { released[$1]; next }
    { print " " $1 "@PELMCONF_1 " ($1 in released && $1 in since ? since[$1] : version) }
' debian/libpelmconf1.symbols <(released) <(names)
