#!/usr/bin/env bash
# That scripts/abi sees what it is there for: run over this build, against altered stored interfaces.
source "$(dirname "$0")/common.sh"

# A tree of its own, in which nothing is installed or built.
mkdir -p "$scratch/tree/scripts" "$scratch/tree/build" "$scratch/bin"
cp "$source"/scripts/{abi,common.sh,library.sh} "$scratch/tree/scripts"
ln -s "$build" "$scratch/tree/build/release"
printf '#!/bin/sh\n' >"$scratch/tree/scripts/setup"
printf '#!/bin/sh\n[ "$1" != --install ] || exec %s "$@"\n' "$(command -v cmake)" >"$scratch/bin/cmake"
chmod +x "$scratch/tree/scripts/setup" "$scratch/bin/cmake"
stored=$scratch/tree/abi/tolvex-1-x86_64.abi

abi() {
    PATH=$scratch/bin:$PATH "$scratch/tree/scripts/abi" "$@" x86_64 >"$scratch/out" 2>&1
}

# refuses WHAT VERDICT SED: with the stored interface edited the check fails and gives the verdict.
refuses() {
    echo "- $1"
    cp "$scratch/original" "$stored"
    sed -i -E "$3" "$stored"
    ! cmp -s "$scratch/original" "$stored" || fail "the edit changes nothing"
    ! abi || fail "it was accepted"
    grep -q "^$2:" "$scratch/out" || fail "$(cat "$scratch/out")"
}

echo "- the interface of the build itself is accepted"
abi --update || fail "$(cat "$scratch/out")"
cp "$stored" "$scratch/original"
abi || fail "$(cat "$scratch/out")"
! grep -q "$source" "$stored" || fail "it holds a path of this machine"

refuses "a function that went away" INCOMPATIBLE \
    "s/_ZN6Tolvex4Util6NewUidB5cxx11Ev/_ZN6Tolvex4Util6OldUidB5cxx11Ev/"
refuses "a function that was added" ADDED \
    "/<elf-symbol.*NewUid/d; /<function-decl name='NewUid'/,/<.function-decl>/d"
refuses "a value of an enumeration" INCOMPATIBLE "s/(enumerator name='FloatVal' value=')3/\19/"
refuses "a class that grew" INCOMPATIBLE "s/(class-decl name='TimeMonitor' size-in-bits=')256/\1192/"
refuses "a member in another place" INCOMPATIBLE "
    /layout-offset-in-bits='384'/ { N; s/384('.*name='namespaceName')/640\1/ }
    /layout-offset-in-bits='640'/ { N; s/640('.*name='className')/384\1/ }"
refuses "a virtual function in another slot" INCOMPATIBLE "
    s/vtable-offset='4'(.*)/vtable-offset='5'\1/"
refuses "a mark of a merge" UNREADABLE "3000i <<<<<<< HEAD"
