# Shared by the package tests. Their arguments are the build folder, the C++ compiler and, for a cross
# build, the emulator with its arguments; the last of these is the sysroot. A --mode may follow.

set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
mode=
if [[ ${!#} == --* ]]; then
    mode=${!#}
    set -- "${@:1:$#-1}"
fi
build=$1
compiler=$2
command -v "$compiler" >/dev/null || { echo "skipped: needs $compiler" && exit 77; }
emulator=("${@:3}")
compile=("$compiler" -std=c++20 -Wall -Wextra -Werror)
tools=
if [ ${#emulator[@]} -gt 0 ]; then
    compile+=("--sysroot=${emulator[-1]}")
    tools=$(basename "$compiler" g++)
fi
library=$(readlink -f "$build/libtolvex.so")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# expect TEXT PROGRAM [ARGUMENT]...: the program succeeds and prints exactly the text.
expect() {
    local expected=$1 printed
    shift
    printed=$("${emulator[@]}" "$@") || fail "exit status $? of: $*"
    [ "$printed" = "$expected" ] || fail "printed '$printed', not '$expected': $*"
}

# expect_driver PROGRAM: the driver's first line is right.
expect_driver() {
    local line
    line=$(timeout 20 "${emulator[@]}" "$1" | head -n 1) || true
    [ "$line" = "I'm on Main Thread....." ] || fail "the driver printed '$line'"
}

# project_version: as CMakeLists.txt states it.
project_version() {
    sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt" | grep .
}
