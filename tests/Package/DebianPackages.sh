#!/usr/bin/env bash
# Makes the two Debian packages and checks their contents.
source "$(dirname "$0")/common.sh"

(cd "$build" && cpack -G DEB -B "$scratch" >"$scratch/cpack.log" 2>&1) || fail "$(cat "$scratch/cpack.log")"
architecture=$([ -n "$tools" ] && echo armhf || dpkg --print-architecture)
version=$(project_version)
runtime=$scratch/libtolvex1_${version}_$architecture.deb
dev=$scratch/libtolvex-dev_${version}_$architecture.deb

for package in "$runtime" "$dev"; do
    dpkg-deb -c "$package" >"$package.files"
done

# has PACKAGE PATTERN / lacks PACKAGE PATTERN: about the paths in a package.
has() { grep -q -- "$2" "$1.files" || fail "$(basename "$1") lacks $2"; }
lacks() { ! grep -- "$2" "$1.files" || fail "$(basename "$1") has $2"; }

has "$runtime" '/libtolvex.so.1$\|/libtolvex.so.1 -> '
has "$runtime" "/libtolvex.so.$version\$"
has "$runtime" '/bin/tolvex-driver$'
lacks "$runtime" '\.h$\|\.cmake$\|\.pc$\|libtolvex.so '
has "$dev" '/include/Tolvex/Tolvex.h$'
has "$dev" '/libtolvex.so -> libtolvex.so.1$'
has "$dev" '/TolvexConfig.cmake$'
has "$dev" '/tolvex.pc$'
lacks "$dev" "/libtolvex.so.$version\$\|/bin/"

depends=$(dpkg-deb -f "$runtime" Depends)
[[ $depends == *libc6* && $depends == *libstdc++6* ]] || fail "the runtime depends on '$depends'"
# A cross build states the C library by hand, so it has to ask for what the newest symbol needs.
newest=$(readelf -V "$library" | grep -oE 'GLIBC_[0-9.]+' | sort -Vu | tail -n 1)
asked=$(sed -n 's/.*libc6 (>= \([0-9.]*\)).*/\1/p' <<<"$depends")
dpkg --compare-versions "$asked" ge "${newest#GLIBC_}" || fail "depends on libc6 $asked, needs $newest"
[ "$(dpkg-deb -f "$runtime" Architecture)" = "$architecture" ] || fail "the architecture"
[ "$(dpkg-deb -f "$dev" Depends)" = "libtolvex1 (= $version)" ] || fail "what dev depends on"

# The dependency that dpkg-shlibdeps gives to a program that uses the library.
[ "$(dpkg-deb -I "$runtime" shlibs)" = "libtolvex 1 libtolvex1 (>= $version)" ] || fail "no shlibs"

dpkg-deb -x "$runtime" "$scratch/unpacked"
file "$(find "$scratch/unpacked" -name "libtolvex.so.$version")" | grep -q ' stripped$' || fail "not stripped"
