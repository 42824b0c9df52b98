#!/usr/bin/env bash
# library.sh [CMAKE OPTION...]: builds the library alone, with whatever CMake and compiler there are and
# as few other things as it needs: by itself, and as a part of somebody else's project.
set -euo pipefail
outside=$(realpath "$(dirname "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S "$outside/../.." -B "$work/alone" -DPELM_TOOLS=OFF -DPELM_TESTS=OFF "$@"
cmake --build "$work/alone" -j "$(nproc)"
"$outside/install.sh" "$work/alone"

cmake -S "$outside" -B "$work/within" -DPELMCONF_SOURCES="$outside/../.." "$@"
cmake --build "$work/within" -j "$(nproc)"
for program in shared static kit kit_static; do "$work/within/$program"; done
