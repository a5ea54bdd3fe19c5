#!/bin/sh
# Configures and builds one preset into build/PRESET; prints only what went wrong.
#
#   scripts/build.sh [PRESET [TARGET...]]
#
# Presets: release (the default), debug, asan, tsan, coverage, benchmarks.  Target capture: the daemon without the tests.
set -eu

case ${1:-} in
    -h | --help) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
preset=${1:-release}
[ $# -eq 0 ] || shift
root=$(cd "$(dirname "$0")/.." && pwd -P)
cd "$root"

[ -w . ] || { printf 'build: %s is not writable for %s\n' "$root" "$(id -un)" >&2; exit 1; }

# A build folder that came along with a copied checkout belongs to another place; it is configured again.
fresh=
cache=build/$preset/CMakeCache.txt
if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
    fresh=--fresh
fi

printf 'build: preset %s in %s/build/%s (a minute or two the first time)\n' "$preset" "$root" "$preset"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# shellcheck disable=SC2086  # empty or one word
if ! cmake --preset "$preset" $fresh >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
cmake --build --preset "$preset" ${1:+--target "$@"} -- --quiet
