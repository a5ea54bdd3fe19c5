#!/bin/sh
# Installs what is missing, builds and runs every test.  Ends with ctest's summary and its exit status.
#
#   scripts/test.sh [PRESET [CTEST-OPTION...]]     scripts/test.sh release -R Snapshot
#
# Every test gets a private /opt, /run and /var/log (scripts/sandbox.sh).  Where the kernel forbids that the tests
# are skipped; with SANDBOX_REQUIRED=1 in the environment they fail instead.
set -eu

case ${1:-} in
    -h | --help) sed -n '2,7s/^# \{0,1\}//p' "$0"; exit 0 ;;
esac
preset=${1:-release}
[ $# -eq 0 ] || shift
here=$(cd "$(dirname "$0")" && pwd -P)

"$here/setup.sh" build test demo
"$here/build.sh" "$preset"
cd "$here/.."
reason=$(scripts/sandbox.sh true 2>&1) || printf 'test: the tests that need a sandbox cannot run here: %s\n' "$reason"
printf 'test: ctest, preset %s\n' "$preset"
exec ctest --preset "$preset" "$@"
