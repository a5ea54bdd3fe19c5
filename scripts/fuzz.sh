#!/bin/sh
# Feeds what reads foreign bytes with made-up ones, under the address and undefined-behaviour sanitizers: each program
# of tests/fuzz for so many seconds.  Stops at the first find; the input that made it is left in build/fuzz.
#
#   scripts/fuzz.sh [SECONDS [NAME...]]     default: 10 seconds, all of them
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in -h | --help) usage; exit 0 ;; esac
seconds=${1:-10}
case $seconds in '' | *[!0-9]*) refuse "how many seconds is '$seconds'? (see --help)" ;; esac
[ $# -eq 0 ] || shift
run "$root/scripts/setup.sh" build fuzz
run "$root/scripts/build.sh" fuzz
cd "$root/build/fuzz"
[ $# -gt 0 ] || set -- characters decryption files pipe signature
for target in "$@"; do
    [ -x "tests/fuzz/fuzz_$target" ] || refuse "there is no fuzz program '$target'"
    log=fuzz_$target.log
    # A session takes its time, and one with a rotation a second more.
    if ! run "$root/scripts/sandbox.sh" "tests/fuzz/fuzz_$target" -max_total_time="$seconds" -max_len=64 \
        -dict="$root/tests/fuzz/words.dict" -timeout=30 -artifact_prefix="$PWD/$target-" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        die "$target found something: $PWD/$log"
    fi
    say "$target: $(sed -n 's/^Done \([0-9]*\) runs.*/\1/p' "$log") runs in $seconds seconds, nothing found"
done
