#!/bin/sh
# Proves a package in a bare Debian made for it, emulated where it is for another architecture: installation, a
# session with a snapshot, an upgrade while the daemon runs, removal, purge.  Nothing that was there is changed, and
# nothing stays.  A part of scripts/package.sh test.
#
#   scripts/package-test.sh PACKAGE.deb NEWER.deb BUILD     BUILD: the build folder that they were made from
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

case ${1:-} in -h | --help) usage; exit 0 ;; esac
[ $# = 3 ] || refuse 'this is a part of scripts/package.sh test'

if [ "${QZ_PACKAGE_TEST:-}" = '' ]; then
    arch=$(dpkg-deb -f "$1" Architecture)
    bare=$root/build/bare/$arch
    if [ ! -d "$bare" ]; then
        say "making the bare system $bare"
        mkdir -p "$root/build/bare"
        needed=base-files,coreutils,dash,diffutils,dpkg,findutils,grep,libc-bin,sed
        extract_debian "$arch" $needed,libjpeg-turbo-progs,libstdc++6,procps,sysvinit-utils "$bare.new" \
            --skip=cleanup/apt/cache
        # What is there counts as installed.
        for deb in "$bare.new"/var/cache/apt/archives/*.deb; do
            dpkg-deb -f "$deb" | sed 's/^Package: .*/&\nStatus: install ok installed/'
            echo
            package=$(dpkg-deb -f "$deb" Package)
            [ "$(dpkg-deb -f "$deb" Multi-Arch)" != same ] || package=$package:$arch
            dpkg-deb --fsys-tarfile "$deb" | tar -t | sed 's,^\.,,; s,/$,,; s,^$,/.,' \
                >"$bare.new/var/lib/dpkg/info/$package.list"
            rm "$deb"
        done >"$bare.new/var/lib/dpkg/status"
        rm -r "$bare.new/var/cache/apt" "$bare.new/var/lib/apt"
        echo 'root:x:0:0:root:/root:/bin/sh' >"$bare.new/etc/passwd"
        echo 'root:x:0:' >"$bare.new/etc/group"
        mv "$bare.new" "$bare"
    fi
    work=$root/build/package-test.$$
    cleanup() { rm -rf "$work"; }
    rm -rf "$work"
    mkdir -p "$work"
    cp -a "$bare" "$work/root"
    # The board brings its own encoder library; this is the simulator.
    cp "$3/xenc/libxenc.so" "$work/root/usr/lib/"
    cp "$1" "$work/root/tmp/first.deb"
    cp "$2" "$work/root/tmp/newer.deb"
    status=0
    QZ_PACKAGE_TEST=$work run "$root/scripts/sandbox.sh" --for "$3" "$self" "$@" || status=$?
    [ $status != 77 ] || { say 'not tested: no sandbox here'; status=0; }
    exit $status
fi

# In the sandbox.
board=$QZ_PACKAGE_TEST/root
log() { cat "$board"/var/log/tormel/agent/capture-*.log 2>/dev/null || :; }
on_board() { chroot "$board" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
dpkg() {
    output=$(on_board dpkg "$@" 2>&1) || { log >&2; die "dpkg $*: $output"; }
}
ctl() { on_board /opt/tormel/plinta/agent/latest/capturectl "$@"; }
start() {
    # Beside dpkg, which the daemon would follow as its child.
    on_board /opt/tormel/plinta/agent/latest/capture --debug >/dev/null 2>&1 &
    ctl wait-ready --timeout 20 >/dev/null || { log >&2; die "$1: the daemon did not start"; }
}
everything() { (cd "$board" && find . -path ./proc -prune -o -path ./dev -prune -o -path './var/lib/dpkg*' -prune -o \
    ! -path './var/log/*.log' ! -path ./run/lock ! -type d -print -o -path './opt*' -print) | sort; }

mkdir -p "$board/dev" "$board/proc" "$board/run/lock"
mount --rbind /dev "$board/dev"
mount --rbind /proc "$board/proc"
mkdir -p "$board/opt/tormel/plinta"
echo 1.0.0.0100 >"$board/opt/tormel/plinta/version"
everything >"$QZ_PACKAGE_TEST/before"

say 'installation'
dpkg --install /tmp/first.deb
[ -p "$board/opt/tormel/plinta/var/tmp/capture.fifo" ] || die 'there is no command pipe'
[ "$(readlink "$board/opt/tormel/plinta/agent/latest/djpeg")" = /usr/bin/djpeg ] || die 'there is no djpeg'

say 'a session'
start 'after the installation'
ctl snapshot -o /tmp/picture.jpg --live-view /tmp/picture.gif --timeout 20 || { log >&2; die 'no snapshot'; }
[ "$(head -c 6 "$board/tmp/picture.gif")" = GIF87a ] || die 'the live view is no GIF'
rm "$board"/tmp/picture.*

say 'an upgrade while it runs'
echo mine >"$board/opt/tormel/plinta/var/tmp/liveview_failed.jpg"
chmod 0622 "$board/opt/tormel/plinta/var/tmp/capture.fifo"
dpkg --install /tmp/newer.deb
log | tail -n 1 | grep -q 'CAPTURE \[Terminated\]' || { log >&2; die 'the running daemon was not ended in order'; }
[ "$(cat "$board/opt/tormel/plinta/var/tmp/liveview_failed.jpg")" = mine ] || die 'the failure picture was overwritten'
[ "$(stat -c %a "$board/opt/tormel/plinta/var/tmp/capture.fifo")" = 622 ] || die "the pipe's mode was changed"
wait
start 'after the upgrade'

say 'removal while it runs'
dpkg --remove plinta-capture
log | tail -n 1 | grep -q 'CAPTURE \[Terminated\]' || { log >&2; die 'the running daemon was not ended in order'; }
[ ! -e "$board/opt/tormel/plinta/agent" ] || die "programs stay: $(ls -R "$board/opt/tormel/plinta/agent")"
[ -e "$board/opt/tormel/plinta/var/tmp/md_capture.jpg" ] || die 'the removal took the pictures'
wait

say 'purge'
dpkg --purge plinta-capture
everything >"$QZ_PACKAGE_TEST/after"
diff "$QZ_PACKAGE_TEST/before" "$QZ_PACKAGE_TEST/after" || die 'that is left, or gone'
say 'nothing is left'
