#!/bin/sh
# Builds the daemon and lets it do its main job on a private appliance with the simulated encoder: a snapshot,
# a rotation, another snapshot, the end.  The pictures and the log are left in a folder.
#
#   scripts/demo.sh [--preset PRESET] [--out DIR] [--] [PICTURE.jpg ...]     DIR: default demo-out/ in the checkout
#
# With pictures the encoder shows those, in this order, instead of its test card: a snapshot of each, and
# after the rotation another one of the first.
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

out=$root/demo-out
preset=release
# The pictures go behind what is still to be read.
unread=$#
options=yes
while [ "$unread" -gt 0 ]; do
    case $options$1 in
        yes-h | yes--help) usage; exit 0 ;;
        yes--) options=no ;;
        yes--out)
            [ "$unread" -gt 1 ] || refuse '--out needs a folder'
            out=$2
            shift
            unread=$((unread - 1)) ;;
        yes--preset)
            [ "$unread" -gt 1 ] || refuse '--preset needs a name'
            preset=$2
            shift
            unread=$((unread - 1)) ;;
        yes--out=*) out=${1#--out=} ;;
        yes-*) refuse "unknown option '$1' (see --help)" ;;
        *) set -- "$@" "$1" ;;
    esac
    shift
    unread=$((unread - 1))
done

for picture in "$@"; do
    { [ -f "$picture" ] && [ -r "$picture" ]; } || refuse "there is no file $picture that can be read"
done
[ -n "$out" ] || refuse '--out needs a folder'
reason=$(mkdir -p -- "$out" 2>&1) || die "${reason#mkdir: }"
{ [ -w "$out" ] && [ -x "$out" ]; } || die "the folder $out is not writable for $(id -un)"
out=$(readlink -f -- "$out")
run "$root/scripts/setup.sh" build test

# As the daemon will read them.  It would show one that is cut short with its upper part only.
for picture in "$@"; do
    reason=$(djpeg -gif -scale 1/8 -outfile /dev/null <"$picture" 2>&1) ||
        refuse "cannot show $picture: $(printf '%s\n' "$reason" | head -n 1)"
done

run "$root/scripts/build.sh" "$preset" capture
reason=$("$root/scripts/sandbox.sh" --for "$root/build/$preset" true 2>&1) || die "$reason"

work=$root/build/demo.$$
cleanup() { rm -rf "$work"; }
rm -rf "$work"
mkdir -p "$work/pictures"
number=1000
for picture in "$@"; do
    number=$((number + 1))
    cp -- "$picture" "$work/pictures/$number.jpg"
    basename -- "$picture" >>"$work/names"
done

say 'starting the daemon on a private appliance'
status=0
run "$root/scripts/appliance.sh" --preset "$preset" "$root/scripts/demo-session.sh" "$work" || status=$?
[ "$status" != 141 ] || stop PIPE # nobody reads what we say

rm -f "$out"/[0-9]*-md_capture.jpg "$out"/[0-9]*-liveview.gif "$out/capture.log" "$out/console.txt"
for file in "$work"/*-md_capture.jpg "$work"/*-liveview.gif "$work/capture.log" "$work/console.txt"; do
    [ ! -e "$file" ] || cp -- "$file" "$out"
done
if [ "$status" = 0 ]; then
    say 'the last lines of its log:'
    tail -n 8 "$out/capture.log"
    say "pictures and log are in $out"
else
    cat "$out/console.txt" "$out/capture.log" >&2 || :
    die "FAILED; its output and log stand above and in $out"
fi
