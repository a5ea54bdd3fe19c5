#!/bin/sh
# Builds the benchmarks and runs them, each on a private appliance (scripts/appliance.sh); prints the figures
# beside their limits.  Takes about a minute and a half, best on a machine that does nothing else.  The exit
# status is 1 when a figure misses its limit.
#
#   scripts/benchmark.sh [NAME...]     names: log request ends library control (default: all)
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in -h | --help) usage; exit 0 ;; esac
all='log request ends library control'
for one in "$@"; do
    # shellcheck disable=SC2086  # a list of words, here and below
    is_one_of "$one" $all || refuse "there is no benchmark '$one'; benchmarks: $all"
done
# shellcheck disable=SC2086
[ $# -gt 0 ] || set -- $all

run "$root/scripts/setup.sh" build test bench
run "$root/scripts/build.sh" benchmarks

begin=$(date +%s)
processor=$(sed -n '/^model name/{s/.*: *//p;q;}' /proc/cpuinfo)
say "$(nproc) x $processor, Linux $(uname -r), $(c++ --version | head -n 1)"
say "load before: $(cut -d ' ' -f 1-3 /proc/loadavg)"
missed=
for one in "$@"; do
    status=0
    run "$root/scripts/appliance.sh" "$root/build/benchmarks/benchmarks/bench_$one" || status=$?
    case $status in
        0) ;;
        1) missed="$missed $one" ;;
        *) exit "$status" ;;
    esac
done
say "took $(($(date +%s) - begin)) seconds"
[ -z "$missed" ] || die "a figure misses its limit:$missed"
