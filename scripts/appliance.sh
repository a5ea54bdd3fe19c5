#!/bin/sh
# Runs a command on a private appliance: in a sandbox (scripts/sandbox.sh) the program directory with the real
# djpeg and the daemon of build/release, where that is built; the version file; the temporary directory with
# the command pipe and the failure picture; the log directory.  Without a command the daemon is built and a
# person gets a shell there.
#
#   scripts/appliance.sh [COMMAND [ARG...]]
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    -*) refuse "unknown option '$1' (see --help)" ;;
    '')
        "$root/scripts/setup.sh" build test
        "$root/scripts/build.sh" release capture
        # shellcheck disable=SC2016
        set -- sh -c 'cd /opt/tormel/plinta/var/tmp; PS1="appliance:\w# " exec bash --norc -i'
        say 'the daemon: capture --debug &    a snapshot: printf capture_run >capture.fifo'
        say 'its log: cat /var/log/tormel/agent/capture-*.log    the pictures: ls -l    back: exit' ;;
esac

djpeg=$(command -v djpeg) || die 'djpeg is missing; scripts/setup.sh test installs it'
# shellcheck disable=SC2016
exec "$root/scripts/sandbox.sh" sh -ec '
    plinta=/opt/tormel/plinta
    mkdir -p $plinta/agent/latest $plinta/var/tmp /var/log/tormel/agent
    ln -s "$2" $plinta/agent/latest/djpeg
    for program in "$1/build/release/capture/capture" "$1/build/release/control/capturectl"; do
        [ ! -x "$program" ] || ln -s "$program" $plinta/agent/latest/
    done
    echo 1.0.0.0100 >$plinta/version
    cp "$1/packaging/liveview_failed.jpg" $plinta/var/tmp/
    mkfifo $plinta/var/tmp/capture.fifo
    export PATH="$plinta/agent/latest:$PATH"
    shift 2
    exec "$@"' appliance "$root" "$djpeg" "$@"
