#!/bin/sh
# Configures and builds a preset (default: release) in build/PRESET, all of it or the named targets.
#
#   scripts/build.sh [PRESET [TARGET...]]     scripts/build.sh release capture: the daemon without the tests
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

preset=${1:-release}
[ $# -eq 0 ] || shift
# shellcheck disable=SC2046  # a list of words
case $preset in
    -h | --help) usage; printf 'Presets: %s\n' "$(presets configure)"; exit 0 ;;
    *)
        is_one_of "$preset" $(presets configure) ||
            refuse "there is no preset '$preset'; presets: $(presets configure)" ;;
esac
cd "$root"

for tool in cmake ninja; do
    command -v $tool >/dev/null || die "$tool is missing; scripts/setup.sh build installs it"
done
for folder in . build "build/$preset"; do
    [ ! -e "$folder" ] || [ -w "$folder" ] || die "$(readlink -f "$folder") is not writable for $(id -un)"
done

# One build at a time in one folder; the lock ends with the last of its processes.
mkdir -p "build/$preset"
exec 9<"build/$preset"
flock --nonblock 9 || { say "waiting for another build in build/$preset"; run flock 9; }

# A build folder that came along with a copied checkout belongs to another place; it is configured anew.
cache=build/$preset/CMakeCache.txt
if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
    rm -rf "$cache" "build/$preset/CMakeFiles"
fi

say "preset $preset in $root/build/$preset (a minute or two the first time)"
log=build/$preset/configure.log
run cmake --preset "$preset" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }

targets=$(ninja -C "build/$preset" -t targets all | sed -n '/^cmake_/d; s/^\([a-z_]*\): phony$/\1/p' | xargs)
for target in "$@"; do
    # shellcheck disable=SC2086  # a list of words
    is_one_of "$target" $targets || refuse "there is no target '$target'; targets: $targets"
done
# Not cmake --build, which SIGTERM would end without ninja.
run ninja --quiet -C "build/$preset" "$@"
