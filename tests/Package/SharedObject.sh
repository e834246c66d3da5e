#!/usr/bin/env bash
# The library as the loader sees it: its name, its size, what it needs, what it exports, what it runs
# on load. --figures prints its sizes as lines "NAME NUMBER" instead.
source "$(dirname "$0")/common.sh"

# The libraries that it needs, by name.
needed() {
    readelf -d "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p'
}

# The names in its dynamic symbol table, readable.
exported() {
    "${tools}nm" -DC --defined-only "$library" | cut -d ' ' -f 3- | LC_ALL=C sort -u
}

# How many functions run on load, without the compiler's own.
load_time_functions() {
    local class bytes own
    class=$(readelf -h "$library" | sed -n 's/.*Class: *ELF//p')
    bytes=$(readelf -SW "$library" | sed -n 's/.*INIT_ARRAY *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\).*/\1/p')
    own=$("${tools}nm" "$library" | grep -cE ' (frame_dummy|init_have_lse_atomics)$') || true
    echo $((0x$bytes / (class / 8) - own))
}

"${tools}strip" --strip-unneeded -o "$scratch/stripped" "$library"
stripped=$(stat -c %s "$scratch/stripped")

if [ "$mode" = --figures ]; then
    read -r text data bss _ < <("${tools}size" "$scratch/stripped" | tail -n 1)
    echo "stripped_bytes $stripped"
    echo "text_bytes $text"
    echo "data_bytes $data"
    echo "bss_bytes $bss"
    echo "libraries_needed $(needed | wc -l)"
    readelf -rW "$library" |
        awk '/^Relocation section/ { count += $(NF - 1) } END { print "relocations", count }'
    echo "functions_run_on_load $(load_time_functions)"
    echo "exported_symbols $(exported | wc -l)"
    exit
fi

echo "- the name"
[ "$(basename "$library")" = "libtolvex.so.$(project_version)" ] || fail "$library"
readelf -d "$library" | grep -q 'SONAME.*\[libtolvex\.so\.1\]' || fail "the SONAME"

echo "- that it stays loaded, for the threads that run its code, and that its code is shared"
readelf -d "$library" | grep -q 'Flags:.*NODELETE' || fail "dlclose() may unload it"
! readelf -d "$library" | grep TEXTREL || fail "it has text relocations"

echo "- the size: at most 300 KiB without symbols for the device"
[ "$compiler" = "${compiler#arm-}" ] || [ "$stripped" -le $((300 * 1024)) ] || fail "$stripped bytes"

echo "- what it needs"
# ld-linux is a part of the C library; thread-local variables are found through it.
! needed | grep -vE -e '^(libcrypto\.so\.3|libuuid\.so\.1|libstdc\+\+\.so\.6)$' \
    -e '^(libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux.*)$' ||
    fail "it needs more"

echo "- what it exports: the public interface and main, nothing else"
exported >"$scratch/exported"
grep -qx main "$scratch/exported" || fail "main is missing"
! grep -vE '^main$|(^| )Tolvex::' "$scratch/exported" || fail "foreign symbols"
private=$(find "$source/Tolvex" -path '*/Private/*.h' -exec \
    sed -nE 's/^(class|struct) ([A-Z][A-Za-z]*)( : .*)?$/\2/p' {} + | paste -sd '|')
! grep -E "(^| |::)(Base|$private)(::|$)" "$scratch/exported" || fail "private symbols"

echo "- what it runs on load: the standard streams' initialisation of its source files, nothing else"
functions=$(load_time_functions)
initialisers=$("${tools}nm" "$library" | grep -c ' _GLOBAL__sub_I_.*\.cpp$') || true
[ "$functions" -eq "$initialisers" ] ||
    fail "$functions functions run on load; $initialisers initialise source files"
calls=$("${tools}objdump" -d --no-show-raw-insn "$library" | awk '
    /^[0-9a-f]+ <(_GLOBAL__sub_I_|_Z41__static_initialization|__cxx_global_var_init)/ { inside = 1 }
    /^$/ { inside = 0 }
    inside && /\t(call|jmp|blx?|b(\.[nw])?)[ \t]/ && match($0, /<[^>]*>/) {
        print substr($0, RSTART + 1, RLENGTH - 2)
    }')
grep -q '^_ZNSt8ios_base4InitC1Ev' <<<"$calls" || fail "found no initialisation of the streams"
! grep -vE '^(_ZNSt8ios_base4InitC1Ev|__(cxa|aeabi)_atexit|_Z41__static_initialization|__cxx_global_var_init)' \
    <<<"$calls" || fail "other functions run on load"
