#!/bin/sh
# The desk: builds, and serves a page on 127.0.0.1 on which the whole appliance can be seen and pressed, with the
# simulated board, on a private appliance (scripts/appliance.sh).  Prints the page's address.  Ctrl-C ends everything
# and leaves nothing.
#
#   scripts/desk.sh [--port N]     default 8080; the next free one when it is taken
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

port=8080
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) usage; exit 0 ;;
        --port=*) port=${1#--port=} ;;
        --port)
            [ $# -gt 1 ] || refuse '--port needs a number'
            port=$2
            shift ;;
        *) refuse "unknown argument '$1' (see --help)" ;;
    esac
    shift
done
case $port in '' | *[!0-9]* | ??????*) refuse "a port is a number from 1 to 65535, not '$port'" ;; esac
reason=$("$root/scripts/sandbox.sh" true 2>&1) || die "$reason"

run "$root/scripts/setup.sh" build desk
run "$root/scripts/build.sh" desk desk capture
# shellcheck disable=SC2016
run "$root/scripts/appliance.sh" --preset desk sh -c 'mkdir /run/desk && exec "$@" /run/desk' sh \
    "$root/build/desk/desk/desk" --port "$port" --page "$root/desk/page"
