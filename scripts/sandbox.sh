#!/bin/sh
# Runs a command on a private machine: its own process table, empty /opt, /var/log and /run (with /run/lock,
# so /var/run and /var/lock too), root inside.  Nothing of it is seen outside, and nothing of it outlives the
# command, this process (which SIGTERM and SIGHUP end) or the process that started it.
#
#   scripts/sandbox.sh COMMAND [ARG...]
#
# Works as root and, where the kernel allows user namespaces, as any user.  Elsewhere the reason is on stderr
# and the exit status is 77 ("skipped" for ctest), or 1 with SANDBOX_REQUIRED=1 in the environment.  Otherwise
# the exit status is the command's, 128 + n when signal n ended it.
set -u
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    -*) refuse "unknown option '$1' (see --help)" ;;
    '') refuse 'which command? (see --help)' ;;
esac

# The private folders would hide the tree itself.
case $root/ in
    /opt/* | /run/* | /var/log/*) die "the checkout must not lie below /opt, /run or /var/log: $root" ;;
esac

options='--mount --pid --propagation private'
# shellcheck disable=SC2086  # a list of words, here and below
if ! as_root=$(unshare $options --fork --mount-proc true 2>&1); then
    if as_user=$(unshare --map-root-user $options --fork --mount-proc true 2>&1); then
        options="--map-root-user $options"
    else
        # To list its tests a test program needs no sandbox, and ctest needs the list to show what is skipped.
        case " $* " in *' --gtest_list_tests '*) exec "$@" ;; esac
        say "no private namespaces here: $as_root; in a user namespace: $as_user" >&2
        [ "${SANDBOX_REQUIRED:-0}" = 0 ] && exit 77
        exit 1
    fi
fi

# Two shells.  The outer one is still in the old process table, where signals end it; Ctrl-C it leaves to the
# command.  The inner one, the only process that the outer one may start, is process 1 of the new table: all
# others go with it.  In that place a signal with its default action does nothing, so the command gets a
# process of its own.
# shellcheck disable=SC2016
outer='
    trap : INT QUIT
    setpriv --pdeathsig KILL sh -c "$@"
    exit $?'
# shellcheck disable=SC2016
inner='
    mount -t proc -o nosuid,nodev,noexec proc /proc || exit 125
    for folder in /opt /var/log /run; do
        mount -t tmpfs -o mode=0755,nosuid,nodev sandbox "$folder" || exit 125
    done
    mkdir -m 1777 /run/lock || exit 125
    "$@"
    exit $?'
# shellcheck disable=SC2086
exec setpriv --pdeathsig KILL unshare $options sh -c "$outer" sandbox "$inner" sandbox "$@"
