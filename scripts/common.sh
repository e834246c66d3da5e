# What the scripts share; sourced by them after they have set `usage`.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
mkdir -p "$root/build"

bad_usage() {
    echo "$usage" >&2
    exit 2
}

# arguments "WORD..." "$@": answers --help and refuses every argument that is not among the words.
arguments() {
    local allowed=" $1 " argument
    shift
    for argument in "$@"; do
        case "$argument" in --help | -h) echo "$usage" && exit 0 ;; esac
        [[ $allowed == *" $argument "* ]] || bad_usage
    done
}

needs_root() {
    [ "$(id -u)" -eq 0 ] || { echo "$0: needs root, $1" >&2 && exit 1; }
}

# configure PRESET [cmake option]...: quiet unless it fails.
configure() {
    cmake -S "$root" --preset "$@" >"$root/build/configure.log" 2>&1 ||
        { cat "$root/build/configure.log" >&2 && return 1; }
}

# build PRESET [cmake option]...: configures and builds everything, each public header alone too.
build() {
    configure "$@"
    cmake --build "$root/build/$1" --parallel "$jobs" --target all all_verify_interface_header_sets
}

# run_tests PRESET [ctest option]...: runs the tests of a built preset.
run_tests() {
    local preset=$1
    shift
    ctest --test-dir "$root/build/$preset" --output-on-failure --no-tests=error \
        --parallel "$jobs" "$@"
}

# The archive that this machine installs its own release from.
debian_mirror() {
    apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT) $(CREATED_BY)' |
        awk '$2 == "bookworm" && $3 == "main" && $4 == "Packages" && !found++ { print $1 }'
}

# use_sysroot ARCHITECTURE: exports where the sysroot of armhf or arm64 is, and makes one if it is
# missing: the C and C++ libraries of the device and what the tests link.
use_sysroot() {
    local variable folder
    case "$1" in
    armhf) variable=TOLVEX_ARM_SYSROOT folder=arm-sysroot ;;
    arm64) variable=TOLVEX_ARM64_SYSROOT folder=arm64-sysroot ;;
    *) return 0 ;; # this machine's own
    esac
    export "$variable=${!variable:-$root/build/$folder}"
    local sysroot=${!variable} peers=libcjson-dev,nlohmann-json3-dev,rapidjson-dev
    [ ! -d "$sysroot" ] || return 0
    rm -rf "$sysroot.part"
    mmdebstrap --quiet --variant=extract "--architectures=$1" \
        "--include=libc6-dev,libstdc++-12-dev,libssl-dev,uuid-dev,libgtest-dev,libgmock-dev,$peers" \
        bookworm "$sysroot.part" "deb $(debian_mirror) bookworm main" >"$root/build/sysroot.log" 2>&1 ||
        { cat "$root/build/sysroot.log" >&2 && return 1; }
    mv "$sysroot.part" "$sysroot"
}

# make_root DIR [PACKAGE]...: a minimal Debian with these packages, which can install more.
make_root() {
    local directory=$1 packages
    shift
    packages=$(IFS=,; echo "$*")
    mmdebstrap --quiet --variant=minbase --skip=cleanup/apt/lists --dpkgopt=force-unsafe-io \
        ${packages:+"--include=$packages"} bookworm "$directory" \
        "deb $(debian_mirror) bookworm main" >"$root/build/root.log" 2>&1 ||
        { cat "$root/build/root.log" >&2 && return 1; }
    cp /etc/resolv.conf "$directory/etc/resolv.conf"
    apt-config dump Acquire | grep -i proxy >"$directory/etc/apt/apt.conf.d/proxy" || true
}

# in_root DIR COMMAND...: runs a command in such a root, as a machine of its own would.
in_root() {
    # The mounts stand in a namespace of their own and go away with it.
    unshare --mount --pid --fork bash -euc '
        mount --bind "$1" "$1"  # a mount point, so that tests can make their mounts private
        mount -t proc proc "$1/proc"
        mount --rbind /sys "$1/sys"
        mount --rbind /dev "$1/dev"
        exec chroot "$1" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb \
            DEBIAN_FRONTEND=noninteractive "${@:2}"' in_root "$@"
}
