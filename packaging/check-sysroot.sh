#!/bin/sh
# Whether programs start on a board: every library that they need is in its system, in the versions that they ask for.
# The encoder library, which the board's maker adds, may be missing.
#
#   packaging/check-sysroot.sh SYSROOT PROGRAM...
set -eu
. "$(dirname "$(readlink -f "$0")")/../scripts/lib.sh"

case ${1:-} in -h | --help) usage; exit 0 ;; esac
[ $# -gt 1 ] || refuse 'needs a sysroot and a program (see --help)'
sysroot=$1
shift

for program in "$@"; do
    [ -f "$program" ] || die "there is no program $program"
    # One line for each library and version: the name alone when any version does.
    LC_ALL=C readelf -dVW "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p
        s/.*Version: 1  File: \([^ ]*\) .*/@\1/p; s/.*Name: \([^ ]*\)  Flags.*/=\1/p' |
        awk '/^@/ { file = substr($0, 2); next } /^=/ { print file, substr($0, 2); next } { print }' |
        while read -r library version; do
            file=$(find "$sysroot"/lib "$sysroot"/usr/lib -name "$library" 2>/dev/null | head -n 1)
            [ -n "$file" ] || case $library in libxenc.so*) continue ;; *) die "$sysroot has no $library" ;; esac
            [ -z "$version" ] || LC_ALL=C readelf -VW "$file" 2>/dev/null | grep -qE "Name: $version( |\$)" ||
                die "$(basename "$program") asks for $version, which $library in $sysroot does not have:" \
                    'it would not start there (packaging/README.md, "A board with an older system")'
        done
done
