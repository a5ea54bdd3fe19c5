#!/bin/sh
# Runs a command on a private machine: its own process table, empty /opt, /var/log and /run (with /run/lock,
# so /var/run and /var/lock too), root inside.  Nothing of it is seen outside, and nothing of it outlives the
# command, this process (which SIGTERM and SIGHUP end) or the process that started it.
#
#   scripts/sandbox.sh [--for BUILD] COMMAND [ARG...]
#
# Where what the folder BUILD holds was built for another machine, programs of its kind run here as well, emulated, with
# the libraries and the commands of its sysroot; the kernel must let a user namespace have its own binfmt_misc.
#
# Works as root and, where the kernel allows user namespaces, as any user.  Elsewhere the reason is on stderr
# and the exit status is 77 ("skipped" for ctest), or 1 with SANDBOX_REQUIRED=1 in the environment.  Otherwise
# the exit status is the command's, 128 + n when signal n ended it.
set -u
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    --for)
        [ $# -gt 2 ] || refuse '--for needs a folder and a command'
        of_build() { sed -n "s/^$1:[A-Z]*=//p" "$2/CMakeCache.txt" 2>/dev/null; }
        emulator=$(of_build QZ_EMULATOR "$2")
        sysroot=$(of_build CMAKE_SYSROOT "$2")
        shift 2 ;;
    -*) refuse "unknown option '$1' (see --help)" ;;
    '') refuse 'which command? (see --help)' ;;
esac

# The private folders would hide the tree itself.
case $root/ in
    /opt/* | /run/* | /var/log/*) die "the checkout must not lie below /opt, /run or /var/log: $root" ;;
esac

options='--mount --pid --propagation private'

# How the kernel tells an emulated program (see its binfmt-misc document): by the first 20 bytes of the file, padding
# aside, be it an executable or a library that can be one.  The emulator is opened now (F), wherever its programs will
# run, and is told the name that a program was started by (P).
format=
formats=/proc/sys/fs/binfmt_misc
case ${emulator:-} in
    '') ;;
    *qemu-arm*) class=1 kind=28 ;;
    *qemu-aarch64*) class=2 kind=b7 ;;
    *) refuse "unknown emulator '$emulator'" ;;
esac
if [ -n "${emulator:-}" ]; then
    zeros='\x00\x00\x00\x00\x00\x00\x00\x00'
    ones='\xff\xff\xff\xff\xff\xff\xff'
    format=":emulated:M::\x7fELF\x0$class\x01\x01\x00$zeros\x02\x00\x$kind\x00"
    format="$format:$ones\x00$ones\xff\xfe\xff\xff\xff:$emulator:FP"
    export QEMU_LD_PREFIX="$sysroot" format
    [ ! -e "$sysroot/dev/null" ] || die "$sysroot must have no dev/: the emulator would take it for the machine's"
fi

# Whether a machine with these options of unshare can be had; says why not.
can() {
    # shellcheck disable=SC2086  # a list of words, here and below
    unshare "$@" $options --fork --mount-proc sh -c "${format:+mount -t binfmt_misc none $formats &&} true" 2>&1
}

# The machine's own binfmt_misc is left alone: with an emulator it is always a user namespace.
if [ -n "$format" ] || ! as_root=$(can); then
    if as_user=$(can --map-root-user); then
        options="--map-root-user $options"
    else
        # To list its tests a test program needs no sandbox, and ctest needs the list to show what is skipped.
        case " $* " in
            *' --gtest_list_tests '*) exec ${format:+"$emulator" -L "$sysroot"} "$@" ;;
        esac
        say "no private namespaces here: ${as_root:+$as_root; }in a user namespace: $as_user" >&2
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
    if [ -n "${format:-}" ]; then
        mount -t binfmt_misc none /proc/sys/fs/binfmt_misc &&
            printf %s "$format" >/proc/sys/fs/binfmt_misc/register || exit 125
        PATH=$QEMU_LD_PREFIX/usr/sbin:$QEMU_LD_PREFIX/usr/bin:$QEMU_LD_PREFIX/sbin:$QEMU_LD_PREFIX/bin:$PATH
        unset format
    fi
    "$@"
    exit $?'
# shellcheck disable=SC2086
exec setpriv --pdeathsig KILL unshare $options sh -c "$outer" sandbox "$inner" sandbox "$@"
