# What the package tests share. Called with the build folder, then the C++ compiler.

set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$1
compiler=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# expect TEXT COMMAND...: the command succeeds and prints exactly the text.
expect() {
    local expected=$1 printed
    shift
    printed=$("$@") || fail "exit status $? of: $*"
    [ "$printed" = "$expected" ] || fail "printed '$printed', not '$expected': $*"
}

# expect_driver PROGRAM: its first line is the driver's.
expect_driver() {
    local line
    line=$(timeout 20 "$1" | head -n 1) || true
    [ "$line" = "I'm on Main Thread....." ] || fail "$1 printed '$line'"
}
