#!/usr/bin/env bash
# The library as the loader sees it: its name, what it needs, what it exports, what it runs on load.
# After a change of the public interface: tests/Package/SharedObject.sh BUILD COMPILER --update
source "$(dirname "$0")/common.sh"
library=$(readlink -f "$build/libtolvex.so")
list=$source/tests/Package/ExportedSymbols.txt

echo "- the name"
[ "$(basename "$library")" = "libtolvex.so.$(project_version)" ] || fail "$library"
readelf -d "$library" | grep -q 'SONAME.*\[libtolvex\.so\.1\]' || fail "the SONAME"

echo "- that it stays loaded, for the threads that run its code"
readelf -d "$library" | grep -q 'Flags:.*NODELETE' || fail "dlclose() may unload it"

echo "- what it needs"
foreign=$(foreign_needed "$library")
[ -z "$foreign" ] || fail "needs $foreign"

echo "- what it exports: the public interface and main, nothing else"
exported "$library" >"$scratch/exported"
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
foreign=$(foreign_initialisation "$library")
[ -z "$foreign" ] || fail "$foreign"
