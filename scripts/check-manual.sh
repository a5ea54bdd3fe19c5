#!/bin/sh
# Compares the log statements in the sources with the messages in docs/man/capture-log.5, in both directions, and lets
# mandoc check the manual pages.  A message counts by its level and its first text.
#
#   scripts/check-manual.sh
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    ?*) refuse "unknown argument '$1' (see --help)" ;;
esac
cd "$root"
work=$(mktemp -d)
cleanup() { rm -rf "$work"; }

# What stands in no source: the banner's frame, and what the standard library and the JPEG library say themselves.
others='DBG stoi
ERR JPEG datastream contains no image
INF \*+$'
# shellcheck disable=SC2016  # perl's
find capture common -name '*.cpp' -print0 | xargs -0 perl -0ne '
    while (/QZ_LOG\((\w+),\s*(.*?)\);\n/sg) {
        my ($level, $pieces) = ($1, $2);
        next unless $pieces =~ /"((?:[^"\\]|\\.)*)"/;
        (my $text = $1) =~ s/^\s+|\s+$//g;
        print "$level $text\n";
    }' | LC_ALL=C sort -u >"$work/sources"
sed -n 's/^\.It \([A-Z]*\) Qq /\1 /p' docs/man/capture-log.5 | sed 's/\\e/\\/g' | grep -vE "$others" |
    LC_ALL=C sort -u >"$work/page"
diff "$work/sources" "$work/page" >"$work/differences" || {
    sed -n 's/^</in the sources alone:/p; s/^>/on the page alone:/p' "$work/differences"
    die 'docs/man/capture-log.5 is not what the sources log'
}
[ -s "$work/page" ] || die 'no messages found'
mandoc -T lint -W warning docs/man/*.[1-9]
say "$(wc -l <"$work/page") messages, $(find docs/man -type f | wc -l) pages: as they should be"
