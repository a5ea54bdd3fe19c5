#!/bin/sh
# Starts the desk (scripts/desk.sh) and tests its page in a real browser; leaves that out, and says so, where there is
# no browser (scripts/setup.sh browser installs it) or no sandbox.
#
#   scripts/desk-test.sh [TEST...]     TEST: like Page or Page.test_dropped_picture; default: all
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    -*) refuse "unknown option '$1' (see --help)" ;;
esac
for program in /usr/bin/chromium /usr/bin/chromedriver /usr/share/doc/python3-selenium; do
    [ -e "$program" ] || { say 'left out: no browser here; scripts/setup.sh browser installs it'; exit 0; }
done
status=0
reason=$("$root/scripts/sandbox.sh" true 2>&1) || status=$?
case $status in
    0) ;;
    77) say "left out, it needs a sandbox: $reason"; exit 0 ;;
    *) die "$reason" ;;
esac
work=$(mktemp -d)
desk=
cleanup() {
    [ -z "$desk" ] || kill "$desk" 2>/dev/null || :
    rm -rf "$work"
}
: >"$work/output" # there before the first look at it
"$root/scripts/desk.sh" --port 8180 >"$work/output" 2>&1 &
desk=$!
until address=$(sed -n 's|^desk: http://\([0-9.:]*\)/.*|\1|p' "$work/output") && [ -n "$address" ]; do
    kill -0 $desk 2>/dev/null || { cat "$work/output"; die 'the desk did not start'; }
    sleep 0.1
done
run /usr/bin/python3 "$root/tests/desk/desk_test.py" "$address" "$@"

kill $desk
wait $desk 2>/dev/null || :
desk=
# The kernel takes the sandbox's processes along, which need not be over at once.
/usr/bin/python3 -c 'import socket, sys, time
for _ in range(50):
    if socket.socket().connect_ex((sys.argv[1], int(sys.argv[2]))):
        sys.exit(0)
    time.sleep(0.1)
sys.exit(1)' "${address%:*}" "${address#*:}" ||
    die "its end left something behind: $address still answers"
