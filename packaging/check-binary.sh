#!/bin/sh
# Whether a program is built as packaging/hardening.cmake says, and holds no path of the machine that built it.
#
#   packaging/check-binary.sh PROGRAM SYMBOLS     SYMBOLS: its debug information, which names the compiler's options
set -eu
. "$(dirname "$(readlink -f "$0")")/../scripts/lib.sh"

case ${1:-} in -h | --help) usage; exit 0 ;; esac
[ $# = 2 ] || refuse 'needs a program and its symbols (see --help)'
program=$1
symbols=$2

bad=0
# Looks for the pattern in standard input.
expect() { # COMPLAINT [!] PATTERN
    complaint=$1
    wanted=yes
    [ "$2" != ! ] || { wanted=no; shift; }
    if LC_ALL=C grep -qaE -- "$2"; then found=yes; else found=no; fi
    [ $found = $wanted ] || { say "$program: $complaint" >&2; bad=1; }
}
elf() { LC_ALL=C readelf -W "$@" "$program" 2>/dev/null; }
# How often these bytes, an instruction that every function which may be jumped to begins with, occur.
often() { LC_ALL=C grep -aoP "$1" "$program" | awk 'END { print (NR > 100 ? "often" : NR) }'; }

elf -h | expect 'not position-independent' 'Type: +DYN'
elf -d | expect 'not marked as a position-independent executable' 'FLAGS_1.* PIE'
elf -l | expect 'its tables stay writable (no relro)' GNU_RELRO
elf -d | expect 'its tables stay writable (no bind-now)' 'FLAGS.*NOW'
elf -l | expect 'its stack is executable' ! 'GNU_STACK.*E '
elf -d | expect 'a path of its own for libraries' ! 'R(UN)?PATH'
elf --dyn-syms | expect 'no stack protector' __stack_chk_fail
elf --dyn-syms | expect 'no fortified functions' '__(snprintf|fdelt|longjmp)_chk'
elf --dyn-syms | expect 'no assertions of the standard library' '__glibcxx_assert_fail'
LC_ALL=C readelf --debug-dump=info "$symbols" 2>/dev/null |
    expect 'no stack-clash protection' 'DW_AT_producer.*-fstack-clash-protection'
strings -a "$program" "$symbols" | expect 'holds a path of the machine that built it' ! "$root/"
elf -n | expect 'no note of the build' Plinta
case $(elf -h | sed -n 's/ *Machine: *//p') in
    *X86-64) often '\xf3\x0f\x1e\xfa' | expect 'no control-flow protection (endbr64)' often ;;
    AArch64) often '\x3f\x23\x03\xd5' | expect 'no branch protection (paciasp)' often ;;
    ARM) elf -A | expect 'no hardware floating point' 'Tag_ABI_VFP_args: VFP registers' ;;
esac
exit $bad
