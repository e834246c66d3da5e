# What the scripts and the package tests ask about a built library, of this machine or another one.
# Architectures: x86_64, armhf, arm64.

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# project_version: as CMakeLists.txt states it.
project_version() {
    sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' "$project/CMakeLists.txt" | grep .
}

# expect_driver COMMAND...: the driver's first line is right.
expect_driver() {
    local line
    line=$("$@" | head -n 1) || true
    [ "$line" = "I'm on Main Thread....." ] || fail "the driver printed '$line'"
}

# preset_of ARCHITECTURE / tools_of ARCHITECTURE: its preset, and the prefix of its binary tools.
preset_of() {
    case "$1" in x86_64) echo release ;; armhf) echo arm ;; arm64) echo arm64 ;; esac
}
tools_of() {
    case "$1" in armhf) echo arm-linux-gnueabihf- ;; arm64) echo aarch64-linux-gnu- ;; esac
}

# set_up ARCHITECTURE: installs what its build needs.
set_up() {
    case "$1" in
    x86_64) "$root/scripts/setup" build test ;;
    armhf) "$root/scripts/setup" build test arm ;;
    arm64) "$root/scripts/setup" build arm64 ;;
    esac
}

# build_library ARCHITECTURE [target]...: builds the library, or these targets, in its preset.
build_library() {
    local preset
    preset=$(preset_of "$1")
    use_sysroot "$1"
    shift
    configure "$preset"
    cmake --build "$root/build/$preset" --parallel "$jobs" --target "${@:-Tolvex}" >"$root/build/library.log" ||
        { cat "$root/build/library.log" >&2 && return 1; }
}

# library_of ARCHITECTURE: the file that build_library makes.
library_of() {
    readlink -f "$root/build/$(preset_of "$1")/libtolvex.so"
}

# needed LIBRARY: the libraries that it needs.
needed() {
    readelf -d "$1" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p'
}

# foreign_needed LIBRARY: those among them that it must not need.
foreign_needed() {
    # ld-linux is a part of the C library; thread-local variables are found through it.
    needed "$1" |
        grep -vE '^(libcrypto\.so\.3|libuuid\.so\.1|libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux.*)$' ||
        true
}

# exported LIBRARY [TOOLS]: the names in its dynamic symbol table, readable.
exported() {
    "${2-}nm" -DC --defined-only "$1" | cut -d ' ' -f 3- | LC_ALL=C sort -u
}

# relocations LIBRARY: how many the loader has to process.
relocations() {
    readelf -rW "$1" | awk '/^Relocation section/ { count += $(NF - 1) } END { print count + 0 }'
}

# load_time_functions LIBRARY [TOOLS]: how many functions run on load, the compiler's own left out.
load_time_functions() {
    local class bytes own
    class=$(readelf -h "$1" | sed -n 's/.*Class: *ELF//p')
    bytes=$(readelf -SW "$1" | sed -n 's/.*INIT_ARRAY *[0-9a-f]* [0-9a-f]* \([0-9a-f]*\).*/\1/p')
    own=$("${2-}nm" "$1" | grep -cE ' (frame_dummy|init_have_lse_atomics)$') || true
    echo $((0x$bytes / (class / 8) - own))
}

# foreign_initialisation LIBRARY [TOOLS]: what runs on load besides the standard streams'
# initialisation of source files that include <iostream>.
foreign_initialisation() {
    local functions initialisers calls
    functions=$(load_time_functions "$1" "${2-}")
    initialisers=$("${2-}nm" "$1" | grep -c ' _GLOBAL__sub_I_.*\.cpp$') || true
    [ "$functions" -eq "$initialisers" ] ||
        echo "$functions functions, of which $initialisers are initialisers of source files"
    calls=$("${2-}objdump" -d --no-show-raw-insn "$1" | awk '
        /^[0-9a-f]+ <(_GLOBAL__sub_I_|_Z41__static_initialization|__cxx_global_var_init)/ { inside = 1 }
        /^$/ { inside = 0 }
        inside && /\t(call|jmp|blx?|b(\.[nw])?)[ \t]/ && match($0, /<[^>]*>/) {
            print substr($0, RSTART + 1, RLENGTH - 2)
        }')
    grep -q '^_ZNSt8ios_base4InitC1Ev' <<<"$calls" || echo "found no initialisation of the streams"
    grep -vE '^(_ZNSt8ios_base4InitC1Ev|__(cxa|aeabi)_atexit|_Z41__static_initialization|__cxx_global_var_init)' \
        <<<"$calls" || true
}
