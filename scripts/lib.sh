# shellcheck shell=sh
# What the scripts share.  Each reads it in from its own folder, also when it was reached by a link.

self=$(readlink -f "$0")
# shellcheck disable=SC2034  # for those who read this in
root=$(dirname "$(dirname "$self")")
name=$(basename "$self" .sh)

say() { printf '%s: %s\n' "$name" "$*"; }
die() { say "$*" >&2; exit 1; }
refuse() { say "$*" >&2; exit 2; } # wrong arguments

# Prints the comment at the top of the script, for --help.
usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$self"; }
