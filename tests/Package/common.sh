# What the package tests share. Called with the build folder, then the C++ compiler.

set -euo pipefail
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$1
compiler=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
source "$source/scripts/library.sh"

# expect TEXT COMMAND...: the command succeeds and prints exactly the text.
expect() {
    local expected=$1 printed
    shift
    printed=$("$@") || fail "exit status $? of: $*"
    [ "$printed" = "$expected" ] || fail "printed '$printed', not '$expected': $*"
}
