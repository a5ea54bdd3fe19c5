#!/bin/sh
# Installs what is missing, builds and runs every test.  Ends with ctest's summary and its exit status; with
# the preset coverage the lines of the product that the tests have run follow.
#
#   scripts/test.sh [PRESET] [CTEST-OPTION...]     scripts/test.sh -R Snapshot
#
# Without preset and options the desk is tested first, in a browser where there is one (scripts/desk-test.sh).
#
# Every test gets a private /opt, /run and /var/log (scripts/sandbox.sh).  Where the kernel forbids that the
# tests are skipped; with SANDBOX_REQUIRED=1 in the environment they fail instead.
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

desk=$#
preset=release
# shellcheck disable=SC2046  # a list of words
case ${1:-} in
    -h | --help) usage; printf 'Presets: %s\n' "$(presets test)"; exit 0 ;;
    -* | '') ;;
    *)
        preset=$1
        shift
        is_one_of "$preset" $(presets test) ||
            refuse "there is no preset '$preset' with tests; presets: $(presets test)" ;;
esac

# ctest itself ignores options that it does not know.
check_options() {
    while [ $# -gt 0 ]; do
        case $1 in
            -[REIj] | --repeat | --timeout) [ $# -gt 1 ] || refuse "$1 needs a value"; shift ;;
            -N | -V | -VV | -j[0-9]* | --rerun-failed | --schedule-random | --stop-on-failure) ;;
            *) refuse "unknown option '$1'; options: -R RE -E RE -I RANGE -j N -N -V -VV --repeat MODE:N" \
                '--rerun-failed --schedule-random --stop-on-failure --timeout SECONDS' ;;
        esac
        shift
    done
}
check_options "$@"

cleanup() { rm -f "$root/build/$preset/Testing/Temporary"/*.tmp; } # of a ctest that was ended

groups='build test'
[ "$preset" != coverage ] || groups="$groups coverage"
# shellcheck disable=SC2086  # a list of words
run "$root/scripts/setup.sh" $groups
run "$root/scripts/build.sh" "$preset"
cd "$root"

status=0
reason=$("$root/scripts/sandbox.sh" --for "build/$preset" true 2>&1) || status=$?
case $status in
    0) ;;
    77) say "the tests that need a sandbox are skipped here: $reason" ;;
    *) die "$reason" ;;
esac

[ "$desk" != 0 ] || run "$root/scripts/desk-test.sh"
say "ctest, preset $preset"
[ "$preset" != coverage ] || find build/coverage -name '*.gcda' -delete
status=0
run ctest --preset "$preset" "$@" || status=$?
[ "$preset" != coverage ] || run gcovr --filter capture/ --filter common/ build/coverage
exit "$status"
