#!/bin/sh
# The demo's part on the appliance (scripts/appliance.sh): starts the daemon, sends it commands and keeps its
# pictures.  The exit status is the daemon's.
#
#   scripts/demo-session.sh FOLDER     with pictures/ to be shown and their names; here the results are left
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"
name=demo

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    '') refuse 'this is a part of scripts/demo.sh' ;;
esac
work=$1
plinta=/opt/tormel/plinta
shared=$plinta/var/tmp

log_lines() { cat /var/log/tormel/agent/capture-*.log 2>/dev/null; }
cleanup() { log_lines >"$work/capture.log" || :; }

ended() { [ -e "$work/status" ]; }

# Waits until the command succeeds; not longer than the daemon lives, nor than 15 seconds.
wait_until() { # WHAT COMMAND...
    what=$1
    shift
    tries=0
    until "$@"; do
        ! ended || die "the daemon ended before: $what"
        [ "$tries" -lt 300 ] || die "not within 15 seconds: $what"
        tries=$((tries + 1))
        sleep 0.05
    done
}

in_log() { [ "$(log_lines | grep -cF -- "$1")" -ge "$2" ]; }
wait_for() { wait_until "'$1' in its log" in_log "$1" "${2:-1}"; } # TEXT [TIMES]

# One command is one write without a line end.
command_to_pipe() {
    say "-> $1"
    # shellcheck disable=SC2016  # for the inner shell
    timeout 5 sh -c 'printf %s "$1" >"$2"' sh "$1" $shared/capture.fifo || die "the pipe does not take '$1'"
}

snapshots=0
snapshot() { # OF-WHAT
    snapshots=$((snapshots + 1))
    command_to_pipe capture_run
    wait_for 'Resize complete' $snapshots
    [ "$(od -An -tx1 -N3 $shared/md_capture.jpg)" = ' ff d8 ff' ] || die "snapshot $snapshots is no JPEG file"
    [ "$(head -c 4 $shared/liveview.gif)" = GIF8 ] || die "live view $snapshots is no GIF file"
    cp $shared/md_capture.jpg "$work/$snapshots-md_capture.jpg"
    cp $shared/liveview.gif "$work/$snapshots-liveview.gif"
    size=$(od -An -tu2 --endian=little -j6 -N4 $shared/liveview.gif | awk '{ print $1 " x " $2 }')
    say "$snapshots-liveview.gif: $size, $1"
}

if [ -e "$work/names" ]; then
    export XENC_PICTURE="$work/pictures"
else
    echo 'the test card' >"$work/names"
fi
(
    status=0
    $plinta/agent/latest/capture --debug >"$work/console.txt" 2>&1 || status=$?
    echo $status >"$work/status"
) &
wait_for ' * TORMEL PLINTA CAPTURE [Ready]'
wait_for 'Initialize succeed'
wait_for 'MdState : STATE_ENCODING'
say 'the daemon is up'

while IFS= read -r picture; do
    snapshot "$picture"
done <"$work/names"
command_to_pipe screenMode1
wait_for 'ScreenModeChange success'
wait_for 'MdState : STATE_ENCODING' 2
snapshot "$(head -n 1 "$work/names"), turned"
command_to_pipe capture_end

tries=0
until ended; do
    [ "$tries" -lt 200 ] || die 'the daemon did not end within 10 seconds'
    tries=$((tries + 1))
    sleep 0.05
done
status=$(cat "$work/status")
say "the daemon ended with exit status $status"
exit "$status"
