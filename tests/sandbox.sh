#!/bin/sh
# Runs a command on a private machine: its own process table, empty /opt, /var/log and /run (with /run/lock, so
# /var/run and /var/lock too), root inside.  Nothing of it is seen outside or outlives the command.
#
#   tests/sandbox.sh COMMAND [ARG...]
#
# Works as root and, where the kernel allows user namespaces, as any user.  Elsewhere the reason is on stderr and
# the exit status is 77 ("skipped" for ctest), or 1 with SANDBOX_REQUIRED=1 in the environment.  Otherwise the exit
# status is the command's, 128 + n when signal n ended it.  SIGKILL here ends everything inside; unshare holds SIGTERM back.
set -u

case ${1:---help} in
    -h | --help) sed -n '2,9s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac

# The private folders would hide the tree itself.
case $(cd "$(dirname "$0")" && pwd -P)/ in
    /opt/* | /run/* | /var/log/*)
        echo 'sandbox: the checkout must not lie below /opt, /run or /var/log' >&2
        exit 1 ;;
esac

options='--mount --pid --fork --kill-child --mount-proc --propagation private'
# shellcheck disable=SC2086  # a list of words, here and below
if ! as_root=$(unshare $options true 2>&1); then
    if as_user=$(unshare --map-root-user $options true 2>&1); then
        options="--map-root-user $options"
    else
        # To list its tests a test program needs no sandbox, and ctest needs the list to show what is skipped.
        case " $* " in *' --gtest_list_tests '*) exec "$@" ;; esac
        echo "sandbox: no private namespaces here: $as_root; in a user namespace: $as_user" >&2
        [ "${SANDBOX_REQUIRED:-0}" = 0 ] && exit 77
        exit 1
    fi
fi

# The shell stays process 1 (the last exit): in that place a signal with its default action would not end the command.
# shellcheck disable=SC2016,SC2086
exec unshare $options sh -c '
    for folder in /opt /var/log /run; do
        mount -t tmpfs -o mode=0755,nosuid,nodev sandbox "$folder" || exit 125
    done
    mkdir -m 1777 /run/lock || exit 125
    "$@"
    exit $?' sandbox "$@"
