#!/bin/sh
# Installs what this tree needs from Debian's packages, only what is missing.
#
#   scripts/setup.sh [GROUP...]        groups: build test demo lint bench (default: build test demo)
set -eu

say() { printf 'setup: %s\n' "$*"; }
die() { printf 'setup: %s\n' "$*" >&2; exit 1; }
usage() { sed -n '2,4s/^# \{0,1\}//p' "$0"; }

# The packages of a group.  a|b: either will do, a is installed when both are missing.
packages_of() {
    case $1 in
        build) echo 'g++ cmake ninja-build libjpeg-dev|libjpeg62-turbo-dev libssl-dev' ;;
        test) echo 'libgtest-dev libgmock-dev libjpeg-turbo-progs openssl procps util-linux sysvinit-utils coreutils libc-bin' ;;
        demo) echo 'libjpeg-turbo-progs util-linux sysvinit-utils coreutils' ;;
        lint) echo 'clang-format clang-tidy shellcheck' ;;
        bench) echo 'libspdlog-dev' ;;
        *) return 1 ;;
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

for word in "$@"; do
    case $word in -h | --help) usage; exit 0 ;; esac
done
[ $# -gt 0 ] || set -- build test demo

command -v dpkg-query >/dev/null ||
    die 'this is no Debian system (no dpkg-query): install the packages listed in scripts/setup.sh by hand'

missing=
for group in "$@"; do
    packages=$(packages_of "$group") || die "unknown group '$group' (build test demo lint bench)"
    for package in $packages; do
        name=${package%%|*}
        case " $missing " in *" $name "*) continue ;; esac
        installed "$package" || missing="${missing:+$missing }$name"
    done
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

log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() { # shellcheck disable=SC2086  # lists of words
    $as_root DEBIAN_FRONTEND=noninteractive apt-get -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" >"$log" 2>&1
}
say "installing $missing"
apt update || say 'the package lists could not be refreshed; using those at hand'
# shellcheck disable=SC2086  # a list of words
if ! apt install -y --no-install-recommends $missing; then
    tail -n 20 "$log" >&2
    die "could not install: $missing"
fi
say 'done'
