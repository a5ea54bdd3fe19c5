#!/bin/bash
# Builds the daemon and lets it do its main job on a private appliance with the simulated encoder: a snapshot, a
# rotation, another snapshot, the end.  The pictures and the log are left in a folder.
#
#   scripts/demo.sh [--out DIR] [picture.jpg ...]     DIR: default demo-out/ in the checkout
#
# With pictures the encoder shows those, one after the other, instead of its test card.
# shellcheck disable=SC2015  # A && B || die: nothing follows a die
set -u

root=$(cd "$(dirname "$0")/.." && pwd -P)
say() { printf 'demo: %s\n' "$*"; }
die() { printf 'demo: %s\n' "$*" >&2; exit 1; }
is_jpeg() { [ "$(od -An -tx1 -N3 "$1" 2>/dev/null)" = ' ff d8 ff' ]; }

# ---- inside the sandbox: $1 is a folder with the pictures, and where everything is left ---------------------------
plinta=/opt/tormel/plinta
shared=$plinta/var/tmp
daemon=

log_lines() { cat /var/log/tormel/agent/capture-*.log 2>/dev/null; }

# Waits until the log holds the text that many times; not longer than the daemon lives, nor than 15 seconds.
wait_for() { # TEXT [TIMES]
    local deadline=$((SECONDS + 15))
    until [ "$(log_lines | grep -cF -- "$1")" -ge "${2:-1}" ]; do
        kill -0 "$daemon" 2>/dev/null || die "the daemon ended before it logged '$1'"
        [ "$SECONDS" -lt "$deadline" ] || die "no '$1' in the log within 15 seconds"
        sleep 0.05
    done
}

# One command is one write without a line end.
command_to_pipe() {
    say "-> $1"
    # shellcheck disable=SC2016  # for the inner shell
    timeout 5 sh -c 'printf %s "$1" >"$2"' sh "$1" "$shared/capture.fifo" || die "the pipe does not take '$1'"
}

keep_pictures() { # NUMBER
    is_jpeg "$shared/md_capture.jpg" || die "snapshot $1 is no JPEG file"
    [ "$(head -c 4 "$shared/liveview.gif")" = GIF8 ] || die "live view $1 is no GIF file"
    cp "$shared/md_capture.jpg" "$work/$1-md_capture.jpg" && cp "$shared/liveview.gif" "$work/$1-liveview.gif" ||
        die "cannot keep the pictures"
    say "$1-liveview.gif: $(od -An -tu2 --endian=little -j6 -N4 "$work/$1-liveview.gif" | awk '{print $1 " x " $2}')"
}

appliance() {
    mkdir -p $plinta/agent/latest $shared && cp -RL "$work/pictures" $plinta/pictures &&
        ln -s "$(command -v djpeg)" $plinta/agent/latest/djpeg && echo 1.0.0.0100 >$plinta/version &&
        cp "$root/packaging/liveview_failed.jpg" $shared/ && mkfifo $shared/capture.fifo ||
        die 'cannot set up the private appliance'
    if [ -n "$(ls $plinta/pictures)" ]; then export XENC_PICTURE=$plinta/pictures; fi

    "$root/build/release/capture/capture" --debug >"$work/console.txt" 2>&1 &
    daemon=$!
    trap 'log_lines >"$work/capture.log"' EXIT
    wait_for ' * TORMEL PLINTA CAPTURE [Ready]'
    wait_for 'Initialize succeed'
    wait_for 'MdState : STATE_ENCODING'
    say 'the daemon is up'

    command_to_pipe capture_run
    wait_for 'Resize complete' 1
    keep_pictures 1
    command_to_pipe screenMode1
    wait_for 'ScreenModeChange success'
    wait_for 'MdState : STATE_ENCODING' 2
    command_to_pipe capture_run
    wait_for 'Resize complete' 2
    keep_pictures 2
    command_to_pipe capture_end

    local deadline=$((SECONDS + 10)) status=0
    while kill -0 "$daemon" 2>/dev/null; do
        [ "$SECONDS" -lt "$deadline" ] || die 'the daemon did not end within 10 seconds'
        sleep 0.05
    done
    wait "$daemon" || status=$?
    say "the daemon ended with exit status $status"
    exit "$status"
}

if [ "${1:-}" = --appliance ]; then
    work=$2
    appliance
fi

# ---- outside ------------------------------------------------------------------------------------------------------
out=$root/demo-out
pictures=()
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) sed -n '2,7s/^# \{0,1\}//p' "$0"; exit 0 ;;
        --out) [ $# -ge 2 ] || die '--out needs a folder'; out=$2; shift ;;
        --out=*) out=${1#--out=} ;;
        -*) die "unknown option $1 (see --help)" ;;
        *) is_jpeg "$1" || die "not a readable JPEG file: $1"; pictures+=("$1") ;;
    esac
    shift
done
case $root/ in
    /opt/* | /run/* | /var/log/*) die "the checkout must not lie below /opt, /run or /var/log, which are private in the demo: $root" ;;
esac
mkdir -p "$out" && out=$(cd "$out" && pwd) && [ -w "$out" ] || die "cannot write to $out"

"$root/scripts/setup.sh" build test demo && "$root/scripts/build.sh" release capture || die 'the daemon could not be built'
"$root/scripts/sandbox.sh" true || exit 1

work=$(mktemp -d "$root/build/demo.XXXXXX") || die "cannot write to $root/build"
trap 'rm -rf "$work"' EXIT
mkdir "$work/pictures"
for i in "${!pictures[@]}"; do
    cp -- "${pictures[i]}" "$work/pictures/$(printf %03d "$((i + 1))").jpg" || die "cannot copy ${pictures[i]}"
done

say "starting the daemon on a private appliance${pictures[0]:+, ${#pictures[@]} picture(s) of yours in front of it}"
status=0
"$root/scripts/sandbox.sh" "$root/scripts/demo.sh" --appliance "$work" || status=$?

results=(1-md_capture.jpg 1-liveview.gif 2-md_capture.jpg 2-liveview.gif capture.log console.txt)
for file in "${results[@]}"; do
    rm -f "$out/$file"
    [ ! -e "$work/$file" ] || cp "$work/$file" "$out/$file" || status=1
done
if [ "$status" = 0 ]; then
    say 'the last lines of its log:'
    tail -n 8 "$out/capture.log"
    say "pictures and log are in $out"
else
    { cat "$out/console.txt" "$out/capture.log" 2>/dev/null
      printf 'demo: FAILED; its output and log stand above and in %s\n' "$out"; } >&2
    exit 1
fi
