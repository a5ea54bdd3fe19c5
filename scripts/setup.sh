#!/bin/sh
# Installs what this tree needs from Debian's packages, only what is missing.
#
#   scripts/setup.sh [GROUP...]        groups: build test lint bench coverage sweep fuzz cross package desk browser
#                                      (default: build test)
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

# The packages of a group but those that every Debian has.  a|b: either will do, a is what is installed.
packages_of() {
    case $1 in
        build) echo 'g++ cmake ninja-build libjpeg-dev|libjpeg62-turbo-dev libssl-dev libcli11-dev' ;;
        test) echo 'libgtest-dev libjpeg-turbo-progs openssl' ;;
        lint) echo 'clang-format clang-tidy shellcheck mandoc' ;;
        bench) echo 'libspdlog-dev' ;;
        coverage) echo 'gcovr' ;;
        sweep) echo 'strace' ;;
        fuzz) echo 'clang libclang-rt-14-dev|libclang-rt-dev' ;;
        cross) echo 'g++-aarch64-linux-gnu g++-arm-linux-gnueabihf mmdebstrap qemu-user-static' ;;
        package) echo 'lintian mmdebstrap systemd' ;;
        desk) echo 'libcpp-httplib-dev pkg-config|pkgconf libjpeg-turbo-progs' ;;
        browser) echo 'chromium chromium-driver python3-selenium' ;;
        *)
            refuse "there is no group '$1'; groups: build test lint bench coverage sweep fuzz cross package desk" \
                'browser' ;;
    esac
}

installed() {
    for either in $(echo "$1" | tr '|' ' '); do
        # shellcheck disable=SC2016  # dpkg-query fills this in
        case $(dpkg-query -W -f '${db:Status-Abbrev}\n' "$either" 2>/dev/null) in
            *ii*) return 0 ;;
        esac
    done
    return 1
}

case ${1:-} in -h | --help) usage; exit 0 ;; esac
[ $# -gt 0 ] || set -- build test

wanted=
for group in "$@"; do
    packages=$(packages_of "$group") || exit
    wanted="$wanted $packages"
done

command -v dpkg-query >/dev/null ||
    die "this is no Debian system (no dpkg-query): install by hand what is here called$wanted"

missing=
for package in $wanted; do
    first=${package%%|*}
    # shellcheck disable=SC2086  # a list of words, here and below
    is_one_of "$first" $missing || installed "$package" || missing="${missing:+$missing }$first"
done
if [ -z "$missing" ]; then
    say "everything for $* is installed"
    exit 0
fi

if [ "$(id -u)" = 0 ]; then
    as_root='env'
elif command -v sudo >/dev/null; then
    as_root='sudo env'
else
    die "run this once as root (there is no sudo here): apt-get install --no-install-recommends $missing"
fi

apt() {
    # shellcheck disable=SC2086
    $as_root DEBIAN_FRONTEND=noninteractive apt-get -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" 2>&1
}

# The line of apt-get that says why: a file that it could not fetch rather than what follows from that.
reason() {
    awk '/^[EW]: Failed to fetch/ && !fetch { fetch = $0 }
         /^E: / && !error { error = $0 }
         NF { last = $0 }
         END { line = fetch ? fetch : error ? error : last; sub(/^[EW]: /, "", line); print line }'
}

say "installing $missing"
lists=$(apt update) || say 'the package lists could not be refreshed; using those at hand'
# shellcheck disable=SC2086
if ! output=$(apt install -y --no-install-recommends $missing); then
    die "could not install $missing: $(printf '%s\n%s\n' "$output" "$lists" | reason)"
fi
say 'done'
