#!/usr/bin/env bash
# Checks LineHandOver.pml: no variant of the model may break a rule, and each seeded fault must.
# usage: tests/Model/Check.sh [VARIANT]
# Needs spin and gcc; exits with 77 when they are missing. README.md explains the model.
set -u
model=$(cd "$(dirname "$0")" && pwd)/LineHandOver.pml
only=${1-}

for program in spin gcc; do
    if ! command -v $program >/dev/null; then
        echo "skipped: $program is missing; scripts/setup test installs it"
        exit 77
    fi
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
failed=0
checked=0

# run NAME OPTION...: explores the variant. Leaves the report in the file report.
run() {
    rm -f report ./*.trail
    # Spin ignores processes that its option -E leaves in the middle: the model judges them itself.
    # Partial-order reduction would miss orders in which a fork stops processes.
    local reduction=
    case " $* " in *" -DFORK "*) reduction=-DNOREDUCE ;; esac
    spin "${@:2}" -a "$model" >report 2>&1 &&
        gcc -w -DSAFETY -DVECTORSZ=1024 -DMEMLIM=1024 $reduction -o pan pan.c >>report 2>&1 &&
        ./pan -E -m100000 >>report 2>&1 &&
        grep -q '^State-vector' report && ! grep -qE 'out of memory|max search depth' report
}

# states: how many were seen, for the report.
states() {
    awk '/states, stored/ { print $1 }' report
}

# holds NAME OPTION...: no order of steps breaks a rule.
holds() {
    [ -z "$only" ] || [ "$only" = "$1" ] || return 0
    checked=$((checked + 1))
    if run "$@" && grep -q 'errors: 0' report; then
        echo "holds: $1 ($(states) states)"
        return
    fi
    failed=1
    echo "BROKEN: $1"
    grep -E '^pan:|rror' report
    if ls ./*.trail >/dev/null 2>&1; then
        echo "The steps that lead there, the last 100:"
        spin "${@:2}" -t -p -k ./*.trail "$model" 2>&1 | grep -v '^ *timeout' | tail -n 100
    fi
}

# finds NAME OPTION...: the variant has a seeded fault, which is found.
finds() {
    [ -z "$only" ] || [ "$only" = "$1" ] || return 0
    checked=$((checked + 1))
    if run "$@" && grep -q 'assertion violated' report; then
        echo "finds: $1: $(sed -n 's/^pan:1: assertion violated //p' report)"
        return
    fi
    failed=1
    echo "NOT FOUND: $1"
    grep -E '^pan:|rror' report
}

holds calm -DCOMPOSERS=3
holds close -DCOMPOSERS=2 -DCLOSE
holds close-patient -DCOMPOSERS=2 -DCLOSE -DPATIENT
holds reopen -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN
holds retry -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN -DRETRY
holds close-again -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN -DCLOSE_AGAIN
holds notice -DCOMPOSERS=1 -DLINES=2 -DIGNITION
holds ignition -DCOMPOSERS=0 -DIGNITION -DENABLE
holds exception -DCOMPOSERS=0 -DIGNITION -DENABLE -DTHROW
holds ignition-reopen -DCOMPOSERS=0 -DCLOSE -DREOPEN -DIGNITION
holds cancel -DCOMPOSERS=2 -DCANCEL
holds cancel-reopen -DCOMPOSERS=1 -DCLOSE -DREOPEN -DCANCEL
holds destroy -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DDETACH
holds destroy-again -DCOMPOSERS=1 -DCLOSE -DREOPEN -DCLOSE_AGAIN -DDETACH
holds thread-end -DCOMPOSERS=2 -DCLOSE -DTHREAD_END
holds no-thread -DCOMPOSERS=1 -DCLOSE -DREOPEN -DNO_THREAD
holds fork -DCOMPOSERS=1 -DFORK
holds fork-reopen -DCOMPOSERS=0 -DCLOSE -DREOPEN -DFORK

# The flag waiting is set after the look at the line.
finds fault-1 -DCOMPOSERS=2 -DFAULT_1
# The writer is told to end before the open line is dropped.
finds fault-2 -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DFAULT_2
# The writer looks for a line before it reads whether it is told to end.
finds fault-3 -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN -DCLOSE_AGAIN -DFAULT_3
# A thread that gives up does not wake the next one.
finds fault-4 -DCOMPOSERS=2 -DLINES=2 -DCLOSE -DPATIENT -DFAULT_4
# A writer that is left behind sets stopped.
finds fault-5 -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN -DFAULT_5
# Lines are admitted although the new writer was cancelled.
finds fault-6 -DCOMPOSERS=1 -DCLOSE -DREOPEN -DCANCEL -DFAULT_6
# A forked child keeps the mutex of Writer.
finds fault-7 -DCOMPOSERS=0 -DCLOSE -DREOPEN -DFORK -DFAULT_7
# A waiting thread reads refusing after its try to take the line.
finds fault-8 -DCOMPOSERS=1 -DCLOSE -DREOPEN -DFAULT_8
# An output is counted after it has admitted lines.
finds fault-9 -DCOMPOSERS=1 -DCLOSE -DREOPEN -DFAULT_9
# The flag enabled is set after lines have been admitted.
finds fault-10 -DCOMPOSERS=1 -DCLOSE -DREOPEN -DFAULT_10
# A writer that ends keeps a token that was meant for another one.
finds fault-11 -DCOMPOSERS=1 -DLINES=2 -DCLOSE -DREOPEN -DRETRY -DFAULT_11
# Lines are admitted although the new writer was told to end.
finds fault-12 -DCOMPOSERS=1 -DCLOSE -DREOPEN -DIGNITION -DFAULT_12

if [ $checked -eq 0 ]; then
    echo "no variant is named $only" >&2
    exit 2
fi
exit $failed
