#!/bin/sh
# Builds the benchmarks and runs them, each on a private appliance (scripts/appliance.sh); prints the figures beside their
# limits.  Takes about a minute and a half, best on a machine that does nothing else.  The exit status is 1 when a figure
# misses its limit.
#
#   scripts/benchmark.sh [NAME...]     names: request log ends library (default: all)
set -eu

case ${1:-} in
    -h | --help) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
root=$(cd "$(dirname "$0")/.." && pwd -P)
say() { printf 'benchmark: %s\n' "$*"; }

"$root/scripts/setup.sh" build test bench
"$root/scripts/build.sh" benchmarks
folder=$root/build/benchmarks/benchmarks
if [ $# -eq 0 ]; then
    set -- log request ends
    [ ! -x "$folder/bench_library" ] || set -- "$@" library
fi
for name in "$@"; do
    [ -x "$folder/bench_$name" ] || { printf 'benchmark: there is no benchmark %s\n' "$name" >&2; exit 2; }
done

begin=$(date +%s)
say "$(nproc) x $(sed -n '/^model name/{s/.*: *//p;q;}' /proc/cpuinfo), Linux $(uname -r), $(c++ --version | head -n 1)"
say "load before: $(cut -d ' ' -f 1-3 /proc/loadavg)"
missed=
for name in "$@"; do
    status=0
    "$root/scripts/appliance.sh" "$folder/bench_$name" || status=$?
    case $status in
        0) ;;
        1) missed="$missed $name" ;;
        *) exit "$status" ;;
    esac
done
say "took $(($(date +%s) - begin)) seconds"
[ -z "$missed" ] || { printf 'benchmark: a figure misses its limit:%s\n' "$missed" >&2; exit 1; }
