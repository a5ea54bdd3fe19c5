#!/bin/sh
# Builds for a board with another processor, runs the tests and the demo as that board would (emulated, in a sandbox),
# and makes the package: all of it, or the one that is named.  Installs what is missing.
#
#   scripts/cross.sh [--sysroot DIR] arm64|armhf [build|test|demo|package]
#
# The board's system is Debian's, made once in build/sysroot.  --sysroot takes a copy of the board's own, with headers,
# from then on (until build/sysroot/ARCH is removed); without GoogleTest in it there are no tests.
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

sysroot=
case ${1:-} in
    -h | --help) usage; exit 0 ;;
    --sysroot)
        [ $# -gt 1 ] || refuse '--sysroot needs a folder'
        [ -d "$2/usr/include" ] || refuse "there is no system with headers in '$2' (no usr/include)"
        sysroot=$(readlink -f -- "$2")
        shift 2 ;;
esac
arch=${1:-}
is_one_of "$arch" arm64 armhf || refuse "for which board? arm64 or armhf, not '$arch' (see --help)"
task=${2:-all}
is_one_of "$task" all build test demo package || refuse "unknown task '$task' (see --help)"
[ $# -le 2 ] || refuse "unknown argument '$3' (see --help)"

run "$root/scripts/setup.sh" build cross

folder=$root/build/sysroot/$arch
# What the product is made from, and what its tests run.
packages=libc6-dev,libstdc++-12-dev,libjpeg62-turbo-dev,libssl-dev,libcli11-dev
packages=$packages,libgtest-dev,libjpeg-turbo-progs,procps,sysvinit-utils,openssl
mkdir -p "$root/build/sysroot"
cleanup() { rm -rf "$folder.new"; }
if [ -n "$sysroot" ]; then
    if [ "$(readlink -f "$folder")" != "$sysroot" ]; then
        rm -rf "$folder" "$root/build/$arch" # what it was configured with
        ln -s "$sysroot" "$folder"
    fi
elif [ ! -L "$folder" ] && [ "$(cat "$folder/packages" 2>/dev/null)" != "$packages" ]; then
    say "making the sysroot $folder"
    extract_debian "$arch" "$packages" "$folder.new"
    # The emulator takes a file of the sysroot for the machine's of that name.
    rm -rf "$folder.new/dev"
    echo "$packages" >"$folder.new/packages"
    rm -rf "$folder" "$root/build/$arch"
    mv "$folder.new" "$folder"
fi

run "$root/scripts/build.sh" "$arch"
case $task in all | test) run "$root/scripts/test.sh" "$arch" ;; esac
case $task in
    all | demo)
        status=0
        reason=$("$root/scripts/sandbox.sh" --for "$root/build/$arch" true 2>&1) || status=$?
        if [ $status = 77 ]; then
            say "the demo is skipped here: $reason"
        else
            run "$root/scripts/demo.sh" --preset "$arch" --out "$root/build/$arch/demo"
        fi ;;
esac
case $task in all | package) run "$root/scripts/package.sh" "$arch" ;; esac
