# shellcheck shell=sh
# What the scripts share.  Each reads it in from its own folder, also when it was reached by a link.

self=$(readlink -f "$0")
root=$(dirname "$(dirname "$self")")
name=$(basename "$self" .sh)

say() { printf '%s: %s\n' "$name" "$*"; }
die() { say "$*" >&2; exit 1; }
refuse() { say "$*" >&2; exit 2; } # wrong arguments

# Prints the comment at the top of the script, for --help.
usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$self"; }

# Whether the first word is one of the others.
is_one_of() {
    word=$1
    shift
    case " $* " in *" $word "*) return 0 ;; *) return 1 ;; esac
}

# The presets of a kind (configure, build, test) in one line.
presets() {
    sed -n "/\"$1Presets\"/,/^  \]/p" "$root/CMakePresets.json" |
        sed -n '/"hidden"/!s/.*{"name": "\([^"]*\)".*/\1/p' | xargs
}

# Extracts Debian's packages for an architecture, and those that they need, into a new folder.  They come from where
# this machine has its own; nothing of them has to run.
extract_debian() { # ARCH PACKAGE,PACKAGE... FOLDER [OPTION...]
    of=$1
    packages=$2
    into=$3
    shift 3
    rm -rf "$into"
    # shellcheck disable=SC2016  # apt fills this in
    mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME)' 'Identifier: Packages' |
        awk '$2 == "bookworm" { print $1; exit }')
    run mmdebstrap --quiet --architectures="$of" --variant=extract --include="$packages" "$@" \
        bookworm "$into" ${mirror:+"deb $mirror bookworm main"}
}

# Called at the end, however a script ends; one with something to remove has its own.
cleanup() { :; }

# Runs a program that a signal to this script alone ends as well.
run() {
    # In the background a shell has Ctrl-C ignored.
    env --default-signal=INT,QUIT "$@" &
    run_status=0
    wait $! || run_status=$?
    ended=$!
    return "$run_status"
}
ended= # what run has waited for last

# Ends by the signal, as whoever waits for this script expects, and takes along what run has started.
stop() {
    trap '' HUP INT PIPE TERM
    if [ "${!:-}" != "$ended" ]; then
        kill $! 2>/dev/null || :
        wait $! || :
    fi
    cleanup
    trap - EXIT "$1"
    kill -s "$1" $$
}
trap cleanup EXIT
trap 'stop HUP' HUP
trap 'stop INT' INT
trap 'stop PIPE' PIPE
trap 'stop TERM' TERM
