#!/bin/sh
# Pastes the command lines of README.md, its blocks marked "sh", into a shell in a copy of the checkout, one
# block after the other.  A block about the appliance runs on a private one, beside the daemon.
#
#   scripts/check-readme.sh
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    ?*) refuse "unknown argument '$1' (see --help)" ;;
esac

! hidden=$(grep -nE '^    (\./|[a-z]+ )' "$root/README.md") ||
    die "a command line outside the blocks marked sh: $hidden"

work=$root/build/readme.$$
cleanup() { rm -rf "$work"; }
cleanup
mkdir -p "$work/copy"
tar -C "$root" --exclude=./.git --exclude=./build --exclude=./demo-out -cf - . | tar -C "$work/copy" -xf -
awk -v folder="$work" '/^```/ { inside = $0 == "```sh"; number += inside; next }
                       inside { print > (folder "/block" number) }' "$root/README.md"

cd "$work/copy"
for block in ../block*; do
    sed 's/^/readme: $ /' "$block"
    if grep -q /opt/tormel "$block"; then
        # shellcheck disable=SC2016
        set -- scripts/appliance.sh sh -ec '
            /opt/tormel/plinta/agent/latest/capture &
            sh -e "$1"
            until [ -s /opt/tormel/plinta/var/tmp/liveview.gif ]; do sleep 0.1; done' sh "$work/${block##*/}"
    else
        set -- sh -e "$block"
    fi
    # Besides the limit timeout hands a signal to all that the shell has started.
    run timeout 900 "$@" >../log 2>&1 || { tail -n 50 ../log >&2; die 'this does not work as it stands'; }
done
