#!/bin/sh
# Makes the board's packages in build/packages: plinta-capture_VERSION_ARCH.deb, the same tree as a .tar.gz for boards
# without dpkg, and the debugger's symbols (-dbgsym).  The same commit gives the same bytes wherever it is built.
#
#   scripts/package.sh [ARCH]              ARCH: amd64, arm64, armhf; default: this machine's
#   scripts/package.sh test [ARCH]         makes it and proves it in a bare root: install, a snapshot, an upgrade while
#                                          it runs, removal, purge; then lintian
#   scripts/package.sh reproduce [ARCH]    makes it once more in another folder and compares; needs a clean checkout
set -eu
. "$(dirname "$(readlink -f "$0")")/lib.sh"

task='make'
case ${1:-} in
    -h | --help) usage; exit 0 ;;
    test | reproduce) task=$1; shift ;;
esac
[ $# -le 1 ] || refuse "unknown argument '$2' (see --help)"
command -v dpkg-deb >/dev/null || die 'packages need dpkg-deb'
arch=${1:-$(dpkg --print-architecture)}
is_one_of "$arch" amd64 arm64 armhf || refuse "unknown architecture '$arch'; architectures: amd64 arm64 armhf"
cd "$root"
preset=$arch
[ "$arch" != "$(dpkg --print-architecture)" ] || preset=release

packages=$root/build/packages
work=$root/build/package-$arch.$$
cleanup() { rm -rf "$work"; }
rm -rf "$work"
mkdir -p "$work" "$packages"

if [ "$preset" = release ]; then
    run scripts/setup.sh build
    run scripts/build.sh release capture capturectl version
else
    run scripts/cross.sh "$arch" build
fi
build=$root/build/$preset
version=$(cat "$build/version/version.txt")
# Every time in the package is the commit's.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CMakeLists.txt)}
export SOURCE_DATE_EPOCH

tool() { sed -n "s/^CMAKE_$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
elf() { LC_ALL=C readelf -W "$@"; }

# The packages that programs need, of the versions of the interfaces that they use.
dependencies() { # PROGRAM...
    elf -dV "$@" |
        sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p; s/.*Name: \([A-Z]*\)_\([0-9.]*\)  Flags.*/\1 \2/p' | sort -uV |
        awk '
            /^GLIBC /    { c = ">= " $2 }
            /^GLIBCXX /  { cxx = $2 }
            /^lib/ || /^ld-/ { needs[$1] = 1 }
            END {
                # The release of the compiler that brought an interface of its library.
                split(cxx, part, ".")
                release[26] = 9; release[28] = 9; release[29] = 11; release[30] = 12; release[32] = 13; release[33] = 14
                for (minor = part[3]; minor < 34 && !(minor in release); ++minor);
                cplus = ">= " (minor < 34 ? release[minor] : 15)
                package["libc.so.6"] = "libc6 (" c ")"
                package["libstdc++.so.6"] = "libstdc++6 (" cplus ")"
                package["libgcc_s.so.1"] = "libgcc-s1"
                package["libjpeg.so.62"] = "libjpeg62-turbo"
                package["libjpeg.so.8"] = "libjpeg-turbo8 | libjpeg8"
                package["libjpeg.so.9"] = "libjpeg9"
                for (name in needs) {
                    if (name in package)
                        print package[name]
                    else if (name !~ /^(libxenc|ld-|lib(m|pthread|rt|dl)\.)/)
                        print "no-package-for-" name
                }
            }' | sort | paste -sd, | sed 's/,/, /g'
}

# Puts the package's tree together.
stage() {
    tree=$work/tree
    symbols=$work/symbols
    for component in daemon documents; do
        DESTDIR=$tree cmake --install "$build" --component $component >"$work/install.log" 2>&1 ||
            { cat "$work/install.log" >&2; exit 1; }
    done
    for program in "$tree"/opt/tormel/plinta/agent/latest/*; do
        id=$(elf -n "$program" | sed -n 's/.*Build ID: \([0-9a-f]*\)$/\1/p')
        debug=$symbols/usr/lib/debug/.build-id/$(printf %s "$id" | cut -c 1-2)/$(printf %s "$id" | cut -c 3-).debug
        mkdir -p "${debug%/*}"
        "$(tool OBJCOPY)" --only-keep-debug --compress-debug-sections "$program" "$debug"
        chmod 644 "$debug"
        "$(tool STRIP)" --remove-section=.comment "$program"
        packaging/check-binary.sh "$program" "$debug" || die 'this is not what packaging/hardening.cmake asks for'
    done
    case $arch/$(elf -h "$program" | sed -n 's/ *Machine: *//p') in
        amd64/*X86-64 | arm64/AArch64 | armhf/ARM) ;;
        *) die "$build holds programs of another architecture than $arch" ;;
    esac

    mkdir -p "$tree/usr/lib/tmpfiles.d" "$tree/usr/share/plinta-capture" "$tree/usr/share/lintian/overrides"
    cp packaging/debian/tmpfiles.conf "$tree/usr/lib/tmpfiles.d/plinta-capture.conf"
    cp packaging/liveview_failed.jpg "$tree/usr/share/plinta-capture/"
    cp packaging/debian/overrides "$tree/usr/share/lintian/overrides/plinta-capture"
    documents=$tree/usr/share/doc/plinta-capture
    cp packaging/debian/copyright "$documents/"
    gzip -9n "$tree"/usr/share/man/man?/*
    mkdir -p "$symbols/usr/share/doc"
    ln -s plinta-capture "$symbols/usr/share/doc/plinta-capture-dbgsym"
    find "$tree" "$symbols" -type d -exec chmod 755 {} +
    find "$tree/usr" -type f -exec chmod 644 {} +
}

# Makes a .deb of a tree with a control file (on standard input) and these other members.
deb() { # TREE FILE [MEMBER...]
    mkdir -p "$1/DEBIAN"
    sed "s/@VERSION@/$deb_version/; s/@ARCH@/$arch/; s/@DEPENDS@/$depends/;
         s/@SIZE@/$(du -sk --apparent-size --exclude=DEBIAN "$1" | cut -f 1)/" >"$1/DEBIAN/control"
    target=$2
    from=$1
    shift 2
    for member in "$@"; do
        install -m 755 "$member" "$from/DEBIAN/"
    done
    (cd "$from" && find . -path ./DEBIAN -prune -o -type f -print | sed 's,^\./,,' | LC_ALL=C sort | xargs md5sum) \
        >"$from/DEBIAN/md5sums"
    chmod 644 "$from/DEBIAN/md5sums" "$from/DEBIAN/control"
    find "$from" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    dpkg-deb --root-owner-group -Zxz --build "$from" "$target" >/dev/null
}

# Makes the packages of a staged tree in a folder.
pack() { # FOLDER VERSION
    deb_version=$2
    {
        printf 'plinta-capture (%s) unstable; urgency=medium\n\n' "$deb_version"
        printf '  * Built from that commit; its history has the changes.\n\n'
        printf ' -- Tormel Plinta maintainers <plinta@tormel.example>  '
        LC_ALL=C date -uRd "@$SOURCE_DATE_EPOCH"
    } | gzip -9n >"$documents/changelog.gz"

    depends=$(dependencies "$tree"/opt/tormel/plinta/agent/latest/*)
    case $depends in *no-package-for*) die "the programs need libraries of no known package: $depends" ;; esac
    rm -rf "$tree/DEBIAN" "$symbols/DEBIAN"
    find "$tree" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    tar -C "$tree" --sort=name --owner=0 --group=0 --numeric-owner --format=gnu -cf - . |
        gzip -9n >"$1/plinta-capture_${deb_version}_$arch.tar.gz"
    deb "$tree" "$1/plinta-capture_${deb_version}_$arch.deb" \
        packaging/debian/postinst packaging/debian/prerm packaging/debian/postrm <packaging/debian/control
    deb "$symbols" "$1/plinta-capture-dbgsym_${deb_version}_$arch.deb" <packaging/debian/control-dbgsym
}

rm -f "$packages"/*_"$arch".*
stage
pack "$packages" "$version"
package=$packages/plinta-capture_${version}_$arch.deb
say "$package: $(stat -c %s "$package") bytes, needs $depends"

case $task in
    reproduce)
        [ -z "$(git status --porcelain)" ] || die 'the checkout has changes; what is built elsewhere is the commit'
        other=$work/another/place/with/a/longer/name
        git clone --quiet "$root" "$other"
        # The same system to build for.
        mkdir -p "$other/build"
        [ ! -d build/sysroot ] || ln -s "$root/build/sysroot" "$other/build/sysroot"
        run "$other/scripts/package.sh" "$arch"
        for file in "$packages"/*_"${version}_$arch".*; do
            cmp "$file" "$other/build/packages/${file##*/}" || die 'the same commit gave other bytes'
        done
        say 'the same bytes from another folder' ;;
    test)
        run scripts/setup.sh package
        pack "$work" "$version.upgrade"
        run scripts/package-test.sh "$package" "$work/plinta-capture_$version.upgrade_$arch.deb" "$build"
        lintian --allow-root --fail-on error "$package" "$packages/plinta-capture-dbgsym_${version}_$arch.deb"
        say 'lintian has nothing against it' ;;
esac
