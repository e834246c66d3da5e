#!/usr/bin/env bash
# The library as the loader sees it: its name, what it needs, what it exports, what it runs on load.
# After a change of the public interface: tests/Package/SharedObject.sh BUILD COMPILER --update
source "$(dirname "$0")/common.sh"
library=$(readlink -f "$build/libtolvex.so")
list=$source/tests/Package/ExportedSymbols.txt

echo "- the name"
[ "$(basename "$library")" = libtolvex.so.1.0.0 ] || fail "$library"
readelf -d "$library" | grep -q 'SONAME.*\[libtolvex\.so\.1\]' || fail "the SONAME"

echo "- that it stays loaded, for the threads that run its code"
readelf -d "$library" | grep -q 'Flags:.*NODELETE' || fail "dlclose() may unload it"

echo "- what it needs"
needed=$(readelf -d "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p')
for name in $needed; do
    case "$name" in
    libcrypto.so.3 | libuuid.so.1 | libstdc++.so.6 | libgcc_s.so.1 | libm.so.6 | libc.so.6) ;;
    ld-linux*) ;; # part of the C library; thread-local variables are found through it
    *) fail "needs $name" ;;
    esac
done

echo "- what it exports: the public interface and main, nothing else"
nm -DC --defined-only "$library" | cut -d ' ' -f 3- | sort -u >"$scratch/exported"
if [ "${3-}" = --update ]; then
    cp "$scratch/exported" "$list"
    exit 0
fi
diff -u "$list" "$scratch/exported" || fail "the dynamic symbols differ from ExportedSymbols.txt"
grep -qx main "$list" || fail "main is missing"
if grep -vE '^(main|((vtable|typeinfo|typeinfo name|guard variable) for |(non-)?virtual thunk to )?Tolvex::.*|.* Tolvex::.*)$' "$list"; then
    fail "foreign symbols"
fi

echo "- what it runs on load: the standard streams' initialisation of its source files, nothing else"
bytes=$(readelf -SW "$library" | sed -n 's/.*INIT_ARRAY *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\).*/\1/p')
initialisers=$(nm "$library" | grep -c ' _GLOBAL__sub_I_.*\.cpp$')
[ $((0x$bytes / 8)) -eq $((initialisers + 1)) ] || fail "a constructor that is no initialisation"
objdump -d --no-show-raw-insn "$library" | awk '
    /^[0-9a-f]+ <(_GLOBAL__sub_I_|_Z41__static_initialization|__cxx_global_var_init)/ { inside = 1 }
    /^$/ { inside = 0 }
    inside && /(call|jmp) / && match($0, /<[^>]*>/) { print substr($0, RSTART + 1, RLENGTH - 2) }
' >"$scratch/called"
grep -q '^_ZNSt8ios_base4InitC1Ev' "$scratch/called" || fail "found no initialisation of the streams"
if grep -vE '^(_ZNSt8ios_base4InitC1Ev|__cxa_atexit|_Z41__static_initialization|__cxx_global_var_init)' \
    "$scratch/called"; then
    fail "something else runs on load"
fi
