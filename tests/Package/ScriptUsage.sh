#!/usr/bin/env bash
# The scripts' answers to wrong use.
source "$(dirname "$0")/common.sh"

for script in $(cd "$source/scripts" && find . -type f -perm -u+x -printf '%P\n'); do
    echo "- scripts/$script"
    "$source/scripts/$script" --help >"$scratch/help" || fail "--help"
    grep -q "^usage: scripts/$script" "$scratch/help" || fail "no usage in --help"
    status=0
    "$source/scripts/$script" --no-such-option >"$scratch/out" 2>"$scratch/error" || status=$?
    [ $status -eq 2 ] || fail "exit status $status for an unknown option"
    grep -q "^usage: scripts/$script" "$scratch/error" || fail "no usage for an unknown option"
    [ ! -s "$scratch/out" ] || fail "it did something"
    sed -n 2p "$source/scripts/$script" | grep -q '^# [A-Z].*\.$' || fail "no line of purpose"
done

# stub NAME BODY: a command that stands before the real one.
mkdir "$scratch/bin"
stub() {
    printf '#!/bin/sh\n%s\n' "$2" >"$scratch/bin/$1"
    chmod +x "$scratch/bin/$1"
}
setup() {
    status=0
    PATH=$scratch/bin:$PATH "$source/scripts/setup" build >"$scratch/out" 2>&1 || status=$?
}

echo "- scripts/setup with nothing missing"
stub dpkg-query 'echo installed'
stub apt-get 'exit 100'
setup
[ $status -eq 0 ] && [ ! -s "$scratch/out" ] || fail "$(cat "$scratch/out")"

echo "- scripts/setup without the right to install"
stub dpkg-query 'exit 1'
stub id 'echo 1000'
stub sudo 'exit 1'
setup
[ $status -eq 1 ] || fail "exit status $status"
grep -q 'missing:.* cmake g++ ' "$scratch/out" || fail "$(cat "$scratch/out")"

echo "- scripts/setup without a network"
stub id 'echo 0'
setup
[ $status -eq 1 ] || fail "exit status $status"
grep -q 'could not install these packages:.* cmake g++ ' "$scratch/out" || fail "$(cat "$scratch/out")"
