#!/bin/sh
# Makes every system call of a short session fail, one at a time: start, snapshot, SIGTERM, end.  No session may crash
# or last longer than five seconds from the signal on, and none may hinder the next start, which follows each of them.
# Ends with the number of sessions and of those that did.
#
#   scripts/sweep.sh [--short] [CALL...]      default: all of the session's calls; a quarter of an hour
#
# Short: one error instead of three, and of each call the first three times in a thread; a minute.
# Not among the calls: close, whose failure here would leave the descriptor open, as the kernel never does;
# rt_sigprocmask, which does not fail; futex, whose failure the C library answers by ending the process.
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in
    -h | --help) usage; exit 0 ;;
    -*) [ "$1" = --short ] || refuse "unknown option '$1' (see --help)" ;;
esac
if [ -z "${QZ_SWEEP:-}" ]; then
    run "$root/scripts/setup.sh" build test sweep
    run "$root/scripts/build.sh" release capture
    QZ_SWEEP=1 run "$root/scripts/appliance.sh" sh "$self" "$@"
    exit
fi

# ---- on the private appliance ---------------------------------------------------------------------------------------
left_out='close|rt_sigprocmask|futex|execve|vfork|exit|exit_group|rt_sigreturn|restart_syscall'
errors='EIO EINTR ENOMEM'
most=1000
if [ "${1:-}" = --short ]; then
    errors=EIO
    most=3
    shift
fi
shared=/opt/tormel/plinta/var/tmp
log=/var/log/tormel/agent
limit=250 # of the waits, in fiftieths of a second
pid=

logged() { grep -qsF -- "$1" $log/capture-*.log; }
alive() { kill -0 "$pid" 2>/dev/null; }
wait_while() { # LIMIT COMMAND...: for as long as the command succeeds and the daemon lives
    left=$1
    shift
    while [ "$left" -gt 0 ] && alive && "$@"; do
        sleep 0.02
        left=$((left - 1))
    done
}
not_logged() { ! logged "$1"; }

# One session, under the command that is named.  Its exit status goes to $status, or hang.
session() {
    rm -rf $log $shared/capture.fifo
    mkfifo $shared/capture.fifo
    "$@" /opt/tormel/plinta/agent/latest/capture --debug >/opt/output 2>&1 &
    pid=$!
    wait_while $limit not_logged 'Initialize succeed'
    if alive; then
        timeout 1 sh -c "printf capture_run >$shared/capture.fifo" || :
        wait_while 25 not_logged 'Resize complete'
        # shellcheck disable=SC2046  # none, or one
        kill -TERM $(pidof capture) 2>/dev/null || :
    fi
    wait_while $limit true
    if alive; then
        # shellcheck disable=SC2046
        kill -KILL $(pidof capture) "$pid" || :
        wait "$pid" 2>/dev/null || :
        status=hang
        return
    fi
    status=0
    wait "$pid" || status=$?
}

report() {
    bad=$((bad + 1))
    say "$1"
    tail -n 3 $log/capture-*.log 2>/dev/null | cut -c 25-
    cat /opt/output
}

# An orderly end, no start, and the two ways in which nothing of ours has run: the loader gives up, or crashes.  SIGTERM
# itself ends a daemon that could not install its handler for it.
ended_well() {
    case $status in
        0 | 255 | 127 | 143) return 0 ;;
        hang) return 1 ;;
        *) [ ! -e $log ] ;;
    esac
}

session strace -f -o /opt/trace
[ "$status" = 0 ] || die "the session itself fails: status $status"
# shellcheck disable=SC2046  # a list of words
[ $# -gt 0 ] || set -- $(sed -nE 's/^[0-9]+ +([a-z0-9_]+)\(.*/\1/p' /opt/trace | sort -u | grep -vxE "$left_out")
sessions=0
bad=0
for call in "$@"; do
    # The busiest thread's: strace counts in each thread on its own.
    times=$(sed -nE "s/^([0-9]+) +$call\(.*/\1/p" /opt/trace | sort | uniq -c | sort -rn | awk 'NR == 1 { print $1 }')
    n=0
    while [ $((n += 1)) -le "${times:-0}" ] && [ $n -le $most ]; do
        for error in $errors; do
            session strace -f -o /dev/null --seccomp-bpf -e trace="$call" -e inject="$call:error=$error:when=$n"
            ended_well || report "$call, time $n, $error: $status"
            session env
            [ "$status" = 0 ] || report "the start after $call, time $n, $error: $status"
            sessions=$((sessions + 1))
        done
    done
done
say "$sessions sessions of $# calls, $bad bad"
[ "$bad" = 0 ]
