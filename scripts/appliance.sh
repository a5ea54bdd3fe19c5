#!/bin/sh
# Runs a command on a private appliance: in a sandbox (scripts/sandbox.sh) the program directory with the real
# djpeg and the daemon of build/PRESET (default: release), where that is built; the version file; the temporary
# directory with the command pipe and the failure picture; the log directory.  Without a command the daemon is built
# and a person gets a shell there.  What was built for another machine is emulated.
#
#   scripts/appliance.sh [--preset PRESET] [COMMAND [ARG...]]
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

preset=release
case ${1:-} in
    --preset)
        [ $# -gt 1 ] || refuse '--preset needs a name'
        preset=$2
        shift 2 ;;
esac
case ${1:-} in
    -h | --help) usage; exit 0 ;;
    -*) refuse "unknown option '$1' (see --help)" ;;
    '')
        "$root/scripts/setup.sh" build test
        "$root/scripts/build.sh" "$preset" capture capturectl
        # shellcheck disable=SC2016
        set -- sh -c 'cd /opt/tormel/plinta/var/tmp; PS1="appliance:\w# " exec bash --norc -i'
        say 'the daemon: capture --debug &    a snapshot: printf capture_run >capture.fifo'
        say 'its log: cat /var/log/tormel/agent/capture-*.log    the pictures: ls -l    back: exit' ;;
esac

# shellcheck disable=SC2016
exec "$root/scripts/sandbox.sh" --for "$root/build/$preset" sh -ec '
    plinta=/opt/tormel/plinta
    mkdir -p $plinta/agent/latest $plinta/var/tmp /var/log/tormel/agent
    ln -s "$(command -v djpeg)" $plinta/agent/latest/ ||
        { echo "djpeg is missing; scripts/setup.sh test installs it" >&2; exit 1; }
    for program in "$1/build/$2/capture/capture" "$1/build/$2/control/capturectl"; do
        [ ! -x "$program" ] || ln -s "$program" $plinta/agent/latest/
    done
    echo 1.0.0.0100 >$plinta/version
    cp "$1/packaging/liveview_failed.jpg" $plinta/var/tmp/
    mkfifo $plinta/var/tmp/capture.fifo
    export PATH="$plinta/agent/latest:$PATH"
    shift 2
    exec "$@"' appliance "$root" "$preset" "$@"
